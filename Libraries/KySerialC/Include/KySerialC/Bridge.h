#ifndef KYSERIALC_BRIDGE_H
#define KYSERIALC_BRIDGE_H

#include <KySerialC/Device.h>
#include <KySerialC/LineSettings.h>

/// \file
/// Bridges: a port of the device joined to a serial port of the host, or to Camera Link serial clients in
/// other processes. Bytes are relayed both ways on threads of the library's until the bridge is stopped.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A bridge that KyBridgeCreate() has made; 0 is no bridge. Calls on one bridge wait for each other.
    ///
    /// While it runs, the device port's mode, rate, parity and stop bits are the bridge's; stopping restores
    /// them. KY_NO_CONNECTION is the answer of every operation that needs a running bridge.
    typedef uint64_t KyBridgeHandle;

    /// Makes a stopped bridge.
    /// \param aBridge  Receives it; 0 on a failure.
    /// \return KY_OK. KY_FAILURE: out of memory.
    KYSERIALC_API KyCode KyBridgeCreate(KyBridgeHandle* aBridge);

    /// Ends a bridge, and stops it if it runs.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeDestroy(KyBridgeHandle aBridge);

    /// The way of a byte through a bridge.
    enum
    {
        KY_TO_DEVICE = 0,
        KY_FROM_DEVICE = 1
    };

    /// Why a bridge has lost bytes; the members of KyBridgeFlow say more.
    enum
    {
        KY_LOSS_OVERRUN = 0,
        KY_LOSS_CLEARED = 1,
        KY_LOSS_REFUSED = 2,
        KY_LOSS_CUT_OFF = 3,
        KY_LOSS_AWAY = 4
    };

    /// Functions that hear what a bridge does; each may be null, and gets mContext first.
    ///
    /// They are called on threads of the bridge, and on the caller's in the functions below. Traffic of one
    /// way comes in order, one call at a time; all other calls may overlap. None comes before the start or
    /// after the stop. They must not call the bridge, its device or a port of it, and should return within
    /// milliseconds: the bytes of that way wait meanwhile, and so does a stop.
    typedef struct KyBridgeObserver
    {
        uint32_t mSize;     ///< sizeof(KyBridgeObserver); another size is refused.
        uint32_t mReserved; ///< Not used.
        void* mContext;     ///< As the application likes.
        /// Bytes have passed the device port: the device has taken them, or the bridge has taken them from
        /// the port. aTime: microseconds since 1970, UTC. aBytes: valid during the call.
        void (*mTraffic)(void* aContext, int32_t aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount);
        /// Bytes are lost. aLoss: KY_LOSS_OVERRUN to KY_LOSS_AWAY.
        void (*mLoss)(void* aContext, int32_t aWay, int32_t aLoss, uint64_t aBytes);
        /// The device is gone, or was gone since the last look, which comes every 50 ms.
        void (*mDeviceGone)(void* aContext);
        /// The device is back and its port works. aLost: bytes to it that were lost meanwhile.
        void (*mDeviceBack)(void* aContext, uint64_t aLost);
        /// The bridge has given the device port these line settings, valid during the call.
        void (*mSettings)(void* aContext, const KyLineSettings* aSettings);
    } KyBridgeObserver;

    /// Sets the functions that hear what the bridge does from its next start on.
    /// \param aObserver  Copied; what its context points to must stay until the bridge is stopped. Null: none.
    /// \return KY_OK. KY_WRONG_STATE: the bridge runs. KY_BAD_PARAMETER: the size is not set.
    KYSERIALC_API KyCode KyBridgeSetObserver(KyBridgeHandle aBridge, const KyBridgeObserver* aObserver);

    /// Sets whether the bridge goes on, from its next start on, when the device was away and is back.
    ///
    /// Meanwhile the host side stays open, and bytes to the device are taken, dropped and counted (mAway). A
    /// device that is back gets its settings and its port again, tried every 500 ms.
    /// \param aReconnect   Not 0: it does.
    /// \param aGeneration  Gives the number of the device's connection, another one each time that it was away
    ///         and is back; any thread, must not block. Null: only an absence that lasts is noticed.
    /// \param aContext     Given to aGeneration; must stay until the bridge is stopped.
    /// \return KY_OK. KY_WRONG_STATE: the bridge runs.
    KYSERIALC_API KyCode KyBridgeSetReconnect(KyBridgeHandle aBridge, int32_t aReconnect,
                                              uint64_t (*aGeneration)(void* aContext), void* aContext);

    /// Starts a bridge to a serial port of the host, which gets the same line settings as the device.
    /// \param aHostPort  "COM5": COM in any case, and one or two digits. On Linux COM5 is /dev/ttyS4, and the
    ///         absolute path of a terminal device will do too.
    /// \param aSettings  Line settings; null means those of KyLineSettingsInit().
    /// \param aSerial  KY_UART0 to KY_BULK7.
    /// \return KY_OK: bytes are relayed. KY_WRONG_STATE: running already; that bridge is left alone. In all
    ///         other cases it is stopped. KY_BAD_PARAMETER: no such port, malformed name, invalid settings.
    ///         KY_NO_CONNECTION: the device is not connected. KY_UNSUPPORTED: the device does not offer the
    ///         port. KY_FAILURE: one of the two ports is in use, or refuses.
    KYSERIALC_API KyCode KyBridgeStartHost(KyBridgeHandle aBridge, const char* aHostPort,
                                           const KyLineSettings* aSettings, KyDeviceHandle aDevice,
                                           int32_t aSerial);

    /// Starts a bridge to Camera Link serial clients: a server that clients find under its name.
    /// \param aName  Unique on the machine; 255 bytes at most, not empty, not "Uninitialized". A longer name
    ///         is refused and still uses up one of the 32 places.
    /// \return As KyBridgeStartHost(); KY_FAILURE also when a server of that name runs, or 32 names are in
    ///         use. Blocks up to 5 s when another process holds the registry's lock.
    KYSERIALC_API KyCode KyBridgeStartClients(KyBridgeHandle aBridge, const char* aName,
                                              KyDeviceHandle aDevice, int32_t aSerial);

    /// What became of the bytes that a bridge has received on one way, since its start or the last
    /// KyBridgeResetStatistics(). Bytes that are neither delivered nor lost are on their way through the
    /// bridge; there are none once it has stopped.
    typedef struct KyBridgeFlow
    {
        uint32_t mSize;      ///< sizeof(KyBridgeFlow), or that without mAway; another size is refused.
        uint32_t mReserved;  ///< Not used.
        uint64_t mTaken;     ///< Bytes that the bridge has received from the sending side.
        uint64_t mDelivered; ///< Bytes that the other side has taken.
        uint64_t mOverrun;   ///< Lost: pushed out of the device port's receive buffer by newer ones.
        uint64_t mCleared;   ///< Lost: waited in the device port when KyBridgeRecover() opened it anew.
        uint64_t mRefused;   ///< Lost: the other side has refused them, or has not taken them in time.
        uint64_t mCutOff;    ///< Lost: were on their way when the bridge was stopped.
        uint64_t mAway;      ///< Lost: came while the device was away; see KyBridgeSetReconnect().
    } KyBridgeFlow;

    /// Ends the relaying: threads, host side, device port, in this order.
    ///
    /// Bytes that the bridge has received and not delivered are lost; one log line says how many.
    /// \return KY_OK. Blocks at most about 100 ms; longer only while a call of the adapter does not return.
    KYSERIALC_API KyCode KyBridgeStop(KyBridgeHandle aBridge);

    /// The same, and gives the final account.
    /// \param aToDevice,  aFromDevice  Receive what became of the bytes of each way; their sizes have to be
    /// set.
    ///         The counts are 0 when the bridge does not run.
    /// \return As KyBridgeStop(). KY_BAD_PARAMETER: null or another size; the bridge goes on.
    KYSERIALC_API KyCode KyBridgeStopAndGetFlows(KyBridgeHandle aBridge, KyBridgeFlow* aToDevice,
                                                 KyBridgeFlow* aFromDevice);

    /// Gives what became of the bytes of each way so far; 0 when stopped.
    /// \param aToDevice,  aFromDevice  Their sizes have to be set.
    /// \return KY_OK. KY_BAD_PARAMETER: null or another size.
    KYSERIALC_API KyCode KyBridgeGetFlows(KyBridgeHandle aBridge, KyBridgeFlow* aToDevice,
                                          KyBridgeFlow* aFromDevice);

    /// Closes and opens the device port again, for a device that was disconnected and is back. Bytes from the
    /// device that wait in the port are lost, and counted.
    /// \return KY_OK, also when the device port could not be opened; call it again then.
    KYSERIALC_API KyCode KyBridgeRecover(KyBridgeHandle aBridge);

    /// Changes the line settings of host and device while the bridge runs.
    /// \return KY_OK. KY_WRONG_STATE: not a bridge to a host port. KY_BAD_PARAMETER: null or not valid,
    ///         nothing was set. KY_FAILURE: the host port refuses.
    KYSERIALC_API KyCode KyBridgeSetLineSettings(KyBridgeHandle aBridge, const KyLineSettings* aSettings);

    /// \param aSettings  Receives the line settings; its size has to be set. A baud rate of 0 and a parity of
    ///         -1 when this is no bridge to a host port.
    /// \return KY_OK. KY_BAD_PARAMETER: null or another size.
    KYSERIALC_API KyCode KyBridgeGetLineSettings(KyBridgeHandle aBridge, KyLineSettings* aSettings);

    /// Offers the clients this rate only, instead of those that the device names.
    /// \param aBaudRate  9600, 19200, 38400, 57600 or 115200.
    /// \return KY_OK. KY_WRONG_STATE: not a bridge to clients. KY_BAD_PARAMETER: another rate.
    KYSERIALC_API KyCode KyBridgeSetHardCodedBaudRate(KyBridgeHandle aBridge, uint32_t aBaudRate);

    /// \param aBaudRate  Receives the rate that was set with KyBridgeSetHardCodedBaudRate(), 9600 at first; 0
    ///         when this is no bridge to clients.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeGetHardCodedBaudRate(KyBridgeHandle aBridge, uint32_t* aBaudRate);

    /// \param aCount  Receives the number of rates that the device offers and the bridge supports; 0 when
    ///         stopped.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeGetSupportedBaudRateCount(KyBridgeHandle aBridge, uint32_t* aCount);

    /// \param aBaudRate  Receives one of them, bits per second, in the device's order; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: aIndex is past the end.
    KYSERIALC_API KyCode KyBridgeGetSupportedBaudRate(KyBridgeHandle aBridge, uint32_t aIndex,
                                                      uint32_t* aBaudRate);

    /// \param aBaudRate  Receives the rate that the device was set to last; 0 when stopped.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeGetBaudRate(KyBridgeHandle aBridge, uint32_t* aBaudRate);

    /// Gives the server's name; empty when this is no bridge to clients.
    /// \param aBuffer,  aSize  See kyserial.h.
    /// \return KY_OK. KY_BUFFER_TOO_SMALL.
    KYSERIALC_API KyCode KyBridgeGetName(KyBridgeHandle aBridge, char* aBuffer, uint32_t* aSize);

    /// Gives the host port's name as it was given; empty when this is no bridge to a host port.
    /// \param aBuffer,  aSize  See kyserial.h.
    /// \return KY_OK. KY_BUFFER_TOO_SMALL.
    KYSERIALC_API KyCode KyBridgeGetHostPort(KyBridgeHandle aBridge, char* aBuffer, uint32_t* aSize);

    /// \param aSerial  Receives the bridged port of the device; KY_INVALID_PORT when stopped, and on a
    ///         failure.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeGetDevicePort(KyBridgeHandle aBridge, int32_t* aSerial);

    /// Gives the bytes that the device has taken, and those that the bridge has read from it, since the start
    /// or the last KyBridgeResetStatistics(); 0 when stopped.
    /// \param aToDevice,  aFromDevice  Either may be null.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeGetStatistics(KyBridgeHandle aBridge, uint64_t* aToDevice,
                                               uint64_t* aFromDevice);

    /// Starts counting anew.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyBridgeResetStatistics(KyBridgeHandle aBridge);

#ifdef __cplusplus
}
#endif

#endif
