#include "kyserial/Serve/ServiceLog.h"

#include "CommandLine/PlainText.h"
#include "kyserial/Terminal/TrafficLog.h"
#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>
#include <Platform/StandardStreams.h>

#include <cstdio>
#include <utility>

namespace KySerialTool
{

std::string ServiceLog::Use(const ServiceLogSettings& aSettings)
{
    const JxUtilsLib::LockScope lScope(mLock);
    const bool lIsSameFile = aSettings.mFile == mSettings.mFile && aSettings.mLimit == mSettings.mLimit;
    if (!lIsSameFile)
    {
        // Opened beside the present one: when the new file cannot be had, the log stays where it is.
        RotatingFile lFile;
        if (!aSettings.mFile.empty())
        {
            if (std::string lFault = lFile.Open(aSettings.mFile, aSettings.mLimit); !lFault.empty())
            {
                return lFault;
            }
        }
        mFile = std::move(lFile);
        mHasFailed = false;
    }
    mSettings = aSettings;
    return {};
}

// A file that takes no more, as on a full disk, is said where the lines would be without one, and so are the lines from then on.
void ServiceLog::Add(LogLevel aLevel, const std::string& aText, std::optional<LogLevel> aMost)
{
    const std::string lText = KyCommandLine::Escaped(aText); // a device's name cannot fake a line
    const JxUtilsLib::LockScope lScope(mLock);
    if (aLevel > aMost.value_or(mSettings.mLevel))
    {
        return;
    }
    const auto lNow = std::chrono::system_clock::now();
    if (!mSettings.mFile.empty() && !mHasFailed)
    {
        static_cast<void>(
            mFile.Write(Line(lNow, aLevel, lText))); // whether a new file has begun is no matter
        mHasFailed = !mFile.GetFailure().empty();
        if (!mHasFailed)
        {
            return;
        }
        PrintError("log: " + mFile.GetFailure());
    }
    static const bool cIsJournal = KyToolPlatform::StandardStreams::IsErrorJournal();
    std::fputs((cIsJournal ? JournalLine(aLevel, lText) : Line(lNow, aLevel, lText)).c_str(), stderr);
    std::fflush(stderr);
}

std::string ServiceLog::Line(std::chrono::system_clock::time_point aTime, LogLevel aLevel,
                             const std::string& aText)
{
    const char* const lWord = aLevel == LogLevel::Error     ? "error: "
                              : aLevel == LogLevel::Warning ? "warning: "
                                                            : "";
    return TimeText(aTime) + ' ' + lWord + aText + '\n';
}

// The numbers are those of syslog.
std::string ServiceLog::JournalLine(LogLevel aLevel, const std::string& aText)
{
    // Without a time: the journal has its own for each line.
    const char* const lNumber = aLevel == LogLevel::Error     ? "<3>"
                                : aLevel == LogLevel::Warning ? "<4>"
                                                              : "<6>";
    return lNumber + aText + '\n';
}

} // namespace KySerialTool
