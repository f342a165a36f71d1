#include "Adapters/GigE/Client/MessageChannel.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string_view>
#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using KyGvcp::Bytes;
using KyGvcp::SocketResult;

KyResult MessageChannel::Open(uint32_t aLocal, uint32_t aDevice, EventHandler aHandler)
{
    Close();
    if (!mSocket.Open({aLocal, 0}))
    {
        return {KyResult::FAILURE, "No network socket for the device's events could be opened."};
    }
    mDevice = aDevice;
    mHandler = std::move(aHandler);
    mStop = false;
    mThread = std::thread([this] { Run(); });
    return {};
}

void MessageChannel::Close()
{
    if (!mThread.joinable())
    {
        return;
    }
    mStop = true;
    mWaker.Wake();
    mThread.join();
    mSocket.Close();
    const LockScope lScope(mLock);
    mTasks.clear();
}

void MessageChannel::OpenWay(uint16_t aDevicePort)
{
    if (aDevicePort != 0)
    {
        static_cast<void>(mSocket.SendTo({mDevice, aDevicePort}, {})); // ignored: a courtesy
    }
}

void MessageChannel::Post(Task aTask)
{
    {
        const LockScope lScope(mLock);
        mTasks.push_back(std::move(aTask));
    }
    mWaker.Wake();
}

void MessageChannel::Run()
{
    while (!mStop)
    {
        size_t lSize = 0;
        KyGvcp::Endpoint lFrom;
        const SocketResult lState = mSocket.Receive(mIn, lSize, &lFrom, KyGvcp::cForever, &mWaker);
        if (lState == SocketResult::Done && lFrom.mAddress == mDevice && !mStop)
        {
            HandlePacket(Bytes(mIn).first(lSize), lFrom);
        }
        else if (lState == SocketResult::Failed)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // a broken interface; no busy loop
        }
        RunTasks();
    }
}

void MessageChannel::RunTasks()
{
    std::vector<Task> lTasks;
    {
        const LockScope lScope(mLock);
        lTasks.swap(mTasks);
    }
    for (const Task& lTask : lTasks)
    {
        if (!mStop)
        {
            lTask();
        }
    }
}

void MessageChannel::HandlePacket(Bytes aPacket, const KyGvcp::Endpoint& aFrom)
{
    const auto lCommand = KyGvcp::ParseCommand(aPacket);
    if (!lCommand || (lCommand->mCode != KyGvcp::cEvent && lCommand->mCode != KyGvcp::cEventData))
    {
        return;
    }
    const std::vector<KyGvcp::EventView> lEvents = KyGvcp::ParseEvents(*lCommand);
    if (lEvents.empty())
    {
        return;
    }
    // At once: the device sends again what is not acknowledged in time, and sinks take their time.
    if ((lCommand->mFlags & KyGvcp::cAcknowledgeWanted) != 0)
    {
        const auto lAcknowledge = KyGvcp::Packet::Acknowledge(
            KyGvcp::cSuccess, static_cast<uint16_t>(lCommand->mCode + 1U), lCommand->mRequestID);
        static_cast<void>(mSocket.SendTo(aFrom, lAcknowledge.GetBytes())); // ignored: the device asks again
    }
    if (IsRepeated(aPacket, lCommand->mRequestID))
    {
        ++mRepeats;
        return;
    }
    for (const KyGvcp::EventView& lEvent : lEvents)
    {
        mHandler(lEvent);
    }
}

// A packet that is sent again is the same in every byte, its time included. The identifier alone would take
// the first events of a device that has started anew for old ones.
bool MessageChannel::IsRepeated(Bytes aPacket, uint16_t aRequest) noexcept
{
    const std::string_view lBytes(reinterpret_cast<const char*>(aPacket.data()), aPacket.size());
    const uint64_t lHash = std::hash<std::string_view>()(lBytes) | 1U; // a place that nobody has used holds 0
    return std::exchange(mSeen[aRequest % mSeen.size()], lHash) == lHash;
}

} // namespace KyGigE
