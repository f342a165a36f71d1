#pragma once

#include "KyPlatform/NamedMutex.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace KyPlatform
{

/// A manual-reset signal between the processes of one machine. Starts unset.
///
/// Names and life as NamedMutex; an event stays as it is when the process that set it ends.
///
/// Setting has two halves, so that a caller who holds a lock can make the event true under the lock and wake
/// the sleepers after it: Raise() sets, and says whether Wake() is still needed. Where the system does both
/// at once Raise() never asks for it. A caller killed between the two leaves an event that is set: sleepers
/// look at it again at least every cLookAgain milliseconds, so they are late but not lost.
///
/// Threads: as NamedMutex; Set(), Raise(), Wake(), Reset() and the waits by any thread of an open object.
class NamedEvent
{
public:
    /// Milliseconds after which a sleeper looks at the event by itself.
    static constexpr uint32_t cLookAgain = 50;

    NamedEvent() noexcept = default;
    ~NamedEvent() { Close(); }
    NamedEvent(NamedEvent&& aOther) noexcept : mObject(std::exchange(aOther.mObject, nullptr)) {}
    NamedEvent& operator=(NamedEvent&& aOther) noexcept
    {
        std::swap(mObject, aOther.mObject);
        return *this;
    }
    NamedEvent(const NamedEvent&) = delete;
    NamedEvent& operator=(const NamedEvent&) = delete;

    /// Opens the event of that name, or makes it, unset, when there is none. Closes first.
    /// \return False: the name is not one, or the system refused; the object is closed.
    bool Create(const std::string& aName) noexcept;

    /// Opens the event of that name. Closes first.
    /// \return False: there is none, or the system refused; the object is closed.
    bool Open(const std::string& aName) noexcept;

    /// Closes; harmless when closed. No thread of this process may be waiting.
    /// \return False: the system refused. The object is closed all the same.
    bool Close() noexcept;

    bool IsValid() const noexcept { return mObject != nullptr; }

    /// Sets the event and wakes all waiters. Does not block.
    /// \return False: the object is closed or the system refused.
    bool Set() noexcept;

    /// Sets the event. Does not block.
    /// \param aWake  Receives whether somebody may be asleep, so that the caller has to call Wake(); false on
    ///               failure.
    /// \return False: the object is closed or the system refused.
    bool Raise(bool& aWake) noexcept;

    /// The second half of a Raise(): wakes all waiters. A waiter that finds the event unset goes back to sleep.
    /// \return False: the object is closed or the system refused.
    bool Wake() noexcept;

    /// Takes the signal back. Does not block; a waiter that a Set() has already let through is not held up.
    /// \return False: the object is closed or the system refused.
    bool Reset() noexcept;

    /// Waits until the event is set. Any number of threads and processes may wait; it stays set.
    /// \param aTimeout  Milliseconds; 0 only looks, cInfinite has no end.
    /// \return Done, TimedOut or Failed.
    [[nodiscard]] WaitResult Wait(uint32_t aTimeout) noexcept;

    /// Waits until the event is set, then takes a lock; in one call to the system where that can be.
    /// \param aMutex        The lock; the caller does not own it.
    /// \param aTimeout      Milliseconds for the event, as in Wait().
    /// \param aLockTimeout  Milliseconds for the lock, from the moment when the event was found set.
    /// \return Done or OwnerDied: the caller owns the lock. TimedOut: the event was not set in time.
    ///         Failed: the lock was not to be had, or either object is closed.
    [[nodiscard]] WaitResult WaitThenLock(NamedMutex& aMutex, uint32_t aTimeout,
                                          uint32_t aLockTimeout) noexcept;

private:
    void* mObject = nullptr; // the backend's; null: closed
    std::atomic<uint64_t> mSpin{
        0}; // of AdaptiveSpin(); unused where a look at the event is a call into the system
};

} // namespace KyPlatform
