#ifndef KYSERIALC_DEVICE_H
#define KYSERIALC_DEVICE_H

#include <KySerialC/Adapter.h>

/// \file
/// Devices: cameras as the ports, buses and bridges are given them, and the way in for their events.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A serial facility of the device. The two UARTs are driven through registers; bulk port n is n + 2.
    enum
    {
        KY_INVALID_PORT = -1, ///< No port; opening refuses it.
        KY_UART0 = 0,
        KY_UART1 = 1,
        KY_BULK0 = 2, ///< The only bulk port that registers may drive; else through features.
        KY_BULK1 = 3,
        KY_BULK2 = 4,
        KY_BULK3 = 5,
        KY_BULK4 = 6,
        KY_BULK5 = 7,
        KY_BULK6 = 8,
        KY_BULK7 = 9
    };

    /// Makes a device of an adapter. Nothing is asked of the adapter yet. The process's first device also has
    /// broken assertions of a debug build of the library logged as KY_LOG_FATAL, instead of ending the
    /// program.
    /// \param aAdapter  Copied; what its context points to must stay until KyDeviceDestroy().
    /// \param aDevice  Receives the device; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: null, mIsConnected missing, or a size too small to hold it.
    ///         KY_FAILURE: out of memory.
    KYSERIALC_API KyCode KyDeviceCreate(const KyAdapter* aAdapter, KyDeviceHandle* aDevice);

    /// Ends a device: when it returns KY_OK no function of the adapter runs any more, except the one it is
    /// called from, and none will. Waits for events that are being reported by other threads.
    /// \return KY_OK. KY_WRONG_STATE: a port, bus or bridge has it open, or another thread is asking it;
    ///         nothing has changed then.
    KYSERIALC_API KyCode KyDeviceDestroy(KyDeviceHandle aDevice);

    /// Whether the camera can be reached now: what the adapter's mIsConnected answers. A camera may have been away and
    /// back between two questions.
    /// \param aIsConnected  Receives 1 or 0.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYSERIALC_API KyCode KyDeviceIsConnected(KyDeviceHandle aDevice, int32_t* aIsConnected);

    /// Reports a device event, as a GigE Vision EVENT or EVENTDATA message carries it. The application calls
    /// this when the camera has raised it, without holding a lock that the adapter's functions take: they may
    /// be called meanwhile. Reports of several threads come one after the other.
    /// \param aEventID  0x9000 and 0x9001 are the serial interrupts; others are ignored.
    /// \param aChannel  Stream channel; not looked at.
    /// \param aBlockID  Block; not looked at.
    /// \param aTimestamp  Device time in ticks; not looked at.
    /// \param aData  Payload: little-endian 32-bit words, the first being the interrupt status. May be null
    ///         when aDataLength is 0.
    /// \param aDataLength  Payload bytes; any number.
    /// \return KY_OK, also when nobody listens. KY_WRONG_STATE: called from inside another report on this
    ///         thread.
    KYSERIALC_API KyCode KyDeviceNotifyEvent(KyDeviceHandle aDevice, uint16_t aEventID, uint16_t aChannel,
                                             uint64_t aBlockID, uint64_t aTimestamp, const void* aData,
                                             uint32_t aDataLength);

    /// Reports that a feature has changed which mRegisterFeatureInterest named. Its value, and those of the
    /// features of the same event, must be readable while the call runs; a read of an upstream buffer that
    /// fails delivers the bytes of the event before once more. The upstream lengths of other bulk ports count
    /// as 0 meanwhile, and mGetIntegerValue is not asked for them: a node map may keep what their last events
    /// brought. Otherwise as KyDeviceNotifyEvent().
    /// \param aName  Not null.
    KYSERIALC_API KyCode KyDeviceNotifyFeatureInvalidated(KyDeviceHandle aDevice, const char* aName);

    /// Reads a feature of the camera as text, the way the library does.
    /// \param aBuffer,  aSize  See kyserial.h.
    /// \return KY_OK; KY_BUFFER_TOO_SMALL; the adapter's codes.
    KYSERIALC_API KyCode KyDeviceGetFeature(KyDeviceHandle aDevice, const char* aName, char* aBuffer,
                                            uint32_t* aSize);

    /// Writes a feature of the camera: the mode of a port ("BulkMode") for example, which ports and buses
    /// leave as it is.
    /// \param aValue  Not null.
    /// \return KY_OK, or the adapter's codes.
    KYSERIALC_API KyCode KyDeviceSetFeature(KyDeviceHandle aDevice, const char* aName, const char* aValue);

#ifdef __cplusplus
}
#endif

#endif
