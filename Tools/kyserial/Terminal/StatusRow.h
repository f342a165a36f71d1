#pragma once

#include "kyserial/Terminal/Screen.h"

#include <KyPlatform/Deadline.h>
#include <Platform/Console.h>

#include <cstddef>
#include <string>

namespace KySerialTool
{

/// A text that fits into one row of a terminal: a longer one would wrap, and scroll the terminal with each update.
std::string FitRow(std::string aText, size_t aColumns);

/// The last row of the output terminal. The rows above scroll without it, so that what comes never moves the status
/// away.
///
/// Threads: one at a time.
class StatusRow
{
public:
    /// \param aWanted  False: every call does nothing. So it is on an output that is no terminal.
    StatusRow(Screen& aScreen, bool aWanted);
    ~StatusRow() { End(); }
    StatusRow(const StatusRow&) = delete;
    StatusRow& operator=(const StatusRow&) = delete;

    /// Shows a text, ten times a second at most.
    void Show(const std::string& aText);
    /// Gives the row back.
    void End();

    /// What the terminal gets: the rows above the last become those that scroll.
    static std::string Reserve(const KyToolPlatform::Console::Size& aSize);
    /// The text in the last row; the cursor stays where it is.
    static std::string Row(const KyToolPlatform::Console::Size& aSize, const std::string& aText);
    /// All rows scroll again, and the cursor is in the last one.
    static std::string Release(const KyToolPlatform::Console::Size& aSize);

private:
    Screen& mScreen;
    bool mWanted;
    KyToolPlatform::Console::Size mSize{0, 0}; // of the terminal that was reserved
    std::string mShown{};
    KyPlatform::Deadline mNext{0}; // before it nothing is shown
};

} // namespace KySerialTool
