#include "Adapters/GigE/Client/MessageChannel.h"

#include "Libraries/KySerial/OutOfMemory.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using KyGvcp::Bytes;
using KyGvcp::SocketResult;
using KySerialLib::AskWithMemory;

KyResult MessageChannel::Open(uint32_t aLocal, uint32_t aDevice, EventHandler aHandler, uint32_t aInterface)
{
    Close();
    KyResult lResult = Move(aLocal, aInterface);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    mDevice = aDevice;
    mHandler = std::move(aHandler);
    // Any port counts until the device's own is known from its registers or its first event.
    Listen(0);
    mStop = false;
    // Last: the thread uses what is set above.
    mThread = std::thread([this] { Run(); });
    return lResult;
}

// The thread may be in a call that waits for the one which moves the channel, so it is not waited for: it
// goes on with the new socket by itself, which keeps what comes meanwhile.
KyResult MessageChannel::Move(uint32_t aLocal, uint32_t aInterface)
{
    auto lSocket = std::make_shared<KyGvcp::UdpSocket>();
    if (!lSocket->Open({aLocal, 0}, false, aInterface))
    {
        return {KyResult::FAILURE, "No network socket for the device's events could be opened."};
    }
    {
        const LockScope lScope(mLock);
        mSocket = std::move(lSocket);
    }
    mWaker.Wake();
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
    const LockScope lScope(mLock);
    mSocket.reset();
    mTasks.clear();
}

std::shared_ptr<KyGvcp::UdpSocket> MessageChannel::GetSocket()
{
    const LockScope lScope(mLock);
    return mSocket;
}

KyGvcp::Endpoint MessageChannel::GetLocal()
{
    const auto lSocket = GetSocket();
    return lSocket != nullptr ? lSocket->GetLocal() : KyGvcp::Endpoint();
}

void MessageChannel::Listen(uint16_t aDevicePort)
{
    // A device that has started anew counts from the beginning. The numbers belong to the event thread, so it
    // forgets them.
    mForget = true;
    mSource = aDevicePort;
}

void MessageChannel::OpenWay()
{
    // An empty datagram: firewalls let in what comes from where something was sent to.
    const uint32_t lPort = mSource;
    const auto lSocket = GetSocket();
    if (lSocket != nullptr && lPort != cAnyPort && lPort != cNobody)
    {
        static_cast<void>(
            lSocket->SendTo({mDevice, static_cast<uint16_t>(lPort)}, {})); // ignored: a courtesy
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
        const std::shared_ptr<KyGvcp::UdpSocket> lSocket = GetSocket();
        size_t lSize = 0;
        KyGvcp::Endpoint lFrom;
        // Move() and Close() wake this wait. The pointer keeps the old socket alive until then.
        const SocketResult lState = lSocket->Receive(mIn, lSize, &lFrom, KyGvcp::cForever, &mWaker);
        if (lState == SocketResult::Done && !mStop)
        {
            // Without memory the event is left out; not acknowledged yet, it comes again.
            static_cast<void>(AskWithMemory(
                [&]
                {
                    HandlePacket(Bytes(mIn).first(lSize), lFrom);
                    return true;
                }));
        }
        else if (lState == SocketResult::Failed)
        {
            JxUtilsLib::Thread::Sleep(1); // a broken interface; no busy loop
        }
        RunTasks();
    }
}

void MessageChannel::RunTasks()
{
    std::vector<Task> lTasks;
    {
        const LockScope lScope(mLock);
        // Done without the lock: a task calls sinks, and these may post further tasks.
        lTasks.swap(mTasks);
    }
    for (const Task& lTask : lTasks)
    {
        if (!mStop)
        {
            static_cast<void>(AskWithMemory(
                [&]
                {
                    lTask();
                    return true;
                })); // without memory it is left out
        }
    }
}

bool MessageChannel::IsDevice(const KyGvcp::Endpoint& aFrom)
{
    const uint32_t lSource = mSource;
    // Forged events would reach the application as bytes of its port, so the sender is checked as far as it can be.
    return aFrom.mAddress == mDevice && aFrom.mPort != 0 && (lSource == cAnyPort || lSource == aFrom.mPort);
}

// An event that is not acknowledged comes again, so that a device which counts in leaps is heard all the
// same.
bool MessageChannel::IsPlausible(const KyGvcp::CommandView& aCommand,
                                 const std::vector<KyGvcp::EventView>& aEvents)
{
    if (mForget.exchange(false))
    {
        mNumbers = {};
    }
    const unsigned lBits = (aCommand.mFlags & KyGvcp::cExtendedID) != 0 ? 64 : 16;
    // A doubted event has to come again, and only an event with an acknowledge does.
    if (aEvents.empty() || (aCommand.mFlags & KyGvcp::cAcknowledgeWanted) == 0)
    {
        return true;
    }
    const bool lFits = mNumbers.Fits(aEvents.front().mBlockID, lBits);
    for (size_t lIndex = 1; lFits && lIndex < aEvents.size(); ++lIndex)
    {
        // Ignored: they come with the first one. The next packet goes on counting after the last.
        static_cast<void>(mNumbers.Fits(aEvents[lIndex].mBlockID, lBits));
    }
    return lFits;
}

void MessageChannel::Acknowledge(const KyGvcp::CommandView& aCommand, const KyGvcp::Endpoint& aFrom)
{
    if ((aCommand.mFlags & KyGvcp::cAcknowledgeWanted) != 0)
    {
        const auto lAcknowledge = KyGvcp::Packet::Acknowledge(
            KyGvcp::cSuccess, static_cast<uint16_t>(aCommand.mCode + 1U), aCommand.mRequestID);
        // Ignored: the device asks again.
        static_cast<void>(GetSocket()->SendTo(aFrom, lAcknowledge.GetBytes()));
    }
}

void MessageChannel::HandlePacket(Bytes aPacket, const KyGvcp::Endpoint& aFrom)
{
    const auto lCommand = KyGvcp::ParseCommand(KyGvcp::WithoutPadding(aPacket));
    if (!IsDevice(aFrom) || !lCommand ||
        (lCommand->mCode != KyGvcp::cEvent && lCommand->mCode != KyGvcp::cEventData) ||
        lCommand->mRequestID == 0)
    {
        ++mForeign;
        return;
    }
    const std::vector<KyGvcp::EventView> lEvents = KyGvcp::ParseEvents(*lCommand);
    const bool lRepeated = !lEvents.empty() && IsRepeated(aPacket, lCommand->mRequestID);
    if (!lRepeated && !IsPlausible(*lCommand, lEvents))
    {
        mSeen[lCommand->mRequestID % mSeen.size()] = 0; // it may come again, and counts then
        ++mForeign;
        return;
    }
    uint32_t lAny = cAnyPort;
    if (!lEvents.empty())
    {
        // A device whose registers do not name its port shows it with its first event. Packets from other ports are
        // not the device's from then on.
        mSource.compare_exchange_strong(lAny, aFrom.mPort);
    }
    // Acknowledged before the sinks are called: they take their time, and the device repeats what is not
    // acknowledged in time. An event that makes no sense is acknowledged too: the device would repeat it and hold
    // back those after it.
    Acknowledge(*lCommand, aFrom);
    if (lRepeated)
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
