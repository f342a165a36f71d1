#include "Adapters/GigE/Client/GvcpClient.h"

#include "Adapters/GigE/Client/ParseInformation.h"

#include "KyGvcp/HostName.h"
#include "Libraries/KySerial/OutOfMemory.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Logger.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using JxUtilsLib::Logger;
using KyPlatform::Deadline;
using KySerialLib::AskWithMemory;
using KySerialLib::CatchOutOfMemory;

namespace
{

constexpr char cSourceFile[] = "Adapters/GigE/Client/GvcpClient";
constexpr char cLogCategory[] = "KyGigE";
constexpr uint32_t cHasSourcePort = 0x80000000U;

void Warn(int aLine, const char* aFunction, const std::string& aText)
{
    const Logger lLogger(cLogCategory);
    if (lLogger.IsPriorityEnabled(JxUtilsLib::PriorityWarning))
    {
        lLogger.Log(JxUtilsLib::PriorityWarning, cSourceFile, aLine, aFunction, "%s", aText.c_str());
    }
}

KyResult Failure(uint32_t aCode, const std::string& aText)
{
    return {aCode, KyString(aText.c_str())};
}

KyResult ReadOnlyResult()
{
    return Failure(KyGvcp::cAccessDenied, "The device is connected for reading only.");
}

/// " (Korvo X1 S17)": what the device is called, as far as it says.
std::string NameText(const DeviceInformation& aInformation)
{
    std::string lName;
    for (const std::string& lPart :
         {aInformation.mVendor, aInformation.mModel, aInformation.mSerialNumber, aInformation.mUserName})
    {
        lName += (lPart.empty() || lName.empty() ? "" : " ") + lPart;
    }
    return lName.empty() ? lName : " (" + lName + ')';
}

} // namespace

GvcpClient::GvcpClient(const DeviceAddress& aAddress, const ConnectionOptions& aOptions)
    : mAddress(aAddress), mOptions(aOptions), mControl(aOptions.mControl, aOptions.mCancel)
{
}

// Where the own end has to be now. Addresses of this computer may change.
KyResult GvcpClient::FindOwnSide()
{
    if (mInterface.empty())
    {
        return FindRoute(mDevice, mOwn)
                   ? KyResult()
                   : Failure(KyResult::NO_CONNECTION, "There is no way to " + Where() + ".");
    }
    const std::string lError = FindInterface(mInterface, mDevice, mOwn);
    return lError.empty() ? KyResult() : Failure(KyResult::FAILURE, lError);
}

// A name is asked for once: the device that is connected stays the same one.
KyResult GvcpClient::FindDevice()
{
    std::chrono::milliseconds lLongest = KyGvcp::cLongestLookUp;
    if (mOptions.mConnectLimit != 0)
    {
        // The look-up is part of the time that the caller gives for the whole connection.
        lLongest = std::min(lLongest, std::chrono::milliseconds(mOptions.mConnectLimit));
    }
    std::string lError;
    const auto lDevice = KyGvcp::FindAddress(
        mAddress.mAddress, lLongest, [this] { return mControl.IsCancelled(); }, lError);
    if (mControl.IsCancelled())
    {
        return Failure(KyResult::NO_CONNECTION, "Connecting the device at " + Where() + " was cancelled.");
    }
    if (!lDevice)
    {
        const bool lIsName = KyGvcp::IsHostName(mAddress.mAddress);
        return Failure(lIsName ? KyResult::NO_CONNECTION : KyResult::BAD_PARAMETER,
                       "There is no way to " + Where() + ": " + lError + '.');
    }
    mDevice = *lDevice;
    return {};
}

