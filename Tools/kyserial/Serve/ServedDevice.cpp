#include "kyserial/Serve/ServedDevice.h"

#include "kyserial/Device/NetworkDevices.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cRetry = 2000;       // ms
constexpr uint32_t cStandbyRetry = 500; // ms; well under a second after the other one has gone

using Lock = std::unique_lock<std::mutex>;

} // namespace

ServedDevice::ServedDevice(ServedDeviceEntry aEntry, const KyToolPlatform::Console& aConsole,
                           Network& aNetwork, ServiceLog& aLog)
    : mEntry(std::move(aEntry))
    , mConsole(aConsole)
    , mNetwork(aNetwork)
    , mLog(aLog)
    , mWanted(mEntry.mPorts)
    , mLevel(mEntry.mLevel)
{
    Ask();
}

ServedDevice::~ServedDevice()
{
    AskToEnd();
    Lock lLock(mLock);
    mResting.wait(lLock, [this] { return !mIsBusy; });
    if (mWorker.joinable())
    {
        mWorker.join(); // it has left the lock for the last time
    }
    if (!mHasEnded) // the system has no thread for it
    {
        lLock.unlock();
        End();
    }
}

void ServedDevice::AskToEnd()
{
    mStop = true;
    Ask();
}

void ServedDevice::Update(const ServedDeviceEntry& aEntry)
{
    std::vector<ServedPortEntry> lWanted = aEntry.mPorts; // as a whole or not at all
    {
        const Lock lLock(mLock);
        mWanted = std::move(lWanted);
        mLevel = aEntry.mLevel;
    }
    Ask();
}

void ServedDevice::Ask()
{
    const Lock lLock(mLock);
    mHasWork = true;
    StartWork();
}

// Under mLock. A thread that is busy now does it afterwards.
void ServedDevice::StartWork()
{
    if (mIsBusy || mHasEnded)
    {
        return;
    }
    if (mWorker.joinable())
    {
        mWorker.join(); // does not wait: it has left the lock for the last time
    }
    try
    {
        mWorker = std::thread([this] { Work(); }); // it waits for the lock
        mIsBusy = true;
    }
    catch (const std::exception&)
    {
        // Short of threads or of memory. The next look tries again, and the destructor waits for nobody.
    }
}

// Under mLock.
void ServedDevice::Rest()
{
    mIsBusy = false;
    mResting.notify_all();
}

void ServedDevice::Look()
{
    {
        const Lock lLock(mLock);
        if (mIsBusy || mHasEnded)
        {
            return;
        }
        mHasWork = mHasWork || (!IsComplete() && mNextTry.IsOver());
        if (mHasWork)
        {
            StartWork();
            return;
        }
        mIsBusy = true; // no worker starts while this thread has the ports
    }
    try
    {
        Follow();
    }
    catch (const std::exception&)
    {
        // Short of memory: the log misses a line, and the device is free for the next look.
    }
    const Lock lLock(mLock);
    Rest();
    if (mHasWork) // asked for meanwhile
    {
        StartWork();
    }
}

// Not under mLock.
void ServedDevice::Say(LogLevel aLevel, const std::string& aText) const
{
    std::optional<LogLevel> lMost;
    {
        const Lock lLock(mLock);
        lMost = mLevel;
    }
    mLog.Add(aLevel, mEntry.mName + aText, lMost);
}

void ServedDevice::Say(LogLevel aLevel, const Port& aPort, const std::string& aText) const
{
    Say(aLevel, ' ' + PortName(aPort.mEntry.mBridge.mPort) + aText);
}

void ServedDevice::Work()
{
    while (WorkOnce())
    {
    }
}

// \return False: nothing is left to do, and the device is somebody else's.
bool ServedDevice::WorkOnce()
{
    {
        const Lock lLock(mLock);
        if (!mHasWork || mHasEnded)
        {
            Rest();
            return false;
        }
        mHasWork = false;
    }
    try
    {
        if (mStop)
        {
            End();
        }
        else
        {
            Serve();
        }
        return true;
    }
    catch (const std::exception&) // short of memory; what runs goes on, and the next look tries again
    {
        const Lock lLock(mLock);
        mHasWork = true;
        Rest();
        return false;
    }
}

void ServedDevice::Serve()
{
    Adopt();
    Connect();
    StartPorts();
    Follow();
    const Lock lLock(mLock);
    // Counted from the end of a try, so that one that takes long is not followed by the next at once.
    mNextTry = KyPlatform::Deadline(mStandby ? cStandbyRetry : cRetry);
}

