#include "kyserial/Terminal/TermSession.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

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

using KyToolPlatform::Console;

constexpr uint32_t cQuietPoll = 5; // milliseconds

} // namespace

TermSession::TermSession(Console& aConsole, BytePort& aPort, TrafficLog& aLog, const TermSettings& aSettings)
    : mConsole(aConsole)
    , mSettings(aSettings)
    , mSender(
          aPort, aLog, [this] { return mConsole.IsInterrupted(); }, aSettings.mBusyLimit)
    , mReceiver(aPort, aLog,
                {[this](const std::vector<uint8_t>& aBytes) { return Take(aBytes); },
                 [this] { mConsole.Interrupt(); }})
{
}

TermSession::End TermSession::Run()
{
    End lEnd = SendInput();
    if (lEnd == End::InputEnded && !mSettings.mInteractive)
    {
        lEnd = AwaitQuiet();
    }
    mReceiver.Stop();
    const std::string lFailure = mReceiver.GetFailure();
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    if (!Write(mDump.Flush()))
    {
        throw OperationError("cannot write to the standard output");
    }
    return lEnd;
}

TermSession::End TermSession::SendInput()
{
    std::array<uint8_t, 4096> lBuffer{};
    for (;;)
    {
        size_t lRead = 0;
        const Console::ReadResult lResult =
            mConsole.Read(lBuffer.data(), lBuffer.size(), lRead, Console::cInfinite);
        if (lResult != Console::ReadResult::Data)
        {
            return lResult == Console::ReadResult::Interrupted ? End::Interrupted : End::InputEnded;
        }
        const size_t lSize = mSettings.mInteractive ? mSettings.mEscape.FindIn(lBuffer.data(), lRead) : lRead;
        if (!mSender.Send(lBuffer.data(), lSize))
        {
            return End::Interrupted;
        }
        if (lSize < lRead)
        {
            return End::Escaped;
        }
    }
}

TermSession::End TermSession::AwaitQuiet() const
{
    const uint64_t lInputEnd = JxUtilsLib::Thread::GetTickCount();
    while (!mConsole.IsInterrupted())
    {
        const uint64_t lLast = std::max(lInputEnd, mReceiver.GetLastTime());
        if (!mSettings.mForever && JxUtilsLib::Thread::GetTickCount() >= lLast + mSettings.mQuietTime)
        {
            break;
        }
        JxUtilsLib::Thread::Sleep(cQuietPoll);
    }
    return End::InputEnded; // everything was sent: to stop listening is no interruption
}

bool TermSession::Take(const std::vector<uint8_t>& aBytes)
{
    if (!mSettings.mHex)
    {
        return mConsole.Write(aBytes.data(), aBytes.size());
    }
    std::string lText = mDump.Add(aBytes.data(), aBytes.size());
    if (aBytes.empty() && mSettings.mPartialLines)
    {
        lText = mDump.Flush();
    }
    return Write(lText);
}

bool TermSession::Write(const std::string& aText)
{
    return mConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size());
}

} // namespace KySerialTool