KyResult GvcpClient::OpenSockets(MessageChannel::EventHandler aEvents)
{
    KyResult lKnown = FindDevice();
    if (!lKnown.IsOK())
    {
        return lKnown;
    }
    mInterface = mAddress.mInterface;
    if (mInterface.empty())
    {
        // Two interfaces may have the same network. The one that the device answers at is kept for good.
        const std::string lError =
            ChooseInterface(mDevice, mAddress.mPort, 2 * mOptions.mControl.mTimeout, mInterface);
        if (!lError.empty())
        {
            return Failure(KyResult::FAILURE, lError);
        }
    }
    KyResult lResult = FindOwnSide();
    if (lResult.IsOK())
    {
        lResult = mControl.Open({mDevice, mAddress.mPort}, mOwn.mAddress, mOwn.mInterface);
    }
    return lResult.IsOK() ? mMessages.Open(mOwn.mAddress, mDevice, std::move(aEvents), mOwn.mInterface)
                          : lResult;
}

// Sockets are made anew when the own end has moved. Else they stay: the device knows the application by them.
KyResult GvcpClient::FollowOwnSide()
{
    const OwnSide lBefore = mOwn;
    KyResult lResult = FindOwnSide();
    if (!lResult.IsOK() || mOwn == lBefore)
    {
        return lResult;
    }
    lResult = mControl.Open({mDevice, mAddress.mPort}, mOwn.mAddress, mOwn.mInterface);
    if (lResult.IsOK())
    {
        lResult = mMessages.Move(mOwn.mAddress, mOwn.mInterface);
    }
    if (!lResult.IsOK())
    {
        mOwn = {}; // the next attempt opens them
    }
    return lResult;
}

KyResult GvcpClient::Open(MessageChannel::EventHandler aEvents, Preparation aPrepare)
{
    Close();
    mPrepare = std::move(aPrepare);
    KyResult lResult = OpenSockets(std::move(aEvents));
    if (lResult.IsOK())
    {
        const LockScope lScope(mConnecting);
        // The device that answers now is the one that later connections have to find again.
        mIdentified = false;
        lResult = Connect();
    }
    if (!lResult.IsOK())
    {
        mMessages.Close();
        return lResult;
    }
    {
        const LockScope lScope(mLock);
        mStop = false;
    }
    mKeeper = std::thread([this] { Keep(); });
    return lResult;
}

void GvcpClient::Close()
{
    // The keeper first: it would connect again.
    if (mKeeper.joinable())
    {
        {
            const LockScope lScope(mLock);
            mStop = true;
            mChanged.NotifyAll();
        }
        mKeeper.join();
    }
    GiveBack(); // nothing, unless the device may be this application's
    mConnected = false;
    mControl.SetShut(true);
    mMessages.Close();
}

// A device that does not answer, or not in time, may still receive it. If not, the device frees itself after the
// heartbeat's time-out.
void GvcpClient::GiveBack() noexcept
{
    mMessages.Deafen();
    if (!mMayControl.exchange(false))
    {
        return;
    }
    // The control last: without it the device refuses to close its message channel.
    constexpr std::array cRegisters = {KyGvcp::cMessagePortRegister, KyGvcp::cControlPrivilegeRegister};
    for (const uint32_t lRegister : cRegisters)
    {
        if (!mHasEvents && lRegister == KyGvcp::cMessagePortRegister)
        {
            continue;
        }
        const bool lHeard = AskWithMemory(
            [&] { return mControl.WriteRegister(lRegister, 0).GetCode() != KyResult::NO_CONNECTION; });
        if (!lHeard)
        {
            mControl.SendRegister(lRegister, 0);
        }
    }
}

KyResult GvcpClient::Reconnect()
{
    const LockScope lScope(mConnecting);
    // Another thread may have connected while this one waited for the lock.
    if (IsConnected())
    {
        return {};
    }
    LoseConnection(mControl.GetConnection(), "it does not answer."); // if no thread has noticed yet
    KyResult lResult = FollowOwnSide();
    return lResult.IsOK() ? Connect() : lResult;
}

