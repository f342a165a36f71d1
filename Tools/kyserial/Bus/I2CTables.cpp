#include "kyserial/Bus/I2CTables.h"

#include <cstdio>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cRow = 16;

// Scripts take the columns apart by position, so the spaces at the ends of lines are those of i2c-tools too.

std::string Number(const char* aFormat, uint32_t aNumber)
{
    std::array<char, 16> lText{};
    std::snprintf(lText.data(), lText.size(), aFormat, static_cast<unsigned>(aNumber));
    return lText.data();
}

char CharacterOf(uint16_t aByte)
{
    if (aByte == 0x00 || aByte == 0xFF)
    {
        return '.';
    }
    return aByte < 0x20 || aByte >= 0x7F ? '?' : static_cast<char>(aByte);
}

bool IsInRange(uint32_t aRegister, DumpRange aRange)
{
    return aRegister >= aRange.mFirst && aRegister <= aRange.mLast;
}

std::string ByteRow(const DumpValues& aValues, DumpRange aRange, uint32_t aRow)
{
    std::string lNumbers = Number("%02x: ", aRow);
    std::string lCharacters = "   ";
    for (uint32_t lRegister = aRow; lRegister < aRow + cRow; ++lRegister)
    {
        const std::optional<uint16_t>& lValue = aValues.at(lRegister);
        if (!IsInRange(lRegister, aRange))
        {
            lNumbers += "   ";
            lCharacters += ' ';
        }
        else
        {
            lNumbers += lValue.has_value() ? Number("%02x ", *lValue) : "XX ";
            lCharacters += lValue.has_value() ? CharacterOf(*lValue) : 'X';
        }
    }
    return lNumbers + lCharacters + '\n';
}

} // namespace

std::string DetectTable(const I2CAnswers& aAnswers)
{
    std::string lText = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n";
    for (uint32_t lRow = 0; lRow < aAnswers.size(); lRow += cRow)
    {
        lText += Number("%02x: ", lRow);
        for (uint32_t lAddress = lRow; lAddress < lRow + cRow; ++lAddress)
        {
            const std::optional<bool>& lAnswer = aAnswers.at(lAddress);
            lText += !lAnswer.has_value() ? "   " : *lAnswer ? Number("%02x ", lAddress) : "-- ";
        }
        lText += '\n';
    }
    return lText;
}

std::string DumpBytesTable(const DumpValues& aValues, DumpRange aRange)
{
    std::string lText = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    for (uint32_t lRow = aRange.mFirst / cRow * cRow; lRow <= aRange.mLast; lRow += cRow)
    {
        lText += ByteRow(aValues, aRange, lRow);
    }
    return lText;
}

std::string DumpWordsTable(const DumpValues& aValues, DumpRange aRange)
{
    std::string lText = "     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n";
    for (uint32_t lRow = aRange.mFirst / 8 * 8; lRow <= aRange.mLast; lRow += 8)
    {
        lText += Number("%02x: ", lRow);
        for (uint32_t lRegister = lRow; lRegister < lRow + 8; ++lRegister)
        {
            const std::optional<uint16_t>& lValue = aValues.at(lRegister);
            lText += !IsInRange(lRegister, aRange) ? "     "
                     : lValue.has_value()          ? Number("%04x ", *lValue)
                                                   : "XXXX ";
        }
        lText += '\n';
    }
    return lText;
}

} // namespace KySerialTool
