#pragma once

#include "Simulator/Time/Scheduler.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KySimulator
{

/// Identifier of bulk port 0's upstream data event; bulk port n's is n more.
constexpr uint16_t cUpstreamEvent = 0x9100;

/// An event that the camera raises.
struct DeviceEvent
{
    uint16_t mId = 0;   ///< 0x9000, 0x9001: interrupt; cUpstreamEvent + n: upstream data.
    Time mTimestamp{0}; ///< Camera time.
    std::vector<uint8_t>
        mData; ///< Interrupt: status word, little-endian, then what it brings. Upstream: bytes.
};

/// Receives the camera's events.
///
/// Called without any lock of the camera, one call at a time and in the camera's order. The thread is the one that
/// made the camera act. A listener may call the camera and must not wait.
class CameraListener
{
public:
    /// An event.
    virtual void OnDeviceEvent(const DeviceEvent& aEvent) = 0;
    /// A feature has another value than before.
    virtual void OnFeatureChanged(const std::string& aName) = 0;

protected:
    CameraListener() = default;
    CameraListener(const CameraListener&) = default;
    CameraListener& operator=(const CameraListener&) = default;
    ~CameraListener() = default; // a camera never owns its listeners
};

} // namespace KySimulator
