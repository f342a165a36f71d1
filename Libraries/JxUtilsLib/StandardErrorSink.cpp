#include "JxUtilsLib/StandardErrorSink.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace JxUtilsLib
{

namespace
{

const char* PriorityName(PriorityLevel aPriority)
{
    struct Name
    {
        PriorityLevel mAtLeast;
        const char* mText;
    };
    static constexpr Name cNames[] = {{PriorityFatal, "FATAL"},
                                      {PriorityError, "ERROR"},
                                      {PriorityWarning, "WARN"},
                                      {PriorityInfo, "INFO"}};
    for (const Name& lName : cNames)
    {
        if (aPriority >= lName.mAtLeast)
        {
            return lName.mText;
        }
    }
    return "DEBUG";
}

} // namespace

std::string StandardErrorSink::Format(const LogRecord& aRecord, int64_t aTimeMs)
{
    char lTime[32] = "";
    const std::time_t lSeconds = static_cast<std::time_t>(aTimeMs / 1000);
    // localtime() shares one buffer; sinks are called one at a time.
    if (const std::tm* const lLocal = std::localtime(&lSeconds)) // NOLINT(concurrency-mt-unsafe)
    {
        std::strftime(lTime, sizeof(lTime), "%Y-%m-%d %H:%M:%S", lLocal);
    }
    char lHead[64];
    std::snprintf(lHead, sizeof(lHead), "%s.%03d %-5s ", lTime, static_cast<int>(aTimeMs % 1000),
                  PriorityName(aRecord.mPriority));
    return std::string(lHead) + aRecord.mCategory + ' ' + aRecord.mFunction + ": " + aRecord.mMessage;
}

void StandardErrorSink::Write(const LogRecord& aRecord)
{
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    const int64_t lNowMs = std::chrono::duration_cast<std::chrono::milliseconds>(lNow).count();
    const std::string lLine = Format(aRecord, lNowMs) + '\n';
    // One call, so that lines of several processes on one terminal do not mix.
    std::fwrite(lLine.data(), 1, lLine.size(), stderr);
}

} // namespace JxUtilsLib
