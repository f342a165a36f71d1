#include "Simulator/Network/NetworkCamera.h"

#include "KyPlatform/Timers.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace KySimulator
{

using namespace KyGvcp;

namespace
{

constexpr std::chrono::milliseconds cRetry{100};
constexpr size_t cReceiveBuffer = 2048; // more than any packet; what is longer is cut and refused

/// The mask of the network that an address of this computer is in.
uint32_t MaskOf(uint32_t aAddress)
{
    constexpr uint32_t cEveryBit = 0xFFFFFFFF;
    const std::vector<Interface> lInterfaces = ListInterfaces();
    const auto lFound =
        std::find_if(lInterfaces.begin(), lInterfaces.end(),
                     [=](const Interface& aInterface)
                     { return (aInterface.mAddress & aInterface.mMask) == (aAddress & aInterface.mMask); });
    // For an address in none of this computer's networks nothing is known about neighbours, so the mask names
    // none.
    return lFound != lInterfaces.end() ? lFound->mMask : cEveryBit;
}

} // namespace

NetworkCamera::NetworkCamera(std::shared_ptr<CameraModel> aCamera, const NetworkPlace& aPlace,
                             const NetworkForms& aForms)
    : mCamera(std::move(aCamera))
    , mPlace(aPlace)
    , mRegisters(*mCamera, aForms)
    , mGate(mFaults,
            [this](DatagramKind aKind, const Endpoint& aPeer, Bytes aData) { Dispatch(aKind, aPeer, aData); })
    , mChannel([this](const Endpoint& aTo, Bytes aData)
               { mGate.Pass(DatagramKind::Event, aTo, aData, Now()); },
               [this]
               {
                   if (std::this_thread::get_id() != mThreadID) // that thread looks anyway
                   {
                       mWaker.Wake();
                   }
               },
               aForms)
    , mServer(mRegisters, mFaults, *this)
{
}

NetworkCamera::~NetworkCamera()
{
    Stop();
}

Time NetworkCamera::Now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

bool NetworkCamera::OpenSockets()
{
    if (!mControl.Open(mPlace.mEndpoint))
    {
        mError = mControl.GetError();
        return false;
    }
    if (!mMessages.Open({mPlace.mEndpoint.mAddress, mMessagePort}))
    {
        // A camera without this socket would take commands and never report an event, so it is not there at
        // all.
        mError = mMessages.GetError();
        CloseSockets();
        return false;
    }
    // Port 0 lets the system choose. The camera keeps that port, so that it has the same one after it was
    // unplugged.
    mPlace.mEndpoint = mControl.GetLocal();
    mMessagePort = mMessages.GetLocal().mPort;
    // Systems differ: on some a socket with an address of its own hears broadcasts, on others it takes a second
    // socket. The camera works without, it is only not found.
    mHearsBroadcasts =
        mPlace.mBroadcast && mPlace.mEndpoint.mPort == cControlPort &&
        (UdpSocket::AddressHearsBroadcasts() || mBroadcast.Open({cBroadcastAddress, cControlPort}, true));
    return true;
}

void NetworkCamera::CloseSockets()
{
    mControl.Close();
    mMessages.Close();
    mBroadcast.Close();
}

bool NetworkCamera::Start()
{
    if (!mWaker.IsValid())
    {
        mError = "no event handle";
        return false;
    }
    if (!OpenSockets())
    {
        return false;
    }
    // Before the thread exists: from then on the registers belong to it.
    mFirstAddress = mPlace.mEndpoint.mAddress;
    mRegisters.SetPlace(mFirstAddress, MaskOf(mFirstAddress));
    mRegisters.GetBootstrap().Set(cMessageSourcePortRegister, mMessagePort);
    mStop = false;
    mThread = std::thread([this] { Run(); });
    mThreadID = mThread.get_id();
    // Last: the channel wakes the thread for each event.
    mCamera->AddListener(&mChannel);
    return true;
}

void NetworkCamera::Stop()
{
    if (!mThread.joinable())
    {
        return;
    }
    // First: no event comes in while the thread ends.
    mCamera->RemoveListener(&mChannel);
    mStop = true;
    mWaker.Wake();
    mThread.join();
    // Only now: the thread waits for them to the end.
    CloseSockets();
}

void NetworkCamera::Ask(const std::function<void()>& aRequest)
{
    // Before Start() and after Stop() nobody else touches the state.
    if (!mThread.joinable())
    {
        aRequest();
        return;
    }
    LockScope lScope(mLock);
    // The pointer is good until this function returns, and it returns after the request has run.
    mRequests.push_back(&aRequest);
    const uint64_t lNumber = ++mAsked;
    mWaker.Wake();
    while (mAnswered < lNumber)
    {
        mChanged.Wait(mLock);
    }
}

void NetworkCamera::RunRequests()
{
    LockScope lScope(mLock);
    while (!mRequests.empty())
    {
        const std::function<void()>* const lRequest = mRequests.front();
        mRequests.pop_front();
        // Without the lock: a request may take long, and others queue theirs meanwhile.
        lScope.Open();
        (*lRequest)();
        lScope.Close();
        ++mAnswered;
        mChanged.NotifyAll();
    }
}

void NetworkCamera::Run()
{
    KyPlatform::TightenTimers();
    while (!mStop)
    {
        RunRequests();
        // A frozen camera still runs requests, or nothing could thaw it.
        if (!mFrozen)
        {
            Step();
        }
        WaitAndReceive();
    }
    RunRequests(); // those that came last: their callers wait for them
}

void NetworkCamera::Step()
{
    const Time lNow = Now();
    if (mBack <= lNow)
    {
        // The address may be gone for a while, with a cable or an interface; it is tried again until it is there.
        mBack = OpenSockets() ? cNever : lNow + cRetry;
    }
    // First: a delayed command of the controller renews the heartbeat before the server looks at it.
    mGate.Step(lNow);
    mServer.Step(lNow);
    mChannel.Step(lNow); // last: what a command raises leaves after its acknowledge
}

/// One datagram of each socket that has some: to look for a second costs as much as to wait again.
void NetworkCamera::WaitAndReceive()
{
    const std::array<UdpSocket*, 3> lSockets = {&mControl, &mBroadcast, &mMessages};
    constexpr std::array cKinds = {DatagramKind::Command, DatagramKind::Command,
                                   DatagramKind::EventAcknowledge};
    const Time lDue = std::min({mGate.NextDue(), mServer.NextDue(), mChannel.NextDue(), mBack});
    // What a frozen camera has to do stays due. Without this exception it would not wait at all.
    const bool lTimed = lDue != cNever && !mFrozen;
    const bool lEnds = lTimed && mWaker.EndBy(Waker::Clock::time_point(lDue));
    const Time lTimeout = lTimed && !lEnds ? std::max(lDue - Now(), Time(0)) : cForever;
    uint32_t lReady = 0;
    if (UdpSocket::Wait(lSockets, lTimeout, &mWaker, &lReady) == SocketResult::Failed)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // short of memory; not in circles
    }
    for (size_t lIndex = 0; lIndex < lSockets.size(); ++lIndex)
    {
        if ((lReady & 1U << lIndex) != 0)
        {
            Receive(*lSockets[lIndex], cKinds[lIndex]);
        }
    }
}

