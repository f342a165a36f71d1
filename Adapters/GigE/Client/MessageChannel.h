#pragma once

#include "Adapters/GigE/Gvcp/Protocol.h"
#include "Adapters/GigE/Gvcp/UdpSocket.h"

#include <JxUtilsLib/Mutex.h>
#include <KyBase/KyResult.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace KyGigE
{

/// The message channel of a device: a thread that acknowledges each event, leaves out what came before, and
/// then tells of it; and that does other things in between, so that everything that sinks hear comes on one
/// thread.
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

    /// Starts. \param aLocal  Own address. \param aDevice  The only host that is listened to.
    /// \param aHandler  Called on the channel's thread. \return FAILURE: the system refused.
    KyResult Open(uint32_t aLocal, uint32_t aDevice, EventHandler aHandler);
    /// Ends; waits for a call that is running. Not from the channel's thread. What was posted is dropped.
    void Close();

    /// Where the device has to send its events.
    KyGvcp::Endpoint GetLocal() const { return mSocket.GetLocal(); }
    /// Lets a firewall on the way know that packets from there are wanted.
    void OpenWay(uint16_t aDevicePort);
    /// Does aTask on the channel's thread, behind what it does now. Nothing when the channel is closed.
    void Post(Task aTask);

    /// Packets that came again and were left out.
    uint64_t GetRepeats() const { return mRepeats; }

private:
    void Run();
    void HandlePacket(KyGvcp::Bytes aPacket, const KyGvcp::Endpoint& aFrom);
    bool IsRepeated(KyGvcp::Bytes aPacket, uint16_t aRequest) noexcept;
    void RunTasks();

    KyGvcp::UdpSocket mSocket;
    KyGvcp::Waker mWaker;
    uint32_t mDevice = 0;
    EventHandler mHandler;
    std::thread mThread;
    std::atomic<bool> mStop = false;
    std::atomic<uint64_t> mRepeats = 0;
    std::array<uint8_t, KyGvcp::cMaxPacket> mIn{};
    // Hashes of the last packets, each at its identifier. A device that tells of each byte of a fast line
    // sends some ten thousand a second, and a packet that the network held up may be as late as a device goes
    // on repeating it.
    std::vector<uint64_t> mSeen = std::vector<uint64_t>(8192);
    JxUtilsLib::Mutex mLock;
    std::vector<Task> mTasks JX_GUARDED_BY(mLock);
};

} // namespace KyGigE
