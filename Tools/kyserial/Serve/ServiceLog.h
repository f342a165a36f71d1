#pragma once

#include "kyserial/Text/RotatingFile.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <chrono>
#include <optional>
#include <string>

namespace KySerialTool
{

/// How much of what happens is in the log: the more, the larger.
enum class LogLevel
{
    Error,   ///< What does not work.
    Warning, ///< What is lost, and what may be wrong.
    Information
};

/// Where the log of the service is, and how much it has.
struct ServiceLogSettings
{
    std::string mFile{}; ///< Empty: the error output.
    RotatingFile::Limit mLimit{};
    LogLevel mLevel = LogLevel::Information;

    bool operator==(const ServiceLogSettings&) const = default;
};

/// The log of the service: a file, or the error output, each line with the time (UTC) and "error: " or "warning: " where it is one.
/// The system's journal, where that is the error output, gets the level as it expects it in the place of the two, and no time.
///
/// Threads: any.
class ServiceLog
{
public:
    ServiceLog() = default;
    ServiceLog(const ServiceLog&) = delete;
    ServiceLog& operator=(const ServiceLog&) = delete;

    /// Uses other settings from now on.
    /// \return Why the file is not used, with the former settings still in use; empty: they are used.
    std::string Use(const ServiceLogSettings& aSettings);

    /// Adds a line.
    /// \param aMost  The level up to which there is a line; nothing: that of the settings.
    void Add(LogLevel aLevel, const std::string& aText, std::optional<LogLevel> aMost = {});

    /// A line as a file has it.
    static std::string Line(std::chrono::system_clock::time_point aTime, LogLevel aLevel,
                            const std::string& aText);
    /// A line as the journal expects it.
    static std::string JournalLine(LogLevel aLevel, const std::string& aText);

private:
    mutable JxUtilsLib::Mutex mLock;
    ServiceLogSettings mSettings JX_GUARDED_BY(mLock);
    RotatingFile mFile JX_GUARDED_BY(mLock);
    bool mHasFailed JX_GUARDED_BY(mLock) = false;
};

} // namespace KySerialTool