void NetworkCamera::Receive(UdpSocket& aSocket, DatagramKind aKind)
{
    std::array<uint8_t, cReceiveBuffer> lBuffer; // not cleared: receiving fills it
    Endpoint lFrom;
    size_t lSize = 0;
    if (aSocket.Receive(lBuffer, lSize, &lFrom, Time(0)) != SocketResult::Done)
    {
        return; // closed meanwhile, or a broken datagram
    }
    // Received and thrown away: a queue of old commands would be answered after the thaw.
    if (mFrozen)
    {
        ++mUnheard;
        return;
    }
    // The command that the cable is pulled at is not executed.
    if (aKind == DatagramKind::Command && mUntilUnplugged > 0 && --mUntilUnplugged == 0)
    {
        CloseSockets();
        return;
    }
    const Time lNow = Now();
    mGate.Pass(aKind, lFrom, Bytes(lBuffer).first(lSize), lNow);
    mChannel.Step(lNow);
}

void NetworkCamera::Dispatch(DatagramKind aKind, const Endpoint& aPeer, Bytes aData)
{
    switch (aKind)
    {
    case DatagramKind::Command:
        mServer.Handle(aPeer, aData, Now());
        return;
    case DatagramKind::Acknowledge:
        static_cast<void>(mControl.SendTo(aPeer, aData)); // ignored: datagrams may get lost
        return;
    case DatagramKind::Event:
        static_cast<void>(mMessages.SendTo(aPeer, aData)); // ignored: the same
        return;
    case DatagramKind::EventAcknowledge:
        mChannel.HandleAcknowledge(aPeer, aData);
        return;
    }
}

void NetworkCamera::SendAcknowledge(const Endpoint& aTo, Bytes aPacket)
{
    mGate.Pass(DatagramKind::Acknowledge, aTo, aPacket, Now());
}

void NetworkCamera::OnChannelChanged(const ChannelSettings& aSettings)
{
    mChannel.Configure(aSettings);
}

