#pragma once

#include "SerialPort.h"

#include <memory>

namespace KySerialLib
{

/// The engines that have no owner any more and stay until the process ends.
///
/// An engine that is open when its owner drops it is not destroyed: its adapter goes on calling it as an
/// event sink, because neither a replaced engine nor one whose device was disconnected at close withdraws
/// itself. It keeps its claim. So at most one engine stays for each port of each device that the process has
/// ever identified. A closed engine that an I2C bus replaces on bulk port 1 to 7 stays as
/// well, one for each further Open() of the bus.
///
/// The list keeps the engines reachable, so that a leak checker in an application does not report them.
/// What stays of an engine is the object: under 1 KiB, its claim included. It ignores events without asking
/// its adapter, which may be gone by then.
class RetiredEngines
{
public:
    /// Retires an engine, open or closed. Null does nothing. Any thread.
    static void Add(std::unique_ptr<SerialPort> aEngine) noexcept;

    RetiredEngines() = default;
    RetiredEngines(const RetiredEngines&) = delete;
    RetiredEngines& operator=(const RetiredEngines&) = delete;

private:
    JxUtilsLib::Mutex mMutex;
    SerialPort* mFirst JX_GUARDED_BY(mMutex) = nullptr;
};

/// Ends the life of an engine as far as memory safety allows: deletes a closed one and retires an open one.
/// Null does nothing.
void RetireEngine(std::unique_ptr<SerialPort> aEngine) noexcept;

} // namespace KySerialLib
