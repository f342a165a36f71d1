#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Text in columns: each as wide as its widest cell, two spaces between, none after the last.
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

/// A cell's text; "-" for a cell without one.
inline std::string OrDash(const std::string& aText)
{
    return aText.empty() ? "-" : aText;
}

/// A bar on the error output that follows a long transfer; only there when that is a terminal.
class Progress
{
public:
    /// \param aLabel  "writing", "reading" and so on.
    /// \param aTotal  What Advance() will add up to.
    Progress(std::string aLabel, size_t aTotal);
    /// Ends the bar's line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Advance(size_t aCount);

    /// The bar: "writing    [##########          ]  50%".
    static std::string Text(const std::string& aLabel, size_t aDone, size_t aTotal);

private:
    const std::string mLabel;
    const size_t mTotal;
    const bool mVisible;
    size_t mDone = 0;
    std::string mShown{};
};

} // namespace KySerialTool
