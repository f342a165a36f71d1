#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace KyTest
{

/// The device's end of the protocol for tests of the application's: registers that are a table of bytes,
/// control for one application, one message channel; and it does with single commands what a test says.
class ScriptedDevice
{
public:
    using Bytes = std::vector<uint8_t>;

    /// A command that came, repetitions included.
    struct Command
    {
        uint16_t mCode = 0;
        uint16_t mRequest = 0;
        Bytes mPayload;

        uint32_t Word(size_t aOffset) const;
    };

    /// What to do with a command.
    struct Answer
    {
        enum What
        {
            Usual,
            Silence, ///< Done, but not acknowledged.
            Refuse,  ///< Not done; acknowledged with mStatus.
            Pending, ///< Announces mTime, then does it after half of that.
            Promise, ///< Announces mTime, and does not do it.
            Slow,    ///< Does it after mTime, without a word.
            Vanish,  ///< Neither this one nor any after it, as when the cable is pulled.
            Garbage  ///< Foreign and damaged packets before the acknowledge.
        } mWhat = Usual;
        uint16_t mStatus = 0;
        uint16_t mTime = 0;
    };

    /// Listens on a port of aAddress that the system chooses; the device is of this maker and has aXml.
    /// \param aPort  0: the system chooses.
    explicit ScriptedDevice(const std::string& aXml, uint32_t aAddress = 0x7F000001, uint16_t aPort = 0);
    ~ScriptedDevice();
    ScriptedDevice(const ScriptedDevice&) = delete;
    ScriptedDevice& operator=(const ScriptedDevice&) = delete;

    uint16_t GetPort() const { return mPort; }
    uint32_t GetAddress() const { return mAddress; }

    /// Asked for each new command; repetitions are answered as usual devices do, from memory.
    void SetScript(std::function<Answer(const Command&)> aScript);
    /// Answers discovery that is broadcast too. On the usual port only.
    void HearBroadcasts();
    /// Answers nothing, and does nothing, until it is taken back.
    void SetFrozen(bool aFrozen);
    /// Closes its sockets, as a device does that is switched off.
    void SwitchOff();
    /// Comes back, without remembering who had control or what was set up. From then on nobody writes without
    /// control; before, tests of single commands do.
    void SwitchOn();
    /// Gives control to somebody else.
    void GiveControlAway();
    /// Ends the control of any application, as the heartbeat's time-out does.
    void ReleaseControl();

    void PutWord(uint32_t aAddress, uint32_t aValue);
    uint32_t GetWord(uint32_t aAddress);
    void PutText(uint32_t aAddress, const std::string& aText);

    /// The commands so far; forgets them.
    std::vector<Command> TakeCommands();
    /// Waits until a command of that code has come since the last TakeCommands().
    bool WaitForCommand(uint16_t aCode);
    /// What was written to addresses with bit 31, in order, each with its address.
    std::vector<std::pair<uint32_t, Bytes>> TakeWindowWrites();

    /// Packets without content that have come to the message channel: they keep a firewall open.
    int GetOpeners();
    /// Sends an event with data to the application that has set up the message channel.
    /// \param aRequest  0: the next one. \return The identifier.
    uint16_t SendEvent(uint16_t aEvent, const Bytes& aData, uint16_t aRequest = 0, uint64_t aTime = 0);
    /// Sends any packet there. \param aFrom  Own address to send it from; 0: the message channel's port.
    void SendPacket(const Bytes& aPacket, uint32_t aFrom);
    /// Waits for the acknowledge of an event. \return False: none came within aTime.
    bool WaitForAcknowledge(uint16_t aRequest, std::chrono::milliseconds aTime = std::chrono::seconds(20));

private:
    void Open();
    void Start();
    void Stop();
    void Close();
    void Run();
    void Handle(KyGvcp::Bytes aPacket, const KyGvcp::Endpoint& aFrom);
    KyGvcp::Packet Execute(const KyGvcp::CommandView& aCommand, const KyGvcp::Endpoint& aFrom);
    KyGvcp::Packet Write(const KyGvcp::CommandView& aCommand, const KyGvcp::Endpoint& aFrom);
    void SendGarbage(uint16_t aRequest, const KyGvcp::Endpoint& aFrom);
    void TakeAcknowledge();

    const uint32_t mAddress;
    uint16_t mPort = 0;
    KyGvcp::UdpSocket mSocket;
    KyGvcp::UdpSocket mEvents;
    KyGvcp::UdpSocket mBroadcasts;
    KyGvcp::Waker mWaker;
    std::thread mThread;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::function<Answer(const Command&)> mScript;
    std::map<uint32_t, uint8_t> mMemory;
    std::vector<std::pair<uint32_t, Bytes>> mWindow;
    std::vector<Command> mCommands;
    std::deque<uint16_t> mAcknowledged;
    std::optional<KyGvcp::Endpoint> mOwner;
    uint16_t mLastRequest = 0;
    KyGvcp::Endpoint mLastPeer;
    Bytes mLastAnswer;
    uint16_t mNextEvent = 0;
    int mOpeners = 0;
    uint64_t mTime = 0;
    bool mFrozen = false;
    bool mStrict = false;
    bool mStop = false;
};

} // namespace KyTest
