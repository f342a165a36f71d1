#pragma once

#include <JxUtilsLib/Logger.h>
#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <string>

namespace KySerialTool
{

/// Hears, while it lives, what the library logs about shared memory that it cannot use. The result of a start
/// that fails for that names only the likely reason, another server. One at a time.
///
/// Does nothing where the user has asked for the library's errors, whose lines say it already.
class StartReason final : public JxUtilsLib::LogSink
{
public:
    StartReason();
    ~StartReason();
    StartReason(const StartReason&) = delete;
    StartReason& operator=(const StartReason&) = delete;

    void Write(const JxUtilsLib::LogRecord& aRecord) override;

    /// " (The registry of servers ...)" as an addition to the result; empty without such a log line.
    std::string Text();

private:
    const JxUtilsLib::PriorityLevel mWanted;
    JxUtilsLib::Mutex mLock;
    std::string mText JX_GUARDED_BY(mLock);
};

} // namespace KySerialTool
