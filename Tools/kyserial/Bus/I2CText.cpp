#include "kyserial/Bus/I2CText.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <array>
#include <cstdio>
#include <optional>

namespace KySerialTool
{

namespace
{

constexpr size_t cLongestMessage = 65535;

std::string Hexadecimal(uint32_t aNumber)
{
    std::array<char, 16> lText{};
    std::snprintf(lText.data(), lText.size(), "0x%02x", static_cast<unsigned>(aNumber));
    return lText.data();
}

/// The next byte of a write that is filled up.
uint8_t NextByte(uint8_t aByte, char aFill)
{
    switch (aFill)
    {
    case '+':
        return static_cast<uint8_t>(aByte + 1);
    case '-':
        return static_cast<uint8_t>(aByte - 1);
    case 'p':
        // i2ctransfer's series: the same seed writes the same bytes with either program.
        return static_cast<uint8_t>((aByte ^ 27U) + 13U);
    default:
        return aByte;
    }
}

/// Takes "w2@0x50" apart, all but the bytes.
class MessageParser
{
public:
    MessageParser(const std::vector<std::string>& aWords, bool aAll) : mWords(aWords), mAll(aAll) {}

    std::vector<I2CMessage> Parse()
    {
        std::vector<I2CMessage> lMessages;
        while (mNext < mWords.size())
        {
            I2CMessage lMessage = ParseHead(mWords[mNext++]);
            if (!lMessage.mRead)
            {
                ParseBytes(lMessage);
            }
            lMessages.push_back(lMessage);
        }
        return lMessages;
    }

private:
    I2CMessage ParseHead(const std::string& aWord)
    {
        const size_t lAt = aWord.find('@');
        const bool lDirection = aWord.starts_with('r') || aWord.starts_with('w');
        const std::optional<uint64_t> lCount =
            lDirection
                ? ParseNumber(aWord.substr(1, lAt == std::string::npos ? lAt : lAt - 1), cLongestMessage)
                : std::nullopt;
        if (!lCount.has_value())
        {
            throw UsageError('"' + aWord +
                             "\" is no message; use rLENGTH@ADDRESS or wLENGTH@ADDRESS BYTE..., "
                             "w2@0x50 0x00 0x10 for example");
        }
        I2CMessage lMessage;
        lMessage.mRead = aWord.front() == 'r';
        lMessage.mCount = static_cast<size_t>(*lCount);
        if (lAt != std::string::npos)
        {
            // A message without an address goes to the one before it, as i2ctransfer has it.
            mAddress = ParseI2CAddress(aWord.substr(lAt + 1), mAll);
        }
        if (!mAddress.has_value())
        {
            throw UsageError('"' + aWord + "\" has no address; use " + aWord + "@0x50 for example");
        }
        lMessage.mAddress = *mAddress;
        return lMessage;
    }

    void ParseBytes(I2CMessage& aMessage)
    {
        while (aMessage.mBytes.size() < aMessage.mCount)
        {
            // The bytes that are missing could be the next message's, so nothing is guessed.
            if (mNext == mWords.size())
            {
                throw UsageError("a write of " + std::to_string(aMessage.mCount) + " bytes has only " +
                                 std::to_string(aMessage.mBytes.size()) +
                                 "; give the others, or end the last one in =, +, - or p");
            }
            ParseByte(aMessage, mWords[mNext++]);
        }
    }

    static void ParseByte(I2CMessage& aMessage, std::string aWord)
    {
        char lFill = 0;
        if (!aWord.empty() && std::string("=+-p").find(aWord.back()) != std::string::npos)
        {
            lFill = aWord.back();
            aWord.pop_back();
        }
        // The byte itself goes out too; the fill begins with the one after it.
        auto lByte = static_cast<uint8_t>(ParseI2CNumber(aWord, "byte", 0xFF));
        aMessage.mBytes.push_back(lByte);
        while (lFill != 0 && aMessage.mBytes.size() < aMessage.mCount)
        {
            lByte = NextByte(lByte, lFill);
            aMessage.mBytes.push_back(lByte);
        }
    }

    const std::vector<std::string>& mWords;
    const bool mAll;
    size_t mNext = 0;
    std::optional<uint8_t> mAddress;
};

} // namespace

uint8_t ParseI2CAddress(const std::string& aText, bool aAll)
{
    const std::optional<uint64_t> lAddress = ParseNumber(aText, cHighestI2CAddress);
    if (lAddress.has_value() && (aAll || (*lAddress >= cFirstI2CAddress && *lAddress <= cLastI2CAddress)))
    {
        return static_cast<uint8_t>(*lAddress);
    }
    // The hint at -a is for numbers that it would admit. For a word it helps nobody.
    throw UsageError('"' + aText + "\" is no I2C address; use 0x08 to 0x77" +
                     (lAddress.has_value() ? ", or -a for the reserved ones" : ""));
}

uint32_t ParseI2CNumber(const std::string& aText, const std::string& aWhat, uint32_t aMaximum)
{
    const std::optional<uint64_t> lNumber = ParseNumber(aText, aMaximum);
    if (!lNumber.has_value())
    {
        throw UsageError('"' + aText + "\" is no " + aWhat + "; use 0x00 to " + Hexadecimal(aMaximum));
    }
    return static_cast<uint32_t>(*lNumber);
}

std::pair<uint8_t, uint8_t> ParseI2CRange(const std::string& aText)
{
    const size_t lDash = aText.find('-');
    const std::optional<uint64_t> lFirst = ParseNumber(aText.substr(0, lDash), 0xFF);
    const std::optional<uint64_t> lLast =
        lDash != std::string::npos ? ParseNumber(aText.substr(lDash + 1), 0xFF) : std::nullopt;
    if (!lFirst.has_value() || !lLast.has_value() || *lFirst > *lLast)
    {
        throw UsageError("--range: \"" + aText + "\" is no range; use FIRST-LAST, 0x00-0xff for example");
    }
    return {static_cast<uint8_t>(*lFirst), static_cast<uint8_t>(*lLast)};
}

std::vector<I2CMessage> ParseI2CMessages(const std::vector<std::string>& aWords, bool aAll)
{
    return MessageParser(aWords, aAll).Parse();
}

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
    // Erased and empty cells stand out from those with other bytes that do not print, as in i2cdump.
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
        // Blanks for what was not asked, XX for what did not answer: scripts for i2cdump rely on both.
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
            // Blank: not asked. Dashes: asked without an answer.
            lText += !lAnswer.has_value() ? "   " : *lAnswer ? Number("%02x ", lAddress) : "-- ";
        }
        lText += '\n';
    }
    return lText;
}

std::string DumpBytesTable(const DumpValues& aValues, DumpRange aRange)
{
    std::string lText = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    // Rows begin at multiples of 16, so a register keeps its column whatever the range is.
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
