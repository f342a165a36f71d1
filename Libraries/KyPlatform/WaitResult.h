#pragma once

#include <cstdint>

namespace KyPlatform
{

/// Time-out of every wait here that never ends.
inline constexpr uint32_t cInfinite = 0xFFFFFFFFU;

/// How a wait ended.
enum class WaitResult
{
    Done,      ///< The event was set; the lock is the caller's.
    OwnerDied, ///< The lock is the caller's, and its last owner ended without giving it back: what it guards
               ///< may be half changed. The next wait does not say so again.
    TimedOut,  ///< The time passed first. Nothing was taken.
    Failed     ///< The object is not open or the system refused. Nothing was taken.
};

/// Whether the wait left the caller with the lock.
inline constexpr bool IsOwned(WaitResult aResult) noexcept
{
    return aResult == WaitResult::Done || aResult == WaitResult::OwnerDied;
}

} // namespace KyPlatform
