#include "kyserial/Text/HexInput.h"

#include <charconv>
#include <sstream>

namespace KySerialTool
{

namespace
{

bool AppendWord(std::string aWord, std::vector<uint8_t>& aBytes)
{
    if (aWord.starts_with("0x") || aWord.starts_with("0X"))
    {
        aWord.erase(0, 2);
    }
    if (aWord.empty() || aWord.size() % 2 != 0)
    {
        return false;
    }
    for (size_t lIndex = 0; lIndex < aWord.size(); lIndex += 2)
    {
        uint8_t lByte = 0;
        const char* const lEnd = aWord.data() + lIndex + 2;
        const auto lResult = std::from_chars(aWord.data() + lIndex, lEnd, lByte, 16);
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

} // namespace KySerialTool
