#include "Adapters/GigE/Evaluator/Number.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace KyGigE
{

namespace
{

constexpr double cBeyond = 9223372036854775808.0; // 2 to the 63rd

std::optional<int64_t> Whole(double aValue)
{
    // The conversion is undefined outside this range. The upper limit itself is a double and no int64_t.
    return aValue >= -cBeyond && aValue < cBeyond ? std::optional(static_cast<int64_t>(aValue))
                                                  : std::nullopt;
}

/// Parts of two hexadecimal or some decimal digits with a separator between them.
std::optional<int64_t> ParseParts(std::string_view aText, char aSeparator, int aBase, int aCount)
{
    const char* lNext = aText.data();
    const char* const lEnd = lNext + aText.size();
    int64_t lValue = 0;
    for (int lPart = 0; lPart < aCount; ++lPart)
    {
        if (lPart > 0 && (lNext == lEnd || *lNext++ != aSeparator))
        {
            return std::nullopt;
        }
        uint8_t lByte = 0;
        // A part above 255 does not fit into the byte, which is an error of the conversion.
        const auto lResult = std::from_chars(lNext, lEnd, lByte, aBase);
        if (lResult.ec != std::errc())
        {
            return std::nullopt;
        }
        lNext = lResult.ptr;
        lValue = lValue * 256 + lByte;
    }
    return lNext == lEnd ? std::optional(lValue) : std::nullopt;
}

bool EqualsLower(std::string_view aText, std::string_view aLower)
{
    if (aText.size() != aLower.size())
    {
        return false;
    }
    for (size_t lIndex = 0; lIndex < aText.size(); ++lIndex)
    {
        const char lChar = aText[lIndex];
        if ((lChar >= 'A' && lChar <= 'Z' ? static_cast<char>(lChar + ('a' - 'A')) : lChar) != aLower[lIndex])
        {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<int64_t> Number::Truncated() const
{
    return mIsFloat ? Whole(std::trunc(mFloat)) : std::optional(mInteger);
}

std::optional<int64_t> Number::Rounded() const
{
    return mIsFloat ? Whole(std::round(mFloat)) : std::optional(mInteger);
}

// The parser of the standard library takes no plus sign; descriptions have some.
std::optional<int64_t> ParseInteger(std::string_view aText)
{
    if (aText.size() > 1 && aText[0] == '+' && aText[1] != '-')
    {
        aText.remove_prefix(1);
    }
    const char* const lEnd = aText.data() + aText.size();
    if (aText.size() > 2 && aText[0] == '0' && (aText[1] == 'x' || aText[1] == 'X'))
    {
        // Hexadecimal numbers are bits: those with the highest one are negative.
        uint64_t lValue = 0;
        const auto lResult = std::from_chars(aText.data() + 2, lEnd, lValue, 16);
        return lResult.ec == std::errc() && lResult.ptr == lEnd ? std::optional(static_cast<int64_t>(lValue))
                                                                : std::nullopt;
    }
    int64_t lValue = 0;
    const auto lResult = std::from_chars(aText.data(), lEnd, lValue, 10);
    return lResult.ec == std::errc() && lResult.ptr == lEnd ? std::optional(lValue) : std::nullopt;
}

std::optional<double> ParseFloat(std::string_view aText)
{
    if (aText.size() > 1 && aText[0] == '+' && aText[1] != '-')
    {
        aText.remove_prefix(1);
    }
    double lValue = 0;
    const char* const lEnd = aText.data() + aText.size();
    const auto lResult = std::from_chars(aText.data(), lEnd, lValue);
    return lResult.ec == std::errc() && lResult.ptr == lEnd && std::isfinite(lValue) ? std::optional(lValue)
                                                                                     : std::nullopt;
}

std::optional<bool> ParseBoolean(std::string_view aText)
{
    if (aText == "1" || EqualsLower(aText, "true"))
    {
        return true;
    }
    return aText == "0" || EqualsLower(aText, "false") ? std::optional(false) : std::nullopt;
}

std::string FloatText(double aValue)
{
    std::array<char, 32> lText{};
    // The shortest text that reads back as the same number, whatever the user's language is.
    const auto lResult = std::to_chars(lText.data(), lText.data() + lText.size(), aValue);
    return {lText.data(), lResult.ptr};
}

std::string IntegerText(int64_t aValue, Representation aRepresentation)
{
    const auto lBits = static_cast<uint64_t>(aValue);
    const auto lByte = [lBits](unsigned aIndex)
    { return static_cast<unsigned>(lBits >> (8 * aIndex) & 0xFFU); };
    std::array<char, 32> lText{};
    switch (aRepresentation)
    {
    case Representation::Hexadecimal:
        std::snprintf(lText.data(), lText.size(), "0x%llX", static_cast<unsigned long long>(lBits));
        return lText.data();
    case Representation::Ipv4:
        if (lBits >> 32U != 0)
        {
            break; // not an address; its upper bits must not be lost
        }
        std::snprintf(lText.data(), lText.size(), "%u.%u.%u.%u", lByte(3), lByte(2), lByte(1), lByte(0));
        return lText.data();
    case Representation::Mac:
        if (lBits >> 48U != 0)
        {
            break;
        }
        std::snprintf(lText.data(), lText.size(), "%02X:%02X:%02X:%02X:%02X:%02X", lByte(5), lByte(4),
                      lByte(3), lByte(2), lByte(1), lByte(0));
        return lText.data();
    case Representation::Decimal:
        break;
    }
    return std::to_string(aValue);
}

std::optional<int64_t> ParseInteger(std::string_view aText, Representation aRepresentation)
{
    std::optional<int64_t> lValue;
    if (aRepresentation == Representation::Ipv4)
    {
        lValue = ParseParts(aText, '.', 10, 4);
    }
    if (aRepresentation == Representation::Mac)
    {
        lValue = ParseParts(aText, ':', 16, 6);
    }
    // A plain number does as well: programs write what they have read as a number elsewhere.
    return lValue ? lValue : ParseInteger(aText);
}

} // namespace KyGigE