void NetworkCamera::ChangeFaults(const std::function<void(NetworkFaults&)>& aChange)
{
    Ask(
        [&]
        {
            aChange(mFaults);
            // Applications learn from it how long to wait; half as long again, for a busy computer.
            const auto lSilent =
                std::chrono::ceil<std::chrono::milliseconds>(mFaults.GetSilentTime() * 3 / 2);
            mRegisters.GetBootstrap().Set(
                cPendingTimeoutRegister,
                std::max(BootstrapRegisters::cPendingTimeout, static_cast<uint32_t>(lSilent.count())));
        });
}

ForcedAddress NetworkCamera::PowerUpAddress() const
{
    const BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
    // A persistent address that is not switched on may be stale or never written.
    if ((lRegisters.Get(cInterfaceConfigurationRegister) & cPersistentIp) == 0)
    {
        return {mFirstAddress, MaskOf(mFirstAddress), 0};
    }
    return {lRegisters.Get(cPersistentAddressRegister), lRegisters.Get(cPersistentMaskRegister),
            lRegisters.Get(cPersistentGatewayRegister)};
}

bool NetworkCamera::MoveTo(const ForcedAddress& aAddress)
{
    // A forced address of 0 asks the device for the address that it takes at power-up.
    const ForcedAddress lNew = aAddress.mAddress != 0 ? aAddress : PowerUpAddress();
    const uint32_t lOld = std::exchange(mPlace.mEndpoint.mAddress, lNew.mAddress);
    // A change of the mask alone keeps the sockets, and the datagrams that wait in them.
    if (lNew.mAddress != lOld)
    {
        CloseSockets();
        if (!OpenSockets())
        {
            mPlace.mEndpoint.mAddress = lOld; // not an address of this computer
            mBack = OpenSockets() ? cNever : Now() + cRetry;
            return false;
        }
    }
    mRegisters.SetPlace(lNew.mAddress, lNew.mMask, lNew.mGateway);
    return true;
}

Endpoint NetworkCamera::GetEndpoint()
{
    Endpoint lEndpoint;
    Ask([&] { lEndpoint = mPlace.mEndpoint; });
    return lEndpoint;
}

void NetworkCamera::Freeze(bool aFrozen)
{
    Ask([&] { mFrozen = aFrozen; });
}

void NetworkCamera::Unplug()
{
    Ask(
        [this]
        {
            CloseSockets();
            mBack = cNever; // the end of a restart does not plug it in
        });
}

void NetworkCamera::Restart(Time aAway)
{
    Ask(
        [&]
        {
            CloseSockets();
            // As after a power cycle: control, message channel and heartbeat are those of the start. Names and the
            // persistent address survive, as they do in a device's flash memory.
            mServer.Restart();
            BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
            lRegisters.Set(cHeartbeatRegister, BootstrapRegisters::cHeartbeat);
            lRegisters.Set(cConfigurationRegister, 0);
            lRegisters.Set(cMessageTimeoutRegister, BootstrapRegisters::cMessageTimeout);
            lRegisters.Set(cMessageRetriesRegister, BootstrapRegisters::cMessageRetries);
            // Ignored: a camera without serial registers has no interrupts to switch off.
            static_cast<void>(mCamera->WriteRegister(KyDeviceProtocol::cInterruptEnable, 0));
            // A forced address does not survive a restart.
            const ForcedAddress lAddress = PowerUpAddress();
            mPlace.mEndpoint.mAddress = lAddress.mAddress;
            mRegisters.SetPlace(lAddress.mAddress, lAddress.mMask, lAddress.mGateway);
            mBack = Now() + aAway;
        });
}

void NetworkCamera::UnplugAt(uint64_t aCommand)
{
    Ask([&] { mUntilUnplugged = aCommand; });
}

bool NetworkCamera::Plug()
{
    bool lOpen = false;
    Ask(
        [&]
        {
            // A camera that is there keeps its sockets. One that is away for a restart comes back now and not
            // a second time.
            lOpen = mControl.IsOpen() || OpenSockets();
            mBack = cNever;
        });
    return lOpen;
}

void NetworkCamera::ReleaseControl()
{
    Ask([this] { mServer.ReleaseControl(); });
}

Endpoint NetworkCamera::GetController()
{
    Endpoint lController;
    Ask([&] { lController = mServer.GetController(); });
    return lController;
}

NetworkCamera::Statistics NetworkCamera::GetStatistics()
{
    Statistics lStatistics;
    Ask(
        [&] {
            lStatistics = {mServer.GetCounters(), mChannel.GetCounters(), mGate.GetCounters(), mUnheard};
        });
    return lStatistics;
}

} // namespace KySimulator
