#pragma once

#include "KyPlatform/WaitResult.h"

#include <cstdint>
#include <string>
#include <utility>

namespace KyPlatform
{

class NamedEvent;

/// A recursive lock between the processes of one machine, found by its name.
///
/// Names are "Local\" or "Session\<number>\" (see Session) and a text without slashes of either kind. The
/// lock lives while some process holds it open and is gone with the last holder, killed or not. The lock of a
/// thread that ends, or is killed, passes to the next waiter, whose wait returns WaitResult::OwnerDied.
///
/// States: closed -- Create() or Open() --> open -- Close() or destruction --> closed.
/// Threads: Wait() and Release() by any thread of an open object; the rest by one thread while nobody waits.
class NamedMutex
{
public:
    NamedMutex() noexcept = default;
    ~NamedMutex() { Close(); }
    NamedMutex(NamedMutex&& aOther) noexcept : mObject(std::exchange(aOther.mObject, nullptr)) {}
    NamedMutex& operator=(NamedMutex&& aOther) noexcept
    {
        std::swap(mObject, aOther.mObject);
        return *this;
    }
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;

    /// Opens the lock of that name, or makes it, free, when there is none. Closes first.
    /// \return False: the name is not one, or the system refused; the object is closed.
    bool Create(const std::string& aName) noexcept;

    /// Opens the lock of that name; a second opener meets the first in it. Closes first.
    /// \return False: there is none, or the system refused; the object is closed.
    bool Open(const std::string& aName) noexcept;

    /// Closes; harmless when closed. A lock that is closed while a thread of this process owns it stays owned
    /// until that thread ends.
    /// \return False: the system refused. The object is closed all the same.
    bool Close() noexcept;

    bool IsValid() const noexcept { return mObject != nullptr; }

    /// Takes the lock; the owner may take it again and gives it back as often.
    /// \param aTimeout  Milliseconds; 0 does not wait, cInfinite has no end.
    /// \return Done or OwnerDied: the caller owns it. TimedOut: another owns it. Failed: not open.
    [[nodiscard]] WaitResult Wait(uint32_t aTimeout) noexcept;

    /// Gives the lock back, by the thread that took it and through the object that took it. Does not block.
    /// \return False: the caller does not own it, or the object is closed; nothing changed.
    bool Release() noexcept;

private:
    friend class NamedEvent;
    void* mObject = nullptr; // the backend's; null: closed
};

} // namespace KyPlatform