void ServedDevice::End()
{
    std::vector<PortPtr> lPorts;
    {
        const Lock lLock(mLock);
        lPorts.swap(mPorts);
        mConnected = false;
    }
    lPorts.clear(); // before their device
    mDevice.reset();
    mHasEnded = true;
}

// Ports that are as before go on; the others end before any new one starts, which may want what they have.
void ServedDevice::Adopt()
{
    std::vector<PortPtr> lLeaving;
    {
        const Lock lLock(mLock);
        if (!mWanted.has_value())
        {
            return;
        }
        std::vector<PortPtr> lPorts;
        lLeaving = mPorts;
        for (const ServedPortEntry& lEntry : *mWanted)
        {
            const auto lPlace = std::find_if(lLeaving.begin(), lLeaving.end(),
                                             [&](const PortPtr& aPort)
                                             { return aPort != nullptr && aPort->mEntry.IsSame(lEntry); });
            lPorts.push_back(lPlace != lLeaving.end() ? std::exchange(*lPlace, nullptr)
                                                      : std::make_shared<Port>());
        }
        // Nothing fails from here on: what is wanted is adopted as a whole.
        for (size_t lIndex = 0; lIndex < lPorts.size(); ++lIndex)
        {
            lPorts[lIndex]->mEntry = std::move(mWanted->at(lIndex)); // it may stand in another line now
        }
        mPorts = std::move(lPorts);
        mWanted.reset();
    }
    // Without the lock: an end waits for the device, and the status must not wait with it.
    for (const PortPtr& lPort : lLeaving)
    {
        if (lPort != nullptr && lPort->mBridge.has_value())
        {
            lPort->mBridge->End();
            Say(LogLevel::Information, *lPort, ": ended");
        }
    }
}

bool ServedDevice::IsComplete() const
{
    return !mWanted.has_value() && mDevice != nullptr &&
           std::all_of(mPorts.begin(), mPorts.end(),
                       [](const PortPtr& aPort) { return aPort->mBridge.has_value(); });
}

// \return Why there is no device; empty: it is connected.
std::string ServedDevice::TryToConnect(bool& aStandby)
{
    DeviceSelection lSelection{mEntry.mDevice, mEntry.mSimulator};
    try
    {
        mDevice = OpenDevice(lSelection, mConsole, DeviceAccess::Control);
        return {};
    }
    catch (const OperationError& lFailure)
    {
        aStandby = lFailure.GetCode() == cControlledByAnother;
        if (!aStandby)
        {
            return lFailure.what();
        }
    }
    catch (const std::exception& lFailure)
    {
        return lFailure.what();
    }
    // The answer is of interest when it changes; to ask takes as long as a try.
    const std::string lWho = FindNetworkController(lSelection.mName);
    return "standing by: another application controls the device" +
           (lWho.empty() ? std::string() : ", at " + lWho);
}

void ServedDevice::Connect()
{
    if (mDevice != nullptr)
    {
        return;
    }
    bool lStandby = false;
    const std::string lError = TryToConnect(lStandby);
    bool lIsNews = false;
    bool lTakesOver = false;
    {
        const Lock lLock(mLock);
        lIsNews = lError != mError || lError.empty();
        lTakesOver = mStandby && lError.empty();
        mError = lError;
        mStandby = lStandby;
    }
    if (lIsNews) // said once, not with every try
    {
        Say(lError.empty() || lStandby ? LogLevel::Information : LogLevel::Error,
            ": " + (!lError.empty() ? lError
                    : lTakesOver    ? "connected; the other application is gone"
                                    : "connected"));
    }
}

std::string ServedDevice::TryToStart(Port& aPort)
{
    try
    {
        const BridgeSelection& lSelection = aPort.mEntry.mBridge;
        // The record first: it has the first byte too.
        const std::string lFault = lSelection.mLogFile.empty()
                                       ? std::string()
                                       : aPort.mLog.Open(lSelection.mLogFile, lSelection.mLogLimit);
        if (!lFault.empty())
        {
            return "log: " + lFault;
        }
        aPort.mBridge.emplace(lSelection, *mDevice, mNetwork, aPort.mLog, &aPort.mRecent);
        return {};
    }
    catch (const std::exception& lFailure)
    {
        return lFailure.what();
    }
}

void ServedDevice::StartPorts()
{
    if (mDevice == nullptr)
    {
        return;
    }
    for (const PortPtr& lPort : mPorts)
    {
        if (lPort->mBridge.has_value() || mStop)
        {
            continue;
        }
        // The status reads the list meanwhile: it finds the former try there until this one has ended.
        auto lTried = std::make_shared<Port>();
        lTried->mEntry = lPort->mEntry;
        lTried->mError = TryToStart(*lTried);
        const bool lIsNews = lTried->mError.empty() || lTried->mError != lPort->mError;
        {
            const Lock lLock(mLock);
            *std::find(mPorts.begin(), mPorts.end(), lPort) = lTried;
        }
        if (!lIsNews)
        {
            continue;
        }
        if (lTried->mError.empty())
        {
            Say(LogLevel::Information, *lTried, " is " + lTried->mBridge->GetHost());
        }
        else
        {
            Say(LogLevel::Error, *lTried, ": " + lTried->mError);
        }
    }
}

