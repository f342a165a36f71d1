#include "kyserial/Terminal/EscapeKey.h"

#include "kyserial/Text/Number.h"

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

} // namespace KySerialTool
