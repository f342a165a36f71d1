#pragma once

#include "JxUtilsLib/Logger.h"

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace KyTest
{

/// A log line as a test compares it: file and line left out.
struct LogLine
{
    JxUtilsLib::PriorityLevel mPriority;
    std::string mFunction;
    std::string mMessage;

    bool operator==(const LogLine& aOther) const
    {
        return mPriority == aOther.mPriority && mFunction == aOther.mFunction && mMessage == aOther.mMessage;
    }
};

inline std::ostream& operator<<(std::ostream& aStream, const LogLine& aLine)
{
    return aStream << static_cast<int>(aLine.mPriority) << ' ' << aLine.mFunction << " \"" << aLine.mMessage
                   << '"';
}

/// Records every log line of the process from construction to destruction, all priorities enabled unless asked
/// otherwise; restores the default sink and level.
class RecordingLogSink : public JxUtilsLib::LogSink
{
public:
    explicit RecordingLogSink(JxUtilsLib::PriorityLevel aPriority = JxUtilsLib::PriorityDebug)
    {
        JxUtilsLib::Logger::SetPriority(aPriority);
        JxUtilsLib::Logger::SetSink(this);
    }
    virtual ~RecordingLogSink()
    {
        JxUtilsLib::Logger::SetSink(nullptr);
        JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityWarning);
    }
    RecordingLogSink(const RecordingLogSink&) = delete;
    RecordingLogSink& operator=(const RecordingLogSink&) = delete;

    void Write(const JxUtilsLib::LogRecord& aRecord) override
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        mLines.push_back({aRecord.mPriority, aRecord.mFunction, aRecord.mMessage});
        mCategories.emplace_back(aRecord.mCategory);
        mFiles.emplace_back(aRecord.mFile);
        mPlaces.emplace_back(std::string(aRecord.mFile) + ':' + std::to_string(aRecord.mLine));
    }

    /// The lines so far; forgets them.
    std::vector<LogLine> Take()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        std::vector<LogLine> lLines;
        lLines.swap(mLines);
        mCategories.clear();
        mFiles.clear();
        mPlaces.clear();
        return lLines;
    }

    std::vector<std::string> GetCategories()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        return mCategories;
    }
    std::vector<std::string> GetFiles()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        return mFiles;
    }
    /// "file:line" of each line.
    std::vector<std::string> GetPlaces()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        return mPlaces;
    }

private:
    std::mutex mMutex;
    std::vector<LogLine> mLines;
    std::vector<std::string> mCategories;
    std::vector<std::string> mFiles;
    std::vector<std::string> mPlaces;
};

} // namespace KyTest