// The bridges see to a device that was away; this only says so.
void ServedDevice::Follow()
{
    const bool lConnected = mDevice != nullptr && mDevice->GetAdapter().IsConnected();
    const uint64_t lGeneration = mDevice != nullptr ? mDevice->GetGeneration() : 0;
    {
        const Lock lLock(mLock);
        mConnected = lConnected;
        mGeneration = lGeneration;
    }
    for (const PortPtr& lPort : mPorts)
    {
        if (!lPort->mBridge.has_value())
        {
            continue;
        }
        // A user who watches the record sees what has passed one look later at most.
        lPort->mLog.Flush();
        for (const BridgedPort::DeviceChange& lChange : lPort->mBridge->TakeChanges())
        {
            const std::string lText =
                lChange.mIsBack
                    ? "the device is back; " + std::to_string(lChange.mLost) + " bytes to it are lost"
                    : "the device is gone";
            lPort->mLog.AddNote(lText);
            const bool lIsGood = lChange.mIsBack && lChange.mLost == 0;
            Say(lIsGood ? LogLevel::Information : LogLevel::Warning, *lPort, ": " + lText);
        }
        for (const std::string& lNews : lPort->mBridge->TakeNews())
        {
            Say(LogLevel::Warning, *lPort, ": " + lNews);
        }
    }
}

ServedDeviceStatus ServedDevice::GetStatus() const
{
    ServedDeviceStatus lStatus;
    const Lock lLock(mLock);
    lStatus.mName = mEntry.mName;
    lStatus.mDevice = mEntry.mDevice;
    lStatus.mConnected = mConnected;
    lStatus.mStandby = mStandby;
    lStatus.mGeneration = mGeneration;
    lStatus.mError = mError;
    for (const PortPtr& lPort : mPorts)
    {
        ServedPortStatus lPortStatus;
        lPortStatus.mPort = PortName(lPort->mEntry.mBridge.mPort);
        lPortStatus.mHost = lPort->mEntry.mBridge.mHost.mName;
        lPortStatus.mTerminal = lPort->mEntry.mTerminal;
        lPortStatus.mError = lPort->mError;
        if (lPort->mBridge.has_value())
        {
            lPortStatus.mRuns = true;
            // The place that the host side has, with the port that was free where the file has port 0.
            lPortStatus.mHost = lPort->mBridge->GetHost();
            lPortStatus.mLine = lPort->mBridge->GetLine();
            lPortStatus.mLastTraffic = lPort->mBridge->GetLastTraffic();
            lPortStatus.mCounts = lPort->mBridge->GetCounts();
            lPortStatus.mTcp = lPort->mBridge->GetTcpCounts();
        }
        lStatus.mPorts.push_back(lPortStatus);
    }
    return lStatus;
}

// Under mLock.
ServedDevice::PortPtr ServedDevice::FindRunning(const std::string& aPort) const
{
    const auto lPlace = std::find_if(mPorts.begin(), mPorts.end(),
                                     [&](const PortPtr& aCandidate)
                                     { return PortName(aCandidate->mEntry.mBridge.mPort) == aPort; });
    return lPlace != mPorts.end() && (*lPlace)->mBridge.has_value() ? *lPlace : nullptr;
}

std::optional<std::vector<TrafficBlock>> ServedDevice::GetTraffic(const std::string& aPort, uint64_t aCount,
                                                                  uint64_t& aNext) const
{
    const Lock lLock(mLock);
    const PortPtr lPort = FindRunning(aPort);
    return lPort != nullptr ? std::optional(lPort->mRecent.GetAfter(aCount, aNext)) : std::nullopt;
}

ServedDevice::SendEnd ServedDevice::Send(const std::string& aPort, const std::string& aBytes)
{
    const Lock lLock(mLock);
    const PortPtr lPort = FindRunning(aPort);
    if (lPort == nullptr)
    {
        return SendEnd::NoPort;
    }
    // The token is that of the whole service. Whether the page may send is for each port to say.
    if (!lPort->mEntry.mTerminal)
    {
        return SendEnd::NotAllowed;
    }
    return lPort->mBridge->Insert(aBytes) ? SendEnd::Sent : SendEnd::Busy;
}

} // namespace KySerialTool
