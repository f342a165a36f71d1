#pragma once

#include "JxUtilsLib/Logger.h"

#include <atomic>
#include <cstring>

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
        mMemoryLines += std::strstr(aRecord.mMessage, "memory") != nullptr ? 1 : 0;
        mErrors += std::strstr(aRecord.mMessage, "Error writting data from") != nullptr ? 1 : 0;
    }

    /// Those that speak of memory.
    int GetMemoryLines() const { return mMemoryLines; }

    /// Those of a bridge that could not write to its device or to its clients.
    int GetErrors() const { return mErrors; }

private:
    std::atomic<int> mMemoryLines{0};
    std::atomic<int> mErrors{0};
};

} // namespace KyTest
