#pragma once

#include "Adapters/GigE/Client/EventNumbers.h"
#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"

#include <JxUtilsLib/Mutex.h>
#include <KyBase/KyResult.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace KyGigE
{

/// The message channel of a device: a thread that acknowledges each event, leaves out what came before, and
/// then reports it; and that does other things in between, so that everything that sinks hear comes on one
/// thread.
///
/// What does not come from the device's address and port, or whose number does not fit those before, is not
/// the device's: it is counted, and not acknowledged. An event that makes no sense is acknowledged and left
/// out, so that the device goes on with the next one.
///
/// Threads: Open() and Close() by one; the rest by any.
class MessageChannel
{
public:
    using EventHandler = std::function<void(const KyGvcp::EventView&)>;
    using Task = std::function<void()>;

    MessageChannel() = default;
    ~MessageChannel() { Close(); }
    MessageChannel(const MessageChannel&) = delete;
    MessageChannel& operator=(const MessageChannel&) = delete;

    /// Starts, and listens to any port of the device.
    /// \param aLocal  Own address. \param aDevice  The only host that is listened to.
    /// \param aHandler  Called on the channel's thread. \param aInterface  As for UdpSocket.
    /// \return FAILURE: the system refused.
    KyResult Open(uint32_t aLocal, uint32_t aDevice, EventHandler aHandler, uint32_t aInterface = 0);
    /// Goes on at another own address. Does not wait for a call that is running. \return FAILURE: the system
    /// refused, and the channel stays where it is.
    KyResult Move(uint32_t aLocal, uint32_t aInterface);
    /// Ends; waits for a call that is running. Not from the channel's thread. What was posted is dropped.
    void Close();

    /// Where the device has to send its events.
    KyGvcp::Endpoint GetLocal();
    /// Listens to nobody, until Listen(). A device sends again what is not acknowledged.
    void Deafen() { mSource = cNobody; }
    /// Listens to one port of the device, and knows none of its numbers. \param aDevicePort  0: the one that
    /// the first event comes from.
    void Listen(uint16_t aDevicePort);
    /// Lets a firewall on the way know that packets from the device are wanted. Such a hole closes after a
    /// while.
    void OpenWay();
    /// Does aTask on the channel's thread, after what it does now. Nothing when the channel is closed.
    void Post(Task aTask);

    /// Packets that came again and were left out.
    uint64_t GetRepeats() const { return mRepeats; }
    /// Packets that were not the device's.
    uint64_t GetForeign() const { return mForeign; }

private:
    static constexpr uint32_t cAnyPort = 0;
    static constexpr uint32_t cNobody = UINT32_MAX;

    std::shared_ptr<KyGvcp::UdpSocket> GetSocket();
    bool IsDevice(const KyGvcp::Endpoint& aFrom);
    bool IsPlausible(const KyGvcp::CommandView& aCommand, const std::vector<KyGvcp::EventView>& aEvents);
    void Acknowledge(const KyGvcp::CommandView& aCommand, const KyGvcp::Endpoint& aFrom);
    void Run();
    void HandlePacket(KyGvcp::Bytes aPacket, const KyGvcp::Endpoint& aFrom);
    bool IsRepeated(KyGvcp::Bytes aPacket, uint16_t aRequest) noexcept;
    void RunTasks();

    KyGvcp::Waker mWaker;
    uint32_t mDevice = 0;
    EventHandler mHandler;
    std::thread mThread;
    std::atomic<bool> mStop = false;
    std::atomic<uint64_t> mRepeats = 0;
    std::atomic<uint64_t> mForeign = 0;
    std::atomic<uint32_t> mSource = cAnyPort; // the device's port
    std::atomic<bool> mForget = false;        // the numbers
    EventNumbers mNumbers;                    // the thread's
    std::array<uint8_t, KyGvcp::cMaxPacket> mIn{};
    // Hashes of the last packets, each at its identifier. A device that reports each byte of a fast line
    // sends some ten thousand a second, and a packet that the network held up may be as late as a device goes
    // on repeating it.
    std::vector<uint64_t> mSeen = std::vector<uint64_t>(8192);
    JxUtilsLib::Mutex mLock;
    std::vector<Task> mTasks JX_GUARDED_BY(mLock);
    std::shared_ptr<KyGvcp::UdpSocket> mSocket JX_GUARDED_BY(mLock);
};

} // namespace KyGigE
