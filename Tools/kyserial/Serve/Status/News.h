#pragma once

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <chrono>
#include <string>

namespace KySerialTool
{

/// Something that may happen a thousand times a second, and that a log has once: when it begins.
///
/// Threads: any.
class News
{
public:
    using Clock = std::chrono::steady_clock;

    /// After so long without it, it begins anew.
    static constexpr std::chrono::seconds cPause{10};

    /// It happens.
    void Add(const std::string& aText, Clock::time_point aNow = Clock::now());

    /// Takes the text that the log is to have. Empty: nothing has begun since the last call.
    std::string Take();

private:
    JxUtilsLib::Mutex mLock;
    std::string mText JX_GUARDED_BY(mLock);
    Clock::time_point mLast JX_GUARDED_BY(mLock);
    bool mHasHappened JX_GUARDED_BY(mLock) = false;
};

} // namespace KySerialTool
