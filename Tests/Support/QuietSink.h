#pragma once

#include "JxUtilsLib/Logger.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

namespace KyTest
{

/// Takes log lines of every priority without memory of its own, and counts some of them.
class QuietSink final : public JxUtilsLib::LogSink
{
public:
    QuietSink()
    {
        JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityDebug);
        JxUtilsLib::Logger::SetSink(this);
    }
    ~QuietSink()
    {
        JxUtilsLib::Logger::SetSink(nullptr);
        JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityWarning);
    }
    void Write(const JxUtilsLib::LogRecord& aRecord) override
    {
        if (std::strstr(aRecord.mMessage, "memory") != nullptr)
        {
            ++mMemoryLines;
            const std::lock_guard<std::mutex> lLock(mMutex);
            std::snprintf(mMemoryLine.data(), mMemoryLine.size(), "%s", aRecord.mMessage);
        }
        mErrors += std::strstr(aRecord.mMessage, "Error writting data from") != nullptr ? 1 : 0;
    }

    /// Those that speak of memory.
    int GetMemoryLines() const { return mMemoryLines; }

    /// The last of them, and forgets it and their number.
    std::string TakeMemoryLine()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        mMemoryLines = 0;
        std::string lLine = mMemoryLine.data();
        mMemoryLine.fill('\0');
        return lLine;
    }

    /// Those of a bridge that could not write to its device or to its clients.
    int GetErrors() const { return mErrors; }

private:
    std::atomic<int> mMemoryLines{0};
    std::atomic<int> mErrors{0};
    std::mutex mMutex;
    std::array<char, 512> mMemoryLine{};
};

} // namespace KyTest
