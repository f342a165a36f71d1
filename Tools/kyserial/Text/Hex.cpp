#include "kyserial/Text/Hex.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <sstream>
#include <system_error>

namespace KySerialTool
{

std::optional<uint64_t> ParseNumber(const std::string& aText, uint64_t aMaximum)
{
    const bool lHexadecimal = aText.starts_with("0x") || aText.starts_with("0X");
    const char* const lBegin = aText.data() + (lHexadecimal ? 2 : 0);
    const char* const lEnd = aText.data() + aText.size();
    uint64_t lNumber = 0;
    const auto lResult = std::from_chars(lBegin, lEnd, lNumber, lHexadecimal ? 16 : 10);
    // The whole text is the number: "12x" is a slip, and "0x" alone has no digit.
    if (lResult.ec != std::errc() || lResult.ptr != lEnd || lNumber > aMaximum)
    {
        return std::nullopt;
    }
    return lNumber;
}

std::optional<uint64_t> ParseSize(const std::string& aText, uint64_t aMaximum)
{
    constexpr size_t cUnitLength = 3;
    const bool lKilo = aText.ends_with("KiB");
    const unsigned lShift = lKilo ? 10U : aText.ends_with("MiB") ? 20U : 0U;
    const std::string lDigits = lShift != 0 ? aText.substr(0, aText.size() - cUnitLength) : aText;
    // The limit is shifted, not the number: that could overflow.
    const std::optional<uint64_t> lNumber = ParseNumber(lDigits, aMaximum >> lShift);
    return lNumber.has_value() ? std::optional<uint64_t>(*lNumber << lShift) : std::nullopt;
}

namespace
{

bool AppendWord(std::string aWord, std::vector<uint8_t>& aBytes)
{
    if (aWord.starts_with("0x") || aWord.starts_with("0X"))
    {
        aWord.erase(0, 2);
    }
    // A byte has both its digits, so an odd number of them is a slip.
    if (aWord.empty() || aWord.size() % 2 != 0)
    {
        return false;
    }
    for (size_t lIndex = 0; lIndex < aWord.size(); lIndex += 2)
    {
        uint8_t lByte = 0;
        const char* const lEnd = aWord.data() + lIndex + 2;
        const auto lResult = std::from_chars(aWord.data() + lIndex, lEnd, lByte, 16);
        // Both digits have to be taken: "9g" would count as 9 otherwise.
        if (lResult.ptr != lEnd)
        {
            return false;
        }
        aBytes.push_back(lByte);
    }
    return true;
}

} // namespace

std::optional<std::vector<uint8_t>> ParseHexBytes(const std::vector<std::string>& aWords)
{
    std::vector<uint8_t> lBytes;
    for (const std::string& lArgument : aWords)
    {
        // An argument in quotes may hold several words.
        std::istringstream lWords(lArgument);
        std::string lWord;
        while (lWords >> lWord)
        {
            if (!AppendWord(lWord, lBytes))
            {
                return std::nullopt;
            }
        }
    }
    return lBytes;
}

size_t HexReader::Add(const uint8_t* aData, size_t aSize, std::vector<uint8_t>& aBytes)
{
    static const std::string cBetween = " ,\t\r\n";
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        const auto lCharacter = static_cast<char>(aData[lIndex]);
        // Blanks part bytes, never the two digits of one.
        if (!mFirst.has_value() && cBetween.find(lCharacter) != std::string::npos)
        {
            continue;
        }
        uint8_t lDigit = 0;
        if (std::from_chars(&lCharacter, &lCharacter + 1, lDigit, 16).ec != std::errc())
        {
            return lIndex;
        }
        if (mFirst.has_value())
        {
            aBytes.push_back(static_cast<uint8_t>(*mFirst << 4U | lDigit));
            mFirst.reset();
        }
        else
        {
            mFirst = lDigit;
        }
    }
    return aSize;
}

bool HexReader::Drop()
{
    const bool lBegun = mFirst.has_value();
    mFirst.reset();
    return lBegun;
}

std::string HexDump::Add(const uint8_t* aData, size_t aSize)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        mLine.push_back(aData[lIndex]);
        if (mLine.size() == cBytesPerLine)
        {
            lText += Flush();
        }
    }
    return lText;
}

std::string HexDump::Flush()
{
    if (mLine.empty())
    {
        return {};
    }
    std::array<char, 24> lOffset{};
    std::snprintf(lOffset.data(), lOffset.size(), "%08llx", static_cast<unsigned long long>(mOffset));
    std::string lNumbers = HexBytes(mLine.data(), mLine.size());
    // The last line is as wide as the others, so that the characters stand in their column.
    lNumbers.resize(cBytesPerLine * 3 - 1, ' ');
    std::string lText = std::string(lOffset.data()) + "  " + lNumbers + "  |" +
                        PrintableBytes(mLine.data(), mLine.size()) + "|\n";
    mOffset += mLine.size();
    mLine.clear();
    return lText;
}

std::string HexBytes(const uint8_t* aData, size_t aSize)
{
    static constexpr char cDigits[] = "0123456789abcdef";
    std::string lText;
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        if (lIndex > 0)
        {
            lText += ' ';
        }
        lText += cDigits[aData[lIndex] >> 4U];
        lText += cDigits[aData[lIndex] & 0x0FU];
    }
    return lText;
}

std::string PrintableBytes(const uint8_t* aData, size_t aSize)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        lText += aData[lIndex] >= 0x20 && aData[lIndex] < 0x7F ? static_cast<char>(aData[lIndex]) : '.';
    }
    return lText;
}

} // namespace KySerialTool
