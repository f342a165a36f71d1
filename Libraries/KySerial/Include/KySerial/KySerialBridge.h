#pragma once

#include <KyBase/KyResult.h>
#include <KyBase/KyString.h>
#include <KySerial/Export.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/IKySerialBridgeHost.h>
#include <KySerial/IKySerialBridgeObserver.h>
#include <KySerial/KySerialPortConfiguration.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>

namespace KySerialLib
{
class Bridge;
} // namespace KySerialLib

/// What became of the bytes that a bridge has received on one way, since its start or the last
/// ResetStatistics(). Bytes that are neither delivered nor lost are on their way through the bridge; there
/// are none once it has stopped.
struct KySerialBridgeFlow
{
    uint64_t mTaken = 0;     ///< Bytes that the bridge has received from the sending side.
    uint64_t mDelivered = 0; ///< Bytes that the other side has taken.
    uint64_t mOverrun = 0;   ///< Lost: pushed out of the device port's receive buffer by newer ones.
    uint64_t mCleared = 0;   ///< Lost: waited in the device port when Recover() opened it anew.
    uint64_t mRefused = 0;   ///< Lost: the other side has refused them, or has not taken them in time.
    uint64_t mCutOff = 0;    ///< Lost: were on their way when the bridge was stopped.
    uint64_t mAway = 0; ///< Lost: came while the device was away, with KySerialBridgeOptions::mReconnect.
};

/// Joins a serial port of the device to a serial port of the host, or to Camera Link serial clients in other
/// processes, and relays bytes both ways on threads of its own until it is stopped. Example:
/// Examples/SerialBridge.cpp.
///
/// Which of the two it is follows from the Start() that is called. While it runs, the device port's mode,
/// rate, parity and stop bits are the bridge's; Stop() restores what they were.
///
/// States: stopped -- Start() that succeeds --> running -- Stop() --> stopped. Destroying a running bridge
/// stops it. The adapter must stay alive, and should stay connected, from Start() to Stop(). After a
/// disconnection Recover() makes the bridge work again; with KySerialBridgeOptions::mReconnect the bridge
/// does that itself. An observer in the same options hears what the bridge does.
///
/// Results of every operation: NO_CONNECTION "Bridge not started." where a running bridge is needed; FAILURE
/// "Out of memory.". Further ones stand at the operations. Failures are logged under "KySerialLib". Bytes
/// that cannot be relayed are logged, counted and dropped; the bridge goes on.
///
/// Threads: Start(), Stop() and the destructor by one thread at a time, with no other call running.
/// Everything else by any thread; SetSerialPortConfiguration() and SetHardCodedBaudRate() by one at a time.
class KYSERIAL_API KySerialBridge
{
public:
    KySerialBridge();
    ~KySerialBridge();
    KySerialBridge(const KySerialBridge&) = delete;
    KySerialBridge& operator=(const KySerialBridge&) = delete;

    /// Starts a bridge to a serial port of the host.
    ///
    /// Host and device get the same line settings. Bytes from the host go to the device once its line has
    /// been quiet for 10 ms, or 16384 of them are there: under traffic without pauses every 1.4 s at 115200
    /// bit/s.
    /// \param aSerialPort     "COM5": COM in any case, and one or two digits. On Linux COM5 is /dev/ttyS4;
    ///                        the absolute path of a terminal device will do too. A Linux device that
    ///                        vanishes is opened again when it is back under that path.
    /// \param aConfiguration  Line settings.
    /// \param aDevice         The adapter of a connected device, not owned.
    /// \param aDevicePort     The device's port; KyDeviceSerialInvalid is refused.
    /// \return OK: bytes are relayed.
    ///         WRONG_STATE: running already; that bridge is left alone. In all other cases the bridge is
    ///         stopped.
    ///         BAD_PARAMETER: null adapter, no such port, malformed name, invalid settings.
    ///         NO_CONNECTION: the device is not connected.
    ///         UNSUPPORTED: the device does not offer the port.
    ///         FAILURE: the device port or the host port is in use, or refuses.
    /// Blocks for the adapter's accesses.
    KyResult Start(const KyString& aSerialPort, KySerialPortConfiguration aConfiguration,
                   IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort);

    /// Starts a bridge to Camera Link serial clients: a server that clients find under its name.
    /// \param aName        Name of the server, unique on the machine; 255 bytes at most, not empty. The
    /// registry
    ///                     has no room for a longer one: that start fails and still uses up one of the 32
    ///                     places. "Uninitialized" is what the registry calls an empty place: do not use it.
    /// \param aDevice      The adapter of a connected device, not owned.
    /// \param aDevicePort  The device's port. KyDeviceSerialInvalid is UNSUPPORTED here.
    /// \return As the other Start(); FAILURE also when a server of that name runs, or 32 names are in use.
    /// Blocks for the adapter's accesses, and up to 5 s when another process holds the registry's lock.
    KyResult Start(const KyString& aName, IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort);

