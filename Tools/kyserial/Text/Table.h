#pragma once

#include <string>
#include <vector>

namespace KySerialTool
{

/// Text in columns: each as wide as its widest cell, two spaces between, nothing behind the last.
class Table
{
public:
    explicit Table(std::vector<std::string> aHeader);

    /// A row; missing cells are empty, those beyond the header are dropped.
    void Add(std::vector<std::string> aRow);

    /// All lines, the header first, each with its line end.
    std::string Text() const;

private:
    std::vector<std::vector<std::string>> mRows;
};

} // namespace KySerialTool
