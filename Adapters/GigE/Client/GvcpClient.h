#pragma once

#include "Adapters/GigE/Client/ControlChannel.h"
#include "Adapters/GigE/Client/FindInterface.h"
#include "Adapters/GigE/Client/MessageChannel.h"

#include <JxUtilsLib/Condition.h>
#include <KyGigE/ConnectionOptions.h>
#include <KyGigE/DeviceAddress.h>
#include <KyGigE/DeviceInformation.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

namespace KyGigE
{

/// A connection to a device: control, its events, and the signs of life that keep both.
///
/// When the device does not answer any more, or gives control to somebody else, the connection is lost: every
/// operation returns NO_CONNECTION at once, and a thread of the client tries to connect again, to the same
/// device only. The message channel is set up again then; what else was written to the device is not. Each
/// connection has a number of its own, so that a new one is not taken for the old one.
///
/// Threads: Open() and Close() by one; the rest by any.
class GvcpClient
{
public:
    /// What an owner does with a device that has just been connected, before anybody else may use it.
    using Preparation = std::function<KyResult()>;

    GvcpClient(const DeviceAddress& aAddress, const ConnectionOptions& aOptions);
    ~GvcpClient() { Close(); }
    GvcpClient(const GvcpClient&) = delete;
    GvcpClient& operator=(const GvcpClient&) = delete;

    /// Connects. \param aEvents  Hears the device's events, on the thread of the message channel.
    /// \param aPrepare  Called here and at each new connection, on the thread that connects.
    /// \return FAILURE: no such interface, several devices of that address, or the system refused;
    ///         NO_CONNECTION: the system knows no such host, nobody answers, or it was cancelled; TIMED_OUT: not within the limit; 0x8006:
    ///         another application controls the device; what the device or aPrepare answered. The device is
    ///         given back on a failure.
    KyResult Open(MessageChannel::EventHandler aEvents, Preparation aPrepare);
    /// Gives the device back and ends all threads. Not from an event's handler.
    void Close();

    /// Connects again now, unless the connection is there. \return As Open().
    KyResult Reconnect();
    /// Whether the device can be reached, as far as is known.
    bool IsConnected() const { return mConnected && !mControl.IsShut(); }
    /// How often the connection was lost.
    /// It includes the loss of a connection that IsConnected() has just denied.
    uint64_t GetLosses();
    /// The number of the connection, 1 for the first; stays while it is lost.
    uint64_t GetGeneration() const { return mGeneration; }
    /// Whether the device sends events.
    bool HasEvents() const { return mHasEvents; }
    /// What the device said about itself when it was opened.
    const DeviceInformation& GetInformation() const { return mInformation; }

    /// Uses of the connection there is. One that has to wait until another connection is there returns NO_CONNECTION.
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue);
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue);
    KyResult ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize);
    KyResult WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize);

    /// Uses of one connection, by its number (ControlChannel::GetConnection()): NO_CONNECTION when it is another one now.
    KyResult ReadRegister(uint64_t aConnection, uint32_t aAddress, uint32_t& aValue);
    KyResult WriteRegister(uint64_t aConnection, uint32_t aAddress, uint32_t aValue);
    KyResult ReadMemory(uint64_t aConnection, uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize);
    KyResult WriteMemory(uint64_t aConnection, uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize);

    /// The channels, for preparations and for figures.
    ControlChannel& GetControl() { return mControl; }
    MessageChannel& GetMessages() { return mMessages; }

private:
    KyResult FindDevice();
    KyResult FindOwnSide();
    KyResult OpenSockets(MessageChannel::EventHandler aEvents);
    KyResult FollowOwnSide() JX_REQUIRES(mConnecting);
    KyResult Connect() JX_REQUIRES(mConnecting);
    KyResult RunSteps() JX_REQUIRES(mConnecting);
    KyResult Explained(const KyResult& aResult) const;
    KyResult Identify() JX_REQUIRES(mConnecting);
    KyResult CheckExclusive() JX_REQUIRES(mConnecting);
    KyResult LearnTimes() JX_REQUIRES(mConnecting);
    KyResult TakeControl() JX_REQUIRES(mConnecting);
    KyResult StartEvents() JX_REQUIRES(mConnecting);
    KyResult ConfigureEvents();
    bool ReadOptional(uint32_t aAddress, uint32_t& aValue);
    bool IsTakenInSilence(const KyResult& aResult);
    KyResult TakenResult(const std::string& aWhat);
    void GiveBack() noexcept;
    void Keep();
    void LookAfter();
    void SendHeartbeat();
    KyResult ProveControl(uint64_t aConnection);
    KyResult Written(const KyResult& aResult, uint64_t aConnection);
    void LoseConnection(uint64_t aConnection, const char* aReason);
    std::string Where() const { return DeviceAddressText(mAddress); }

    const DeviceAddress mAddress;
    const ConnectionOptions mOptions;
    uint32_t mDevice = 0;   // its address
    std::string mInterface; // as wanted, or as found
    OwnSide mOwn;
    ControlChannel mControl;
    MessageChannel mMessages;
    Preparation mPrepare;
    DeviceInformation mInformation; // constant after Open()
    bool mIdentified JX_GUARDED_BY(mConnecting) = false;
    std::atomic<bool> mConnected = false;
    std::atomic<bool> mHasEvents = false;
    std::atomic<bool> mMayControl = false; // the device may take this for the application in control
    std::atomic<uint64_t> mLosses = 0;
    std::atomic<uint64_t> mGeneration = 0;
    JxUtilsLib::Mutex mConnecting; // one attempt at a time
    std::thread mKeeper;
    JxUtilsLib::Mutex mLock;
    JxUtilsLib::Condition mChanged;
    bool mStop JX_GUARDED_BY(mLock) = false;
    bool mHasWork JX_GUARDED_BY(mLock) = false; // the keeper looks at the connection before it waits again
};

} // namespace KyGigE