KyResult GvcpClient::Connect()
{
    mConnected = false;
    // From here on operations that began on the former connection are refused: nothing is set up yet.
    mControl.Begin();
    mControl.SetEnd(Deadline(mOptions.mConnectLimit != 0 ? mOptions.mConnectLimit : KyPlatform::cInfinite));
    // The lock that the steps need is held here; the analysis does not follow it into the lambda.
    KyResult lResult = CatchOutOfMemory([this]() JX_NO_THREAD_SAFETY_ANALYSIS { return RunSteps(); });
    if (!lResult.IsOK() || mControl.IsOver()) // steps may do without single answers
    {
        lResult = Explained(lResult);
        // The device is given back at once: it would refuse others until the heartbeat's time-out.
        GiveBack();
        mControl.SetShut(true);
    }
    mControl.SetEnd(Deadline(KyPlatform::cInfinite));
    if (lResult.IsOK())
    {
        ++mGeneration; // first: a thread that sees the connection sees its new number
        mConnected = true;
    }
    return lResult;
}

KyResult GvcpClient::RunSteps()
{
    KyResult lResult = Identify();
    for (KyResult (GvcpClient::*const lStep)() : {&GvcpClient::CheckExclusive, &GvcpClient::TakeControl,
                                                  &GvcpClient::LearnTimes, &GvcpClient::StartEvents})
    {
        if (lResult.IsOK())
        {
            lResult = (this->*lStep)();
        }
    }
    // The preparation is last: it reads the description, and needs the times of the device for that.
    return lResult.IsOK() ? mPrepare() : lResult;
}

// What a step's failure means for the connection as a whole.
KyResult GvcpClient::Explained(const KyResult& aResult) const
{
    if (mControl.IsCancelled())
    {
        return Failure(KyResult::NO_CONNECTION, "Connecting the device at " + Where() + " was cancelled.");
    }
    if (mControl.IsOver())
    {
        return Failure(KyResult::TIMED_OUT, "The device at " + Where() + " was not connected within " +
                                                std::to_string(mOptions.mConnectLimit) + " ms.");
    }
    return aResult;
}

// By the answer to discovery: it comes also to those without access, and from devices that refuse to read
// over gaps between registers.
KyResult GvcpClient::Identify()
{
    std::array<uint8_t, KyGvcp::cDiscoverySize> lRegisters{};
    KyResult lResult = mControl.Discover(lRegisters);
    if (lResult.GetCode() == KyResult::NO_CONNECTION)
    {
        return Failure(KyResult::NO_CONNECTION, "No device answers at " + Where() + ".");
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    const DeviceInformation lInformation = ParseInformation(lRegisters);
    if (!mIdentified)
    {
        mInformation = lInformation;
        mIdentified = true;
        return lResult;
    }
    // An address may have passed to another device since. Its ports are not those that are open here.
    return lInformation.mMac == mInformation.mMac && lInformation.mSerialNumber == mInformation.mSerialNumber
               ? lResult
               : Failure(KyResult::NO_CONNECTION, "Another device answers at " + Where() + ".");
}

// Before anything else is read: exclusive access lets others read this one register at the most.
KyResult GvcpClient::CheckExclusive()
{
    uint32_t lPrivilege = 0;
    KyResult lResult = mControl.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege);
    if (lResult.GetCode() == KyResult::NO_CONNECTION)
    {
        return lResult;
    }
    return lResult.GetCode() == KyGvcp::cAccessDenied || (lPrivilege & KyGvcp::cExclusiveAccess) != 0
               ? TakenResult("has exclusive access to the device" + NameText(mInformation))
               : KyResult();
}

// Some devices do not answer those that are not in control when they write.
bool GvcpClient::IsTakenInSilence(const KyResult& aResult)
{
    if (aResult.GetCode() != KyResult::NO_CONNECTION || mControl.IsOver())
    {
        return false;
    }
    // The write that was not answered has shut the channel, and the question below needs it.
    mControl.SetShut(false);
    uint32_t lPrivilege = 0;
    return mControl.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege).IsOK() &&
           (lPrivilege & (KyGvcp::cControlAccess | KyGvcp::cExclusiveAccess)) != 0;
}

