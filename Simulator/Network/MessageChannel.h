#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"
#include "Simulator/Camera/CameraListener.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Network/NetworkForms.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace KySimulator
{

/// Where events go, from the message channel's registers.
struct ChannelSettings
{
    KyGvcp::Endpoint mPeer;  ///< Zeros: the channel is closed.
    uint32_t mTimeout = 0;   ///< Milliseconds to wait for an acknowledge; 0 wants none.
    uint32_t mRetries = 0;   ///< Repetitions of an event that nobody acknowledged.
    Time mTimestampStart{0}; ///< Camera time that counts as 0.
};

/// Sends what a camera raises, one packet at a time, in order, each until it is acknowledged or its
/// repetitions are used up. Events without data leave as EVENT, others as EVENTDATA.
///
/// OnDeviceEvent() on any thread, all else on one.
class MessageChannel final : public CameraListener
{
public:
    /// Events that wait; more are dropped.
    static constexpr size_t cQueue = 65536;

    struct Counters
    {
        uint64_t mSent = 0;         ///< Events, not datagrams.
        uint64_t mRepeated = 0;     ///< Datagrams that were sent again.
        uint64_t mAcknowledged = 0; ///< Events.
        uint64_t mLost = 0;         ///< Given up after the last repetition.
        uint64_t mDropped = 0;      ///< Raised while the channel was closed, or too large, or too many.
    };

    using SendFunction = std::function<void(const KyGvcp::Endpoint&, KyGvcp::Bytes)>;

    /// \param aSend  Sends a datagram from the channel's port.
    /// \param aWake  Called on any thread when there is something for Step().
    /// \param aForms  How many events make a packet, and how long their ids are.
    MessageChannel(SendFunction aSend, std::function<void()> aWake, const NetworkForms& aForms = {});

    /// Another peer, or none, drops what waits.
    void Configure(const ChannelSettings& aSettings);

    void OnDeviceEvent(const DeviceEvent& aEvent) override;
    void OnFeatureChanged(const std::string& /*aName*/) override {} // applications know what they changed

    /// A datagram that has come to the channel's port.
    void HandleAcknowledge(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket);
    /// Sends what can be sent, and again what was not acknowledged in time.
    void Step(Time aNow);
    /// When Step() has something to do without having been woken.
    Time NextDue() const { return mFlight.has_value() ? mFlight->mDue : cNever; }

    Counters GetCounters();

private:
    struct Flight
    {
        KyGvcp::Packet mPacket;
        uint16_t mCode;
        uint16_t mRequestID;
        Time mDue;
        uint32_t mLeft;
        uint64_t mEvents;
    };

    std::vector<DeviceEvent> TakeEvents();
    size_t SizeOf(const DeviceEvent& aEvent) const;
    uint64_t NextBlock();
    void Launch(const std::vector<DeviceEvent>& aEvents, Time aNow);
    void Repeat(Time aNow);
    uint16_t NextRequest();

    const SendFunction mSend;
    const std::function<void()> mWake;
    const NetworkForms mForms;
    ChannelSettings mSettings;
    std::optional<Flight> mFlight;
    uint16_t mRequestID = 0;
    uint64_t mBlockID = 0;
    Lock mLock;
    bool mOpen JX_GUARDED_BY(mLock) = false;
    std::deque<DeviceEvent> mQueue JX_GUARDED_BY(mLock);
    Counters mCounters JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
