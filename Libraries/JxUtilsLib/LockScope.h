#pragma once

#include "JxUtilsLib/Mutex.h"

namespace JxUtilsLib
{

/// Holds a Mutex from construction to destruction.
class JX_SCOPED_CAPABILITY LockScope
{
public:
    explicit LockScope(Mutex& aMutex) noexcept JX_ACQUIRE(aMutex) : mMutex(aMutex) { mMutex.Wait(); }
    ~LockScope() JX_RELEASE() { mMutex.Release(); }
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;

private:
    Mutex& mMutex;
};

} // namespace JxUtilsLib