KyResult GvcpClient::TakenResult(const std::string& aWhat)
{
    uint32_t lAddress = 0;
    uint32_t lPort = 0;
    // Results ignored: whose it is adds to the message, no more.
    static_cast<void>(mControl.ReadRegister(KyGvcp::cPrimaryAddressRegister, lAddress));
    static_cast<void>(mControl.ReadRegister(KyGvcp::cPrimaryPortRegister, lPort));
    const std::string lOwner =
        lAddress == 0 ? "" : " (" + KyGvcp::EndpointText({lAddress, static_cast<uint16_t>(lPort)}) + ")";
    return Failure(KyGvcp::cAccessDenied,
                   "Another application" + lOwner + ' ' + aWhat + " at " + Where() + '.');
}

KyResult GvcpClient::TakeControl()
{
    if (mOptions.mReadOnly)
    {
        return {};
    }
    mMayControl = true; // from the moment when the device may have got the command
    KyResult lResult = mControl.WriteRegister(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess);
    if (lResult.GetCode() == KyGvcp::cAccessDenied || IsTakenInSilence(lResult))
    {
        mMayControl = false;
        return TakenResult("controls the device");
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    // Ignored: a device that keeps its own time-out does not report it, and the heartbeat of half a second is below any.
    static_cast<void>(mControl.WriteRegister(KyGvcp::cHeartbeatRegister, mOptions.mHeartbeatTimeout));
    // A device that does not answer has shut the channel, also with the write whose result is ignored.
    return mControl.IsShut() ? NotConnected() : lResult;
}

// A register that devices of older versions lack. Some do not even answer then.
bool GvcpClient::ReadOptional(uint32_t aAddress, uint32_t& aValue)
{
    const KyResult lResult = mControl.ReadRegister(aAddress, aValue);
    if (lResult.GetCode() == KyResult::NO_CONNECTION)
    {
        mControl.SetShut(false); // a device that is gone does not answer the next command either
    }
    return lResult.IsOK();
}

// How long commands may take. A device announces slow ones only where it is allowed to.
KyResult GvcpClient::LearnTimes()
{
    uint32_t lCapability = 0;
    uint32_t lConfiguration = 0;
    uint32_t lPending = 0;
    mControl.SetPatience(0);
    if (ReadOptional(KyGvcp::cPendingTimeoutRegister, lPending))
    {
        mControl.SetPatience(lPending);
    }
    if (!mOptions.mReadOnly && ReadOptional(KyGvcp::cCapabilityRegister, lCapability) &&
        (lCapability & KyGvcp::cCanPendingAck) != 0 &&
        ReadOptional(KyGvcp::cConfigurationRegister, lConfiguration) &&
        (lConfiguration & KyGvcp::cPendingAckEnabled) == 0)
    {
        // Ignored: a device that refuses it is waited for in silence.
        static_cast<void>(mControl.WriteRegister(KyGvcp::cConfigurationRegister,
                                                 lConfiguration | KyGvcp::cPendingAckEnabled));
    }
    return mControl.IsShut() ? NotConnected() : KyResult();
}

KyResult GvcpClient::StartEvents()
{
    uint32_t lChannels = 0;
    KyResult lResult;
    mHasEvents = false;
    if (mOptions.mReadOnly)
    {
        return lResult;
    }
    lResult = mControl.ReadRegister(KyGvcp::cMessageChannelCountRegister, lChannels);
    mHasEvents = lResult.IsOK() && lChannels > 0;
    if (!mHasEvents)
    {
        // A device without the register has no message channel either.
        return mControl.IsShut() ? lResult : KyResult();
    }
    mMessages.Deafen(); // until it is known which port is the device's
    lResult = ConfigureEvents();
    if (!lResult.IsOK())
    {
        return lResult;
    }
    uint32_t lCapability = 0;
    uint32_t lPort = 0;
    if (ReadOptional(KyGvcp::cMessageCapabilityRegister, lCapability) && (lCapability & cHasSourcePort) != 0)
    {
        static_cast<void>(ReadOptional(KyGvcp::cMessageSourcePortRegister, lPort)); // 0: unknown
    }
    mMessages.Listen(static_cast<uint16_t>(lPort));
    mMessages.OpenWay();
    return lResult;
}

KyResult GvcpClient::ConfigureEvents()
{
    const KyGvcp::Endpoint lOwn = mMessages.GetLocal();
    const std::array<std::pair<uint32_t, uint32_t>, 4> lSettings = {
        {{KyGvcp::cMessageAddressRegister, lOwn.mAddress},
         {KyGvcp::cMessageTimeoutRegister, mOptions.mEventTimeout},
         {KyGvcp::cMessageRetriesRegister, mOptions.mEventRetries},
         // Last: the port opens the channel, and the device sends from then on.
         {KyGvcp::cMessagePortRegister, lOwn.mPort}}};
    for (const auto& [lRegister, lValue] : lSettings)
    {
        KyResult lResult = mControl.WriteRegister(lRegister, lValue);
        // A device that keeps its own times still sends its events.
        const bool lIsTime =
            lRegister == KyGvcp::cMessageTimeoutRegister || lRegister == KyGvcp::cMessageRetriesRegister;
        if (!lResult.IsOK() && (!lIsTime || mControl.IsShut()))
        {
            return lResult;
        }
    }
    return {};
}

uint64_t GvcpClient::GetLosses()
{
    const LockScope lScope(mLock);
    // A user's command has shut the channel, and the keeper has not come to count it yet.
    const bool lIsUncounted = mConnected && mControl.IsShut();
    return mLosses + (lIsUncounted ? 1 : 0);
}

// A thread may find a connection lost after a new one has been made. The new one stays.
void GvcpClient::LoseConnection(uint64_t aConnection, const char* aReason)
{
    if (aConnection != mControl.GetConnection())
    {
        return;
    }
    {
        const LockScope lScope(mLock); // for GetLosses()
        if (!mConnected.exchange(false))
        {
            return;
        }
        // Exactly one caller gets here for each connection: the exchange above decides between keeper and users.
        ++mLosses;
    }
    mControl.SetShut(true);
    Warn(__LINE__, "KyGigE::GvcpClient::LoseConnection",
         "The connection to the device at " + Where() + " is lost: " + aReason);
    const LockScope lScope(mLock);
    mHasWork = true; // a keeper that is busy now would sleep through the notification
    mChanged.NotifyAll();
}

// Whether the device still takes this for the application in control. A write fails when another application
// has got the control, or when the device has started anew; some devices let everybody write, so they are
// asked too. \return OK; NO_CONNECTION: no answer; 0x8006: it does not.
KyResult GvcpClient::ProveControl(uint64_t aConnection)
{
    KyResult lResult;
    if (!mOptions.mReadOnly)
    {
        lResult = mControl.WriteRegister(KyGvcp::cHeartbeatRegister, mOptions.mHeartbeatTimeout, aConnection);
        if (lResult.GetCode() == KyResult::NO_CONNECTION || lResult.GetCode() == KyGvcp::cAccessDenied ||
            lResult.GetCode() == KyGvcp::cBusy)
        {
            // A busy device is alive. The next heartbeat asks it again.
            return lResult.GetCode() == KyGvcp::cBusy ? KyResult() : lResult;
        }
    }
    const bool lAlive = lResult.IsOK(); // else the time-out is fixed; any access is a sign of life
    uint32_t lPrivilege = 0;
    lResult = mControl.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege, aConnection);
    const bool lControlled = (lPrivilege & (KyGvcp::cControlAccess | KyGvcp::cExclusiveAccess)) != 0;
    if (lResult.IsOK())
    {
        return lControlled || mOptions.mReadOnly ? KyResult() : KyResult(KyGvcp::cAccessDenied);
    }
    return lAlive && lResult.GetCode() != KyResult::NO_CONNECTION ? KyResult() : lResult;
}

