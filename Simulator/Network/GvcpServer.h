#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"
#include "Simulator/Network/MessageChannel.h"
#include "Simulator/Network/NetworkFaults.h"
#include "Simulator/Network/RegisterMap.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <vector>

namespace KySimulator
{

/// A place in a network, as an application gives it to a camera. Address 0: the one of power-up.
struct ForcedAddress
{
    uint32_t mAddress = 0;
    uint32_t mMask = 0;
    uint32_t mGateway = 0;
};

/// The control channel of a network camera: commands in, acknowledges out. It knows no sockets and no clock;
/// one thread at a time.
///
/// A command that comes again, byte for byte with its request id, is not executed again. It gets the acknowledge
/// that it got before, even after thousands of other commands: the network may delay a duplicate. Only the
/// application that has taken control may write. When it is silent for longer than the heartbeat time-out,
/// its control ends and the message channel is closed.
class GvcpServer
{
public:
    /// What the server needs of the camera round it.
    class Host
    {
    public:
        virtual void SendAcknowledge(const KyGvcp::Endpoint& aTo, KyGvcp::Bytes aPacket) = 0;
        /// A register of the message channel, or the timestamp, has been written.
        virtual void OnChannelChanged(const ChannelSettings& aSettings) = 0;
        /// Moves the camera; what is sent from now on comes from the new address.
        /// \return False: it cannot be there, and stays.
        virtual bool MoveTo(const ForcedAddress& aAddress) = 0;

    protected:
        Host() = default;
        Host(const Host&) = default;
        Host& operator=(const Host&) = default;
        ~Host() = default; // the server never owns it
    };

    struct Counters
    {
        uint64_t mCommands = 0; ///< Executed, or refused as such.
        uint64_t mRefused = 0;  ///< Executed, and acknowledged with another status than success.
        uint64_t mRepeated = 0; ///< Answered from memory.
        uint64_t mBusy = 0;     ///< Refused because a fault wanted it so.
        uint64_t mPending = 0;  ///< Announced to take longer.
        uint64_t mIgnored = 0;  ///< Datagrams that are no commands.
        uint64_t mExpired = 0;  ///< Applications that lost control by silence.
    };

    /// Commands that wait while another one takes its time; more are ignored.
    static constexpr size_t cQueue = 64;
    /// Applications whose commands are remembered.
    static constexpr size_t cMemory = 16;
    /// Writes of each that are; of reads, which do no harm, the last one.
    static constexpr size_t cRememberedWrites = 4096;

    /// All of them outlive this object.
    GvcpServer(RegisterMap& aRegisters, NetworkFaults& aFaults, Host& aHost);

    /// A datagram that has come to the control port.
    void Handle(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket, Time aNow);
    /// Does what has become due.
    void Step(Time aNow);
    Time NextDue() const;

    /// The application in control; zeros when there is none.
    const KyGvcp::Endpoint& GetController() const { return mController; }
    /// Ends its control, as silence would.
    void ReleaseControl();
    /// Begins as after power-up: nobody in control, nothing remembered, nothing under way.
    void Restart();

    const Counters& GetCounters() const { return mCounters; }

private:
    using Buffer = std::vector<uint8_t>;

    struct Waiting
    {
        KyGvcp::Endpoint mFrom;
        Buffer mPacket;
        Time mDue{0};
        bool mSilent = false; ///< Not announced.
    };

    struct Remembered
    {
        Buffer mCommand;
        Buffer mAcknowledge;
    };

    /// What an application has sent.
    struct Application
    {
        KyGvcp::Endpoint mFrom;
        Remembered mLast;
        std::unordered_map<uint16_t, Remembered> mWrites; // by request id
        std::deque<uint16_t> mOrder;                      // the latest at the back
    };

    void Discover(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    void ForceAddress(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    void Take(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket, Time aNow);
    void Announce(const Waiting& aWork, Time aNow);
    void Defer(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket, Time aNow);
    bool Replay(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket);
    void Remember(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket, KyGvcp::Bytes aAcknowledge);
    void Execute(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket, Time aNow);

    KyGvcp::Packet Answer(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    KyGvcp::Packet ReadRegisters(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    KyGvcp::Packet WriteRegisters(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    KyGvcp::Packet ReadMemory(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    KyGvcp::Packet WriteMemory(const KyGvcp::Endpoint& aFrom, const KyGvcp::CommandView& aCommand);
    Status WriteWord(const KyGvcp::Endpoint& aFrom, uint32_t aAddress, uint32_t aValue);
    Status WriteWords(const KyGvcp::Endpoint& aFrom, uint32_t aAddress, KyGvcp::Bytes aData);
    Status SetPrivilege(const KyGvcp::Endpoint& aFrom, uint32_t aValue);
    bool MayRead(const KyGvcp::Endpoint& aFrom, uint32_t aAddress, size_t aCount) const;
    bool IsController(const KyGvcp::Endpoint& aFrom) const;
    bool IsControlled() const;
    ChannelSettings GetChannel() const;
    Time HeartbeatDue() const;

    RegisterMap& mRegisters;
    NetworkFaults& mFaults;
    Host& mHost;
    KyGvcp::Endpoint mController;
    Time mHeard{0};                  // when the controller spoke last
    std::optional<Waiting> mWork;    // the request that is being executed
    std::deque<Waiting> mQueue;      // requests that wait until mWork is done
    std::deque<Application> mMemory; // the latest at the back
    Counters mCounters;
};

} // namespace KySimulator
