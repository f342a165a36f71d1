#pragma once

#include <KyBase/KyString.h>

#include <cstdint>

/// Receives what a device reports, from the adapter that it is registered with.
///
/// Binary interface: two virtual functions in this order, no destructor among them, no data.
///
/// Threads: the adapter calls on its event thread, one call at a time, while the application's threads use
/// the same port. The library's own sinks only store bytes and set events there; they call back into the
/// adapter for feature reads, so the adapter holds no lock of its own during a call.
class IKyDeviceEventSink
{
public:
    /// A device event, as a GigE Vision EVENT or EVENTDATA message carries it.
    /// \param aEventID     0x9000 and 0x9001 are the serial interrupts; others are ignored.
    /// \param aChannel     Stream channel; not looked at.
    /// \param aBlockID     Block; not looked at.
    /// \param aTimestamp   Device time in ticks; not looked at.
    /// \param aData        Payload: little-endian 32-bit words, the first being the interrupt status. May be
    ///                     null when aDataLength is 0. Belongs to the adapter and ends with the call.
    /// \param aDataLength  Payload bytes; any number.
    virtual void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                             const void* aData, uint32_t aDataLength) = 0;

    /// A feature registered with IKyDeviceAdapter::RegisterFeatureInterest() has changed. Its value, and
    /// those of the features of the same event, must be readable while the call runs; a read of an upstream
    /// buffer that fails delivers the bytes of the event before once more.
    ///
    /// While one bulk port's event is reported, the upstream lengths of the other ports must read as 0 on
    /// this thread: a sink looks at its own port's features whatever the name is, and would take the bytes of
    /// its last event again. KyUpstreamReports.h does that for a plain node map.
    ///
    /// \param aName  The feature; not null, ends with the call.
    virtual void NotifyFeatureInvalidated(const KyString* aName) = 0;

protected:
    IKyDeviceEventSink() = default;
    IKyDeviceEventSink(const IKyDeviceEventSink&) = default;
    IKyDeviceEventSink& operator=(const IKyDeviceEventSink&) = default;
    ~IKyDeviceEventSink() = default; // an adapter never owns its sinks
};
