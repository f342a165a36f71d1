#include "kyserial/Terminal/StatusRow.h"

#include <optional>

namespace KySerialTool
{

using KyToolPlatform::Console;

std::string FitRow(std::string aText, size_t aColumns)
{
    // The last column is left free: some terminals wrap as soon as it is full.
    if (aColumns > 0 && aText.size() >= aColumns)
    {
        aText.resize(aColumns - 1);
    }
    return aText;
}

StatusRow::StatusRow(Screen& aScreen, bool aWanted)
    : mScreen(aScreen), mWanted(aWanted && Console::GetOutputSize().has_value())
{
}

void StatusRow::Show(const std::string& aText)
{
    constexpr uint32_t cPause = 100; // milliseconds
    // At most ten times a second: a fast port would otherwise spend its time on the row.
    if (!mWanted || aText == mShown || !mNext.IsOver())
    {
        return;
    }
    const std::optional<Console::Size> lSize = Console::GetOutputSize();
    // The window may have become too small meanwhile; with one row there is no room beside the session.
    if (!lSize.has_value() || lSize->mRows < 2)
    {
        return;
    }
    const bool lNew = lSize->mRows != mSize.mRows || lSize->mColumns != mSize.mColumns;
    mSize = *lSize;
    mShown = aText;
    mNext = KyPlatform::Deadline(cPause);
    // A broken output is found by what is shown next.
    static_cast<void>(mScreen.Print((lNew ? Reserve(mSize) : "") + Row(mSize, aText)));
}

void StatusRow::End()
{
    if (mWanted && mSize.mRows > 0)
    {
        static_cast<void>(mScreen.Print(Release(mSize))); // as in Show()
    }
    mWanted = false;
}

std::string StatusRow::Reserve(const Console::Size& aSize)
{
    // The line feed makes room when the cursor is in the last row; setting the rows moves the cursor.
    return "\n\x1B[1;" + std::to_string(aSize.mRows - 1) + "r\x1B[" + std::to_string(aSize.mRows - 1) + ";1H";
}

std::string StatusRow::Row(const Console::Size& aSize, const std::string& aText)
{
    // In two texts: in one, the digit after the escape character would become part of its hexadecimal number.
    return "\x1B"
           "7\x1B[" +
           std::to_string(aSize.mRows) + ";1H\x1B[7m" + FitRow(aText, aSize.mColumns) + "\x1B[m\x1B[K\x1B" +
           "8";
}

std::string StatusRow::Release(const Console::Size& aSize)
{
    return "\x1B[r\x1B[" + std::to_string(aSize.mRows) + ";1H\x1B[2K";
}

} // namespace KySerialTool
