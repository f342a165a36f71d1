#pragma once

#include <KySerial/KySerialPortConfiguration.h>

#include <cstdint>

/// The way of a byte through a bridge.
enum class KySerialBridgeWay
{
    ToDevice,
    FromDevice
};

/// Why a bridge has lost bytes; the members of KySerialBridgeFlow have the same names.
enum class KySerialBridgeLoss
{
    Overrun, ///< From the device: pushed out of the device port's receive buffer by newer ones.
    Cleared, ///< From the device: waited in its port when the port was opened anew.
    Refused, ///< The other side has refused them, or has not taken them in time.
    CutOff,  ///< Were on their way when the bridge was stopped.
    Away     ///< To the device: came while it was away and the bridge waited for it.
};

/// Hears what a bridge does. Derive from it and override what is of interest; see KySerialBridgeOptions.
///
/// Threads: calls come on threads of the bridge, and on the caller's during Start(), Stop(), Recover(),
/// SetSerialPortConfiguration(), ResetStatistics() and questions for the flows. Traffic of one way comes in
/// order, one call at a time; all other calls may overlap. None comes before Start() or after Stop().
///
/// What a call may do: it must not call the bridge, its device port or its adapter, and should return within
/// milliseconds. The bytes of its way wait meanwhile, and so does Stop(). An exception that leaves a call is
/// caught and dropped; the bridge goes on.
class IKySerialBridgeObserver
{
public:
    /// Bytes have passed the device port. To the device: it has taken them, in one piece; a block that goes
    /// out in several pieces is several calls. From the device: the bridge has taken them out of the port;
    /// those that the host does not take afterwards are reported as lost too.
    /// \param aTime   When: microseconds since 1970, UTC.
    /// \param aBytes  aCount bytes, at least one; valid during the call.
    virtual void NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount)
    {
        static_cast<void>(aWay);
        static_cast<void>(aTime);
        static_cast<void>(aBytes);
        static_cast<void>(aCount);
    }

    /// Bytes are lost. The sum of all calls is what KySerialBridgeFlow says.
    /// \param aBytes  How many, at least one.
    virtual void NotifyLoss(KySerialBridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes)
    {
        static_cast<void>(aWay);
        static_cast<void>(aLoss);
        static_cast<void>(aBytes);
    }

    /// The device is gone, or was gone since the last look, which comes every 50 ms. Comes once, until
    /// NotifyDeviceBack().
    virtual void NotifyDeviceGone() {}

    /// The device is back and its port works: the bridge has set it up again, or Recover() has.
    /// \param aLost  Bytes to the device that were lost meanwhile.
    virtual void NotifyDeviceBack(uint64_t aLost) { static_cast<void>(aLost); }

    /// The bridge has given the device port these line settings: at the start, when they change, and when the
    /// device is back. Single settings that the device refuses are in the log.
    virtual void NotifySettings(const KySerialPortConfiguration& aSettings) { static_cast<void>(aSettings); }

protected:
    ~IKySerialBridgeObserver() = default; // not deleted through this
};

/// Numbers the connections of a device, for adapters that connect again by themselves.
class IKyDeviceGeneration
{
public:
    /// The number of the present connection: another one each time that the device was away and is back. Any
    /// thread; must not block.
    virtual uint64_t GetGeneration() = 0;

protected:
    ~IKyDeviceGeneration() = default; // not deleted through this
};

/// What a bridge does besides relaying. Given to KySerialBridge::Start(); the objects are not owned and must
/// stay until Stop().
struct KySerialBridgeOptions
{
    /// Hears what the bridge does; null: nobody.
    IKySerialBridgeObserver* mObserver = nullptr;
    /// Goes on when the device was away and is back. Meanwhile the host side stays open, and bytes to the
    /// device are taken, dropped and counted. A thread of the bridge looks every 50 ms, and gives the device
    /// that is back its settings and its port; it tries that every 500 ms until it succeeds.
    bool mReconnect = false;
    /// Points the device's bulk selector to the port before the bridge opens it, while no other bridge of the device can move it.
    /// A start to a host side of the application always does so; the other two leave it to the application otherwise.
    bool mSelectsPort = false;
    /// Of a start to a serial port of the host: rate 0, parity -1 (as KySerialPortConfiguration::MakeInvalid() leaves them)
    /// and 0 stop bits stand for what the device has. Where it does not say, or has what no host port has, they are 9600 bit/s, no
    /// parity and one stop bit.
    bool mKeepsLine = false;
    /// Says whether the device was away between two looks; null: only an absence that lasts is noticed.
    IKyDeviceGeneration* mGeneration = nullptr;
};
