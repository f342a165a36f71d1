#include "CommandLine/PlainText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace KyCommandLine
{

namespace
{

/// "\n", "\x1b".
std::string Written(unsigned char aCharacter)
{
    constexpr std::array<std::pair<char, const char*>, 3> cNames = {
        {{'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}}};
    for (const auto& [lCharacter, lName] : cNames)
    {
        if (static_cast<unsigned char>(lCharacter) == aCharacter)
        {
            return lName;
        }
    }
    std::array<char, 8> lText{};
    std::snprintf(lText.data(), lText.size(), "\\x%02x", static_cast<unsigned>(aCharacter));
    return lText.data();
}

/// Letters that are wrong, missing, too many or exchanged with their neighbour.
size_t Distance(const std::string& aOne, const std::string& aOther)
{
    const size_t lWidth = aOther.size() + 1;
    std::vector<size_t> lCosts((aOne.size() + 1) * lWidth);
    for (size_t lRow = 0; lRow <= aOne.size(); ++lRow)
    {
        for (size_t lColumn = 0; lColumn < lWidth; ++lColumn)
        {
            size_t& lCost = lCosts[lRow * lWidth + lColumn];
            if (lRow == 0 || lColumn == 0)
            {
                lCost = lRow + lColumn;
                continue;
            }
            // The cheapest way from one beginning to the other: leave a letter out, put one in, or change one.
            const bool lEqual = aOne[lRow - 1] == aOther[lColumn - 1];
            lCost =
                std::min({lCosts[(lRow - 1) * lWidth + lColumn] + 1, lCosts[lRow * lWidth + lColumn - 1] + 1,
                          lCosts[(lRow - 1) * lWidth + lColumn - 1] + (lEqual ? 0 : 1)});
            // Two neighbours that are exchanged are one slip, not two.
            if (lRow > 1 && lColumn > 1 && aOne[lRow - 1] == aOther[lColumn - 2] &&
                aOne[lRow - 2] == aOther[lColumn - 1])
            {
                lCost = std::min(lCost, lCosts[(lRow - 2) * lWidth + lColumn - 2] + 1);
            }
        }
    }
    return lCosts.back();
}

} // namespace

std::string Escaped(const std::string& aText)
{
    constexpr unsigned char cSpace = 0x20;
    constexpr unsigned char cDelete = 0x7F;
    constexpr unsigned char cTwoBytes = 0xC2; // begins U+0080 to U+00BF, whose first half are controls too
    constexpr unsigned char cLastControl = 0x9F;
    std::string lText;
    for (size_t lIndex = 0; lIndex < aText.size(); ++lIndex)
    {
        const auto lByte = static_cast<unsigned char>(aText[lIndex]);
        const unsigned char lNext =
            lIndex + 1 < aText.size() ? static_cast<unsigned char>(aText[lIndex + 1]) : 0;
        if (lByte == cTwoBytes && lNext >= cDelete && lNext <= cLastControl)
        {
            lText += Written(lByte) + Written(lNext);
            ++lIndex;
        }
        // Bytes of other letters pass, so that names in any language stay readable.
        else if (lByte < cSpace || lByte == cDelete)
        {
            lText += Written(lByte);
        }
        else
        {
            lText += aText[lIndex];
        }
    }
    return lText;
}

std::optional<std::string> Nearest(const std::string& aWord, const std::vector<std::string>& aWords)
{
    constexpr size_t cLongest = 64; // no option is longer, and the time grows with the square
    std::optional<std::string> lNearest;
    // One slip in a short word, one in three letters of a long one. More would suggest words that have nothing to
    // do with it.
    size_t lLeast = std::max<size_t>(1, aWord.size() / 3);
    for (const std::string& lWord : aWord.size() <= cLongest ? aWords : std::vector<std::string>())
    {
        // A beginning counts as near, whatever is missing: many users expect options to be completed.
        const bool lBegins = aWord.size() >= 3 && lWord.size() > aWord.size() && lWord.starts_with(aWord);
        const size_t lDistance = lBegins ? 1 : Distance(aWord, lWord);
        if (lDistance < lLeast || (lDistance == lLeast && !lNearest.has_value()))
        {
            lLeast = lDistance;
            lNearest = lWord;
        }
    }
    return lNearest;
}

std::string Wrapped(const std::string& aText, size_t aWidth, size_t aIndent)
{
    const std::string lIndent(aIndent, ' ');
    std::istringstream lLines(aText);
    std::string lText;
    for (std::string lLine; std::getline(lLines, lLine);)
    {
        lText += lText.empty() ? "" : "\n" + lIndent;
        if (lLine.starts_with(' '))
        {
            lText += lLine; // an example, or a table
            continue;
        }
        std::istringstream lWords(lLine);
        size_t lColumn = aIndent;
        for (std::string lWord; lWords >> lWord;)
        {
            // A word that is longer than a line stays whole, on a line of its own.
            if (lColumn > aIndent && lColumn + 1 + lWord.size() > aWidth)
            {
                lText += '\n' + lIndent;
                lColumn = aIndent;
            }
            lText += (lColumn > aIndent ? " " : "") + lWord;
            lColumn += (lColumn > aIndent ? 1 : 0) + lWord.size();
        }
    }
    return lText;
}

} // namespace KyCommandLine