    /// The same two, for a bridge that has an observer, or that goes on when the device was away.
    /// \param aOptions  Copied; what it points to must stay until Stop().
    /// \return As above; FAILURE also when the thread that looks for the device cannot be started.
    KyResult Start(const KyString& aSerialPort, KySerialPortConfiguration aConfiguration,
                   IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                   const KySerialBridgeOptions& aOptions);
    KyResult Start(const KyString& aName, IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                   const KySerialBridgeOptions& aOptions);

    /// Starts a bridge to a host side that the application brings.
    ///
    /// The device port keeps the settings that it has, apart from what is requested here and, while the bridge runs,
    /// by the host side. A bulk port runs as UART.
    /// \param aHost     Open, not owned; must stay until Stop(), which does not close it.
    /// \param aRequest  What the device port gets at the start.
    /// \param aOptions  Copied; what it points to must stay until Stop().
    /// \return As the first Start(); the host side is not asked, so no failure is its own.
    KyResult Start(IKySerialBridgeHost& aHost, const KySerialBridgeRequest& aRequest,
                   IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                   const KySerialBridgeOptions& aOptions = KySerialBridgeOptions());

    /// Ends the bridge: threads, host side, device port, in this order. The device gets its settings back
    /// before the device port is closed.
    ///
    /// Bytes that the bridge has received and not delivered are lost; one log line says how many. A write to
    /// the device ends between two bytes, chunks or messages.
    /// \return OK.
    /// Blocks until the threads have ended, at most about 100 ms; longer only while a call of the adapter
    /// does not return.
    KyResult Stop();

    /// The same, and gives the final account.
    /// \param aToDevice    Receives what became of the bytes to the device; zeros when stopped already.
    /// \param aFromDevice  Receives what became of the bytes from the device; zeros when stopped already.
    /// \return As Stop().
    KyResult Stop(KySerialBridgeFlow& aToDevice, KySerialBridgeFlow& aFromDevice);

    /// Closes and opens the device port again, for a device that was disconnected and is back.
    ///
    /// Bytes from the device that wait in the port are lost, and counted. A block to the device that is under
    /// way goes on in the new port. The port's receive buffer has 16384 bytes from then on, not 65536.
    /// \return OK, also when the device port could not be opened; call it again then.
    /// Blocks until the threads have left the device port, and for the adapter's accesses.
    KyResult Recover();

    /// Changes the line settings of host and device while the bridge runs.
    /// \return OK.
    ///         WRONG_STATE: not a bridge to a host port.
    ///         BAD_PARAMETER: not valid, nothing was set.
    ///         FAILURE: the host port refuses.
    KyResult SetSerialPortConfiguration(KySerialPortConfiguration aConfiguration);

    /// Offers the clients this rate only, instead of those that the device names.
    /// \param aBaudRate  9600, 19200, 38400, 57600 or 115200.
    /// \return OK.
    ///         WRONG_STATE: not a bridge to clients.
    ///         BAD_PARAMETER: another rate.
    KyResult SetHardCodedBaudRate(uint32_t aBaudRate);

    /// Number of rates that the device offers and the bridge supports; 0 when stopped.
    uint32_t GetSupportedBaudRateCount() const;

    /// One of them, bits per second, in the device's order; 0 when stopped.
    /// \param aIndex  Past the end it is a broken assertion in a debug build, and 0.
    uint32_t GetSupportedBaudRate(uint32_t aIndex) const;

    /// The rate that the device was set to last; while it was not, the configuration's or the hard-coded one.
    /// 0 when stopped.
    uint32_t GetBaudRate() const;

    /// The rate that SetHardCodedBaudRate() set, 9600 at first; 0 when this is no bridge to clients.
    uint32_t GetHardCodedBaudRate() const;

    /// The server's name; empty when this is no bridge to clients.
    KyString GetName() const;

    /// The host port's name as it was given; empty when this is no bridge to a host port.
    KyString GetSerialPort() const;

    /// The bridged port of the device; KyDeviceSerialInvalid when stopped.
    KyDeviceSerial GetDevicePort() const;

    /// The line settings; an invalid configuration when this is no bridge to a host port.
    KySerialPortConfiguration GetSerialPortConfiguration() const;

    /// Bytes that the device has taken, and bytes that the bridge has read from it, since the start or the
    /// last ResetStatistics(); 0 when stopped.
    uint64_t GetBytesSentToDevice() const;
    uint64_t GetBytesReceivedFromDevice() const;

    /// What became of every byte to the device, or from it; zeros when stopped. Blocks while Recover() runs.
    KySerialBridgeFlow GetFlowToDevice() const;
    KySerialBridgeFlow GetFlowFromDevice() const;

    /// Starts counting anew.
    void ResetStatistics();

private:
    KySerialLib::Bridge* mThis; // null: stopped
};
