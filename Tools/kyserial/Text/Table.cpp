#include "kyserial/Text/Table.h"

#include <algorithm>
#include <utility>

namespace KySerialTool
{

Table::Table(std::vector<std::string> aHeader)
{
    mRows.push_back(std::move(aHeader));
}

void Table::Add(std::vector<std::string> aRow)
{
    aRow.resize(mRows.front().size());
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
        lLine.erase(lLine.find_last_not_of(' ') + 1);
        lText += lLine + '\n';
    }
    return lText;
}

} // namespace KySerialTool
