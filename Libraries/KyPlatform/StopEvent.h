#pragma once

#include "KyPlatform/WaitResult.h"

#include <cstdint>
#include <utility>

namespace KyPlatform
{

/// A manual-reset signal inside one process that ends waits, those of HostSerialPort too. Once set it stays
/// so.
///
/// States: closed -- Create() --> unset -- Set() --> set; Create() starts anew.
/// Threads: Set() and Wait() by any thread of an open object; the rest by one thread while nobody waits.
class StopEvent
{
public:
    StopEvent() noexcept = default;
    ~StopEvent() { Close(); }
    StopEvent(const StopEvent&) = delete;
    StopEvent& operator=(const StopEvent&) = delete;

    /// Makes the event, unset. Closes first.
    /// \return False: the system refused; the object is closed.
    bool Create() noexcept;

    /// Closes; harmless when closed.
    void Close() noexcept;

    bool IsValid() const noexcept { return mObject != nullptr; }

    /// Sets the event and ends every wait for it. Does not block.
    /// \return False: the object is closed or the system refused.
    bool Set() noexcept;

    /// Waits until the event is set.
    /// \param aTimeout  Milliseconds; 0 only looks, cInfinite has no end.
    /// \return Done, TimedOut or Failed.
    [[nodiscard]] WaitResult Wait(uint32_t aTimeout) noexcept;

    /// The backend's object, for what waits for the event together with something else; null: closed.
    void* GetHandle() const noexcept { return mObject; }

private:
    void* mObject = nullptr; // the backend's; null: closed
};

} // namespace KyPlatform
