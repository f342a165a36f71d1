#pragma once

#include "JxUtilsLib/Export.h"
#include "JxUtilsLib/ThreadSafety.h"

#include <mutex>

namespace JxUtilsLib
{

/// A lock between the threads of one process. Not recursive.
class JX_CAPABILITY("mutex") Mutex
{
public:
    JXUTILSLIB_API Mutex() noexcept;
    JXUTILSLIB_API ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Takes the lock; blocks until it is free. The caller must not hold it already.
    JXUTILSLIB_API void Wait() noexcept JX_ACQUIRE();

    /// Gives the lock back. Only the thread that holds it.
    JXUTILSLIB_API void Release() noexcept JX_RELEASE();

private:
    friend class Condition;
    std::mutex mMutex;
};

} // namespace JxUtilsLib
