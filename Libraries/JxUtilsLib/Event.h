#pragma once

#include "JxUtilsLib/Export.h"

#include <atomic>
#include <cstdint>

namespace JxUtilsLib
{

/// A signal between the threads of one process. Starts unset.
///
/// States: unset -- Set() --> set -- Reset(), or a waiter that gets through an auto-reset event --> unset.
class Event
{
public:
    /// Time-out of Wait_ms() that never ends.
    static constexpr uint32_t cInfinite = 0xFFFFFFFFU;

    /// \param aManualReset  True: the event stays set until Reset(), and every waiter gets through. False: it
    ///                      lets one waiter through and resets itself with that.
    JXUTILSLIB_API explicit Event(bool aManualReset);
    JXUTILSLIB_API ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Signals. Signalling an event that is set changes nothing. Any thread; does not block.
    JXUTILSLIB_API void Set() noexcept;

    /// The first half of Set(): sets the event and leaves sleeping waiters asleep. A caller that holds a lock
    /// uses it when a waiter takes that lock next: a waiter woken under the lock would only fall asleep at it.
    /// Any thread; does not block.
    /// \return Whether the caller has to call Wake(), after it has given the lock back.
    [[nodiscard]] JXUTILSLIB_API bool Raise() noexcept;

    /// The second half of Set(): wakes sleeping waiters. The event must still exist. Any thread; does not block.
    JXUTILSLIB_API void Wake() noexcept;

    /// Takes the signal back. Any thread; does not block.
    JXUTILSLIB_API void Reset() noexcept;

    /// Waits for the signal.
    /// \param aTimeout  Milliseconds on a clock that nobody sets; 0 only looks, 0xFFFFFFFF waits for ever.
    /// \return True when the event was set, false after the time-out. Any number of threads may wait.
    JXUTILSLIB_API bool Wait_ms(uint32_t aTimeout) noexcept; // NOLINT(readability-identifier-naming)

private:
    bool Take() noexcept;

    const bool mManualReset;
    std::atomic<uint32_t> mWord{0};
    std::atomic<uint64_t> mSpin{0}; // of AdaptiveSpin()
};

} // namespace JxUtilsLib
