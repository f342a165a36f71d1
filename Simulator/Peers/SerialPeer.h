#pragma once

#include "Simulator/Time/Scheduler.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace KySimulator
{

/// The camera's end of a line, as the peer on it sees it. Works until the peer is unplugged or the camera is
/// gone; after that nothing happens.
class SerialLine
{
public:
    virtual ~SerialLine() = default;

    /// Puts bytes on the line to the camera, where they arrive at the line's speed, after what is on the
    /// line already. Any thread, also from inside SerialPeer's functions.
    /// \param aData   May be null when aSize is 0. Copied.
    /// \param aSize   Bytes.
    /// \param aDelay  Time before the first of them begins.
    virtual void Send(const uint8_t* aData, size_t aSize, Time aDelay = Time(0)) = 0;

    /// The camera's time.
    virtual Time Now() const = 0;

protected:
    SerialLine() = default;
    SerialLine(const SerialLine&) = default;
    SerialLine& operator=(const SerialLine&) = default;
};

/// What hangs on the line of a UART, or of a bulk port in UART or USRT mode: CameraModel::Plug().
///
/// Called without any lock of the camera, one call at a time per peer as long as it is plugged in once.
class SerialPeer
{
public:
    virtual ~SerialPeer() = default;

    /// The peer has been plugged in. Comes before every OnReceived().
    /// \param aLine  The way back; never null. May be kept.
    virtual void OnPlugged(const std::shared_ptr<SerialLine>& aLine) = 0;

    /// Bytes that came out of the camera.
    virtual void OnReceived(const uint8_t* aData, size_t aSize) = 0;

    /// The peer has been unplugged: what it sends from now on is lost. Not called when the camera goes.
    virtual void OnUnplugged() = 0;

protected:
    SerialPeer() = default;
    SerialPeer(const SerialPeer&) = default;
    SerialPeer& operator=(const SerialPeer&) = default;
};

} // namespace KySimulator
