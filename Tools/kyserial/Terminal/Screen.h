#pragma once

#include "kyserial/Text/Hex.h"
#include "kyserial/Text/LineEnds.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace KySerialTool
{

/// What stands before each line that a session shows.
enum class TimeStamps
{
    None,
    Utc,     ///< "[08:53:01.123] ", as the log has it.
    Elapsed, ///< "[   12.345] ", seconds since the session began.
    Step     ///< "[   +0.012] ", seconds since the line before.
};

/// "none", "utc", "elapsed" or "step".
const char* TimeStampsName(TimeStamps aStamps);
std::optional<TimeStamps> ParseTimeStamps(const std::string& aText);

/// How a session shows what comes.
struct ScreenSettings
{
    bool mHex = false;          ///< As a hexadecimal dump.
    bool mPartialLines = false; ///< A dump's line is shown when nothing more comes for a moment.
    LineEnd mLineEnd = LineEnd::AsIs;
    TimeStamps mTimeStamps = TimeStamps::None;
};

/// Forms what a session shows on the standard output.
///
/// Threads: any.
class Screen
{
public:
    using Time = std::chrono::system_clock::time_point;
    using Write = std::function<bool(const std::string&)>;

    /// \param aWrite  Takes what is to be shown; one call at a time. \return False: it is broken.
    /// \param aNow    The clock.
    Screen(Write aWrite, const ScreenSettings& aSettings,
           std::function<Time()> aNow = std::chrono::system_clock::now);

    // Each returns what aWrite returned.

    /// Shows bytes that have come; none means that nothing has come for a moment.
    bool Show(const uint8_t* aData, size_t aSize);
    /// Shows what the user has typed, with line feeds as line ends.
    bool Echo(const uint8_t* aData, size_t aSize);
    /// Shows a text as it is, which is no part of any line.
    bool Print(const std::string& aText);
    /// Shows the line that a dump has begun.
    bool Flush();

    ScreenSettings GetSettings() const;
    void Change(const ScreenSettings& aSettings);

private:
    std::string Dump(const uint8_t* aData, size_t aSize) JX_REQUIRES(mLock);
    std::string Stamped(const std::string& aText) JX_REQUIRES(mLock);
    std::string Stamp() JX_REQUIRES(mLock);

    mutable JxUtilsLib::Mutex mLock;
    const Write mWrite;
    const std::function<Time()> mNow;
    const Time mBegin;
    Time mLastLine JX_GUARDED_BY(mLock);
    ScreenSettings mSettings JX_GUARDED_BY(mLock);
    LineEndMap mLineEnds JX_GUARDED_BY(mLock);
    LineEndMap mEchoEnds JX_GUARDED_BY(mLock){LineEnd::Lf};
    HexDump mDump JX_GUARDED_BY(mLock);
    bool mLineBegins JX_GUARDED_BY(mLock) = true;
};

} // namespace KySerialTool