void GvcpClient::SendHeartbeat()
{
    const uint64_t lConnection = mControl.GetConnection();
    const KyResult lResult = ProveControl(lConnection);
    if (lResult.IsOK())
    {
        // Firewalls forget a way that is not used, so each heartbeat opens it again.
        mMessages.OpenWay();
        return;
    }
    LoseConnection(lConnection, lResult.GetCode() == KyResult::NO_CONNECTION
                                    ? "it does not answer."
                                    : "it has withdrawn the control.");
}

// A write that is denied may be the first to meet a device that has started anew, which knows nobody in
// control.
KyResult GvcpClient::Written(const KyResult& aResult, uint64_t aConnection)
{
    if (aResult.GetCode() == KyGvcp::cAccessDenied && mConnected && aConnection == mControl.GetConnection() &&
        ProveControl(aConnection).GetCode() == KyGvcp::cAccessDenied)
    {
        LoseConnection(aConnection, "it has withdrawn the control.");
        return NotConnected();
    }
    return aResult;
}

void GvcpClient::Keep()
{
    for (;;)
    {
        {
            const LockScope lScope(mLock);
            if (!mStop && !mHasWork)
            {
                mChanged.WaitFor(mLock, mOptions.mHeartbeatPeriod);
            }
            if (mStop)
            {
                return;
            }
            mHasWork = false;
        }
        // Without memory something is left undone; the next turn does it.
        static_cast<void>(AskWithMemory(
            [this]
            {
                LookAfter();
                return true;
            }));
    }
}

