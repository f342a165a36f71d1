#include "kyserial/Text/TomlText.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

/// A quoted text, which begins at aStart. \return The place after it; of one line, at the end of that line at the latest.
size_t SkipQuoted(const std::string& aToml, size_t aStart)
{
    constexpr size_t cOfSeveralLines = 3;
    const char lQuote = aToml[aStart];
    const std::string lThree(cOfSeveralLines, lQuote);
    const bool lIsLong = aToml.compare(aStart, cOfSeveralLines, lThree) == 0;
    size_t lAt = aStart + (lIsLong ? cOfSeveralLines : 1);
    while (lAt < aToml.size())
    {
        // Only a text in double quotes knows escapes. In single quotes a backslash is a character like any
        // other.
        if (lQuote == '"' && aToml[lAt] == '\\')
        {
            lAt += 2;
        }
        else if (lIsLong && aToml.compare(lAt, cOfSeveralLines, lThree) == 0)
        {
            // Up to two more quotes belong to the text.
            const size_t lEnd = aToml.find_first_not_of(lQuote, lAt);
            return std::min({lEnd, lAt + cOfSeveralLines + 2, aToml.size()});
        }
        else if (!lIsLong && (aToml[lAt] == lQuote || aToml[lAt] == '\n'))
        {
            return lAt + (aToml[lAt] == lQuote ? 1 : 0);
        }
        else
        {
            ++lAt;
        }
    }
    return aToml.size();
}

} // namespace

std::string WithoutForeignLetters(std::string aToml)
{
    std::replace_if(
        aToml.begin(), aToml.end(), [](char aOne) { return static_cast<unsigned char>(aOne) >= 0x80; }, 'x');
    return aToml;
}

std::optional<uint32_t> FindStrayCharacter(const std::string& aToml)
{
    const std::string lByteOrderMark = "\xEF\xBB\xBF"; // some editors begin a file with it
    for (size_t lAt = aToml.compare(0, lByteOrderMark.size(), lByteOrderMark) == 0 ? lByteOrderMark.size()
                                                                                   : 0;
         lAt < aToml.size();)
    {
        const char lHere = aToml[lAt];
        if (static_cast<unsigned char>(lHere) >= 0x80)
        {
            const auto lEnd = aToml.begin() + static_cast<std::string::difference_type>(lAt);
            return 1 + static_cast<uint32_t>(std::count(aToml.begin(), lEnd, '\n'));
        }
        if (lHere == '#')
        {
            lAt = std::min(aToml.find('\n', lAt), aToml.size());
        }
        else
        {
            lAt = lHere == '"' || lHere == '\'' ? SkipQuoted(aToml, lAt) : lAt + 1;
        }
    }
    return std::nullopt;
}

} // namespace KySerialTool
