#include "kyserial/Text/HexDump.h"

#include <array>
#include <cstdio>

namespace KySerialTool
{

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
