#include "kyserial/Terminal/KeyReader.h"

#include "kyserial/Text/Hex.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint8_t cControlKeys = 0x20; // the codes below this one belong to Ctrl and a key from '@' on

std::optional<uint8_t> ParseControlKey(char aKey)
{
    const int lKey = std::toupper(static_cast<unsigned char>(aKey));
    return lKey >= '@' && lKey <= '_' ? std::optional(static_cast<uint8_t>(lKey - '@')) : std::nullopt;
}

} // namespace

std::optional<EscapeKey> EscapeKey::Parse(const std::string& aText)
{
    EscapeKey lKey;
    // A new object has the usual key, and a text that names no key must not fall back to it.
    lKey.mByte.reset();
    if (aText == "none")
    {
        return lKey;
    }
    const bool lCaret = aText.size() == 2 && aText.front() == '^';
    const bool lName = aText.size() == 6 && (aText.starts_with("Ctrl-") || aText.starts_with("ctrl-"));
    if (lCaret || lName)
    {
        lKey.mByte = ParseControlKey(aText.back());
    }
    else if (aText.starts_with("0x"))
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, 0xFF);
        lKey.mByte = lNumber.has_value() ? std::optional(static_cast<uint8_t>(*lNumber)) : std::nullopt;
    }
    return lKey.mByte.has_value() ? std::optional(lKey) : std::nullopt;
}

size_t EscapeKey::FindIn(const uint8_t* aData, size_t aSize) const
{
    return mByte.has_value() ? static_cast<size_t>(std::find(aData, aData + aSize, *mByte) - aData) : aSize;
}

std::string EscapeKey::Text() const
{
    if (!mByte.has_value())
    {
        return "none";
    }
    std::array<char, 8> lText{};
    if (*mByte < cControlKeys)
    {
        std::snprintf(lText.data(), lText.size(), "Ctrl-%c", *mByte + '@');
    }
    else
    {
        std::snprintf(lText.data(), lText.size(), "0x%02x", static_cast<unsigned>(*mByte));
    }
    return lText.data();
}

namespace
{

constexpr uint8_t cControlC = 0x03;
constexpr uint8_t cEscape = 0x1B;
constexpr uint8_t cBackspace = 0x08;
constexpr uint8_t cDelete = 0x7F;

/// Users hold Ctrl down for the second key too.
char CommandOf(uint8_t aKey)
{
    const bool lControl = aKey >= 1 && aKey <= 26;
    return static_cast<char>(lControl ? aKey - 1 + 'a' : std::tolower(aKey));
}

} // namespace

KeyReader::KeyReader(Source aSource, std::optional<EscapeKey> aEscape)
    : mSource(std::move(aSource)), mEscape(aEscape)
{
}

KeyReader::ReadResult KeyReader::Fill(uint32_t aTimeout)
{
    std::array<uint8_t, 4096> lPiece{};
    size_t lRead = 0;
    const ReadResult lResult = mSource(lPiece.data(), lPiece.size(), lRead, aTimeout);
    mBuffer.insert(mBuffer.end(), lPiece.begin(), lPiece.begin() + static_cast<std::ptrdiff_t>(lRead));
    return lResult;
}

KeyReader::Event KeyReader::Next()
{
    const auto lEscapeAt = [this]
    { return mEscape.has_value() ? mEscape->FindIn(mBuffer.data(), mBuffer.size()) : mBuffer.size(); };
    // An escape key alone waits for the key after it, which decides what it means.
    while (mBuffer.empty() || (lEscapeAt() == 0 && mBuffer.size() == 1))
    {
        const ReadResult lResult = Fill(KyToolPlatform::Console::cInfinite);
        if (lResult != ReadResult::Data)
        {
            return {lResult};
        }
    }
    Event lEvent;
    size_t lTaken = lEscapeAt();
    if (lTaken > 0)
    {
        // Everything up to the escape key goes out together: a pasted text is one piece.
        lEvent.mBytes.assign(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(lTaken));
    }
    else
    {
        lTaken = 2;
        // The escape key twice sends it once: the port can still get every byte.
        if (mBuffer[1] == mBuffer[0])
        {
            lEvent.mBytes = {mBuffer[0]};
        }
        else
        {
            lEvent.mCommand = CommandOf(mBuffer[1]);
        }
    }
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(lTaken));
    return lEvent;
}

std::optional<std::string> KeyReader::ReadLine(const std::function<void(const std::string&)>& aEcho)
{
    std::string lLine;
    for (;;)
    {
        if (mBuffer.empty() && Fill(KyToolPlatform::Console::cInfinite) != ReadResult::Data)
        {
            return {};
        }
        const uint8_t lKey = mBuffer.front();
        mBuffer.erase(mBuffer.begin());
        // In raw mode Ctrl-C is a key like any other. Here it takes back the question, not the session.
        if (lKey == '\r' || lKey == '\n' || lKey == cControlC || lKey == cEscape)
        {
            aEcho("\n");
            return lKey == cControlC || lKey == cEscape ? std::nullopt : std::optional(lLine);
        }
        if (lKey == cBackspace || lKey == cDelete)
        {
            // Raw mode shows nothing by itself, so the character is wiped from the screen here.
            aEcho(lLine.empty() ? "" : "\b \b");
            lLine.resize(lLine.empty() ? 0 : lLine.size() - 1);
        }
        else if (lKey >= ' ')
        {
            lLine += static_cast<char>(lKey);
            aEcho(std::string(1, static_cast<char>(lKey)));
        }
    }
}

bool KeyReader::WantsToStop()
{
    static_cast<void>(Fill(0)); // ignored: the next read finds an input that has ended
    const bool lStop = std::any_of(mBuffer.begin(), mBuffer.end(),
                                   [](uint8_t aKey) { return aKey == cControlC || aKey == cEscape; });
    // Keys that were typed meanwhile are dropped: sent later, they would reach the port in the middle of something
    // else.
    mBuffer.clear();
    return lStop;
}

} // namespace KySerialTool
