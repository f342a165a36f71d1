#include "kyserial/Text/Output.h"

#include "CommandLine/PlainText.h"

#include <Platform/Console.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace KySerialTool
{

Table::Table(std::vector<std::string> aHeader)
{
    mRows.push_back(std::move(aHeader));
}

void Table::Add(std::vector<std::string> aRow)
{
    // A row may have fewer cells than the header, as that of a device among those of its ports.
    aRow.resize(mRows.front().size());
    for (std::string& lCell : aRow)
    {
        lCell = KyCommandLine::Escaped(lCell); // names come from devices and users
    }
    mRows.push_back(std::move(aRow));
}

std::string Table::Text() const
{
    std::vector<size_t> lWidths(mRows.front().size(), 0);
    for (const auto& lRow : mRows)
    {
        for (size_t lColumn = 0; lColumn < lRow.size(); ++lColumn)
        {
            lWidths[lColumn] = std::max(lWidths[lColumn], lRow[lColumn].size());
        }
    }
    std::string lText;
    for (const auto& lRow : mRows)
    {
        std::string lLine;
        for (size_t lColumn = 0; lColumn < lRow.size(); ++lColumn)
        {
            lLine += lRow[lColumn];
            lLine.append(lWidths[lColumn] - lRow[lColumn].size() + 2, ' ');
        }
        // Without blanks at the end: an empty last column would leave some.
        lLine.erase(lLine.find_last_not_of(' ') + 1);
        lText += lLine + '\n';
    }
    return lText;
}

Progress::Progress(std::string aLabel, size_t aTotal)
    : mLabel(std::move(aLabel)), mTotal(aTotal), mVisible(KyToolPlatform::Console::IsErrorTerminal())
{
    Advance(0);
}

Progress::~Progress()
{
    if (mVisible)
    {
        // The bar has not ended its line, and the next message needs one of its own.
        std::fputs("\n", stderr);
    }
}

void Progress::Advance(size_t aCount)
{
    mDone += aCount;
    const std::string lText = Text(mLabel, mDone, mTotal);
    // Most steps change nothing that shows, and a terminal is slow.
    if (mVisible && lText != mShown)
    {
        std::fputs(('\r' + lText).c_str(), stderr);
        std::fflush(stderr);
        mShown = lText;
    }
}

std::string Progress::Text(const std::string& aLabel, size_t aDone, size_t aTotal)
{
    constexpr size_t cWidth = 20;
    // A file that grows while it is sent has more than 100 %.
    const size_t lDone = std::min(aDone, aTotal);
    // Of an unknown size, a pipe's for example, the bar is full from the beginning.
    const size_t lMarks = aTotal > 0 ? lDone * cWidth / aTotal : cWidth;
    const size_t lPercent = aTotal > 0 ? lDone * 100 / aTotal : 100;
    std::array<char, 96> lText{};
    std::snprintf(lText.data(), lText.size(), "%-10.20s [%-20s] %3u%%", aLabel.c_str(),
                  std::string(lMarks, '#').c_str(), static_cast<unsigned>(lPercent));
    return lText.data();
}

} // namespace KySerialTool