void GvcpClient::LookAfter()
{
    if (IsConnected())
    {
        SendHeartbeat();
    }
    // A user's command has met a silent device and has shut the channel. The loss is reported here.
    if (mConnected && mControl.IsShut())
    {
        LoseConnection(mControl.GetConnection(), "it does not answer.");
    }
    if (mOptions.mReconnect && !IsConnected() && Reconnect().IsOK())
    {
        Warn(__LINE__, "KyGigE::GvcpClient::LookAfter", "The device at " + Where() + " is connected again.");
    }
}

// The number is taken before the look at mConnected: if the connection is lost in between, it is that of a lost one.
KyResult GvcpClient::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    return ReadRegister(mControl.GetConnection(), aAddress, aValue);
}

KyResult GvcpClient::ReadRegister(uint64_t aConnection, uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    return mConnected ? mControl.ReadRegister(aAddress, aValue, aConnection) : NotConnected();
}

KyResult GvcpClient::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    return WriteRegister(mControl.GetConnection(), aAddress, aValue);
}

KyResult GvcpClient::WriteRegister(uint64_t aConnection, uint32_t aAddress, uint32_t aValue)
{
    if (mOptions.mReadOnly)
    {
        return ReadOnlyResult();
    }
    return mConnected ? Written(mControl.WriteRegister(aAddress, aValue, aConnection), aConnection)
                      : NotConnected();
}

KyResult GvcpClient::ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize)
{
    return ReadMemory(mControl.GetConnection(), aAddress, aBuffer, aSize);
}

KyResult GvcpClient::ReadMemory(uint64_t aConnection, uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize)
{
    return mConnected ? mControl.ReadMemory(aAddress, aBuffer, aSize, aConnection) : NotConnected();
}

KyResult GvcpClient::WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize)
{
    return WriteMemory(mControl.GetConnection(), aAddress, aBuffer, aSize);
}

KyResult GvcpClient::WriteMemory(uint64_t aConnection, uint32_t aAddress, const uint8_t* aBuffer,
                                 uint64_t aSize)
{
    if (mOptions.mReadOnly)
    {
        return ReadOnlyResult();
    }
    return mConnected ? Written(mControl.WriteMemory(aAddress, aBuffer, aSize, aConnection), aConnection)
                      : NotConnected();
}

} // namespace KyGigE
