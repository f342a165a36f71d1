#include "Adapters/GigE/Client/GvcpClient.h"

#include "Adapters/GigE/Client/FindInterface.h"
#include "Adapters/GigE/Client/ParseInformation.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Logger.h>

#include <array>
#include <string>
#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using JxUtilsLib::Logger;

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

} // namespace

GvcpClient::GvcpClient(const DeviceAddress& aAddress, const ConnectionOptions& aOptions)
    : mAddress(aAddress), mOptions(aOptions), mControl(aOptions.mControl)
{
}

KyResult GvcpClient::OpenSockets(MessageChannel::EventHandler aEvents)
{
    const auto lDevice = KyGvcp::ParseAddress(mAddress.mAddress);
    uint32_t lLocal = 0;
    if (!lDevice)
    {
        return Failure(KyResult::BAD_PARAMETER, '"' + mAddress.mAddress + "\" is no IPv4 address.");
    }
    if (!mAddress.mInterface.empty() && !FindInterface(mAddress.mInterface, lLocal))
    {
        return Failure(KyResult::FAILURE,
                       "This computer has no network interface " + mAddress.mInterface + ".");
    }
    KyResult lResult = mControl.Open({*lDevice, mAddress.mPort}, lLocal);
    return lResult.IsOK() ? mMessages.Open(mControl.GetLocal().mAddress, *lDevice, std::move(aEvents))
                          : lResult;
}

KyResult GvcpClient::Open(MessageChannel::EventHandler aEvents, Preparation aPrepare)
{
    Close();
    mPrepare = std::move(aPrepare);
    KyResult lResult = OpenSockets(std::move(aEvents));
    if (lResult.IsOK())
    {
        const LockScope lScope(mConnecting);
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
    if (mKeeper.joinable())
    {
        {
            const LockScope lScope(mLock);
            mStop = true;
            mChanged.NotifyAll();
        }
        mKeeper.join();
        if (IsConnected())
        {
            // Results ignored: a device that does not answer frees itself after the heartbeat's time-out.
            static_cast<void>(mControl.WriteRegister(KyGvcp::cMessagePortRegister, 0));
            static_cast<void>(mControl.WriteRegister(KyGvcp::cControlPrivilegeRegister, 0));
        }
    }
    mConnected = false;
    mControl.SetShut(true);
    mMessages.Close();
}

KyResult GvcpClient::Reconnect()
{
    const LockScope lScope(mConnecting);
    if (IsConnected())
    {
        return {};
    }
    LoseConnection("it does not answer."); // in case that nobody has noticed yet
    return Connect();
}

KyResult GvcpClient::Connect()
{
    mConnected = false;
    mControl.SetShut(false);
    KyResult lResult = Identify();
    for (KyResult (GvcpClient::*const lStep)() : {&GvcpClient::TakeControl, &GvcpClient::StartEvents})
    {
        if (lResult.IsOK())
        {
            lResult = (this->*lStep)();
        }
    }
    if (lResult.IsOK())
    {
        lResult = mPrepare();
    }
    if (!lResult.IsOK())
    {
        mControl.SetShut(true);
        return lResult;
    }
    mConnected = true;
    return lResult;
}

KyResult GvcpClient::Identify()
{
    std::array<uint8_t, KyGvcp::cDiscoverySize> lRegisters{};
    const KyResult lResult = mControl.ReadMemory(0, lRegisters.data(), lRegisters.size());
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
    return lInformation.mMac == mInformation.mMac && lInformation.mSerialNumber == mInformation.mSerialNumber
               ? lResult
               : Failure(KyResult::NO_CONNECTION, "Another device answers at " + Where() + ".");
}

// Some devices do not answer those that are not in control when they write.
bool GvcpClient::IsTakenInSilence(const KyResult& aResult)
{
    if (aResult.GetCode() != KyResult::NO_CONNECTION)
    {
        return false;
    }
    mControl.SetShut(false);
    uint32_t lPrivilege = 0;
    return mControl.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege).IsOK() &&
           (lPrivilege & (KyGvcp::cControlAccess | KyGvcp::cExclusiveAccess)) != 0;
}

KyResult GvcpClient::TakenResult()
{
    uint32_t lAddress = 0;
    uint32_t lPort = 0;
    // Results ignored: whose it is adds to the message, no more.
    static_cast<void>(mControl.ReadRegister(KyGvcp::cPrimaryAddressRegister, lAddress));
    static_cast<void>(mControl.ReadRegister(KyGvcp::cPrimaryPortRegister, lPort));
    const std::string lOwner =
        lAddress == 0 ? "" : " (" + KyGvcp::EndpointText({lAddress, static_cast<uint16_t>(lPort)}) + ")";
    return Failure(KyGvcp::cAccessDenied,
                   "Another application" + lOwner + " controls the device at " + Where() + ".");
}

KyResult GvcpClient::TakeControl()
{
    const KyResult lResult =
        mControl.WriteRegister(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess);
    if (lResult.GetCode() == KyGvcp::cAccessDenied || IsTakenInSilence(lResult))
    {
        return TakenResult();
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    // Ignored: a device that keeps its own time-out says so nowhere, and half a second is below any.
    static_cast<void>(mControl.WriteRegister(KyGvcp::cHeartbeatRegister, mOptions.mHeartbeatTimeout));
    return mControl.IsShut() ? NotConnected() : lResult;
}

KyResult GvcpClient::StartEvents()
{
    uint32_t lChannels = 0;
    uint32_t lCapability = 0;
    KyResult lResult = mControl.ReadRegister(KyGvcp::cMessageChannelCountRegister, lChannels);
    mHasEvents = lResult.IsOK() && lChannels > 0;
    if (!mHasEvents)
    {
        // A device without the register has no message channel either.
        return mControl.IsShut() ? lResult : KyResult();
    }
    const KyGvcp::Endpoint lOwn = mMessages.GetLocal();
    const std::array<std::pair<uint32_t, uint32_t>, 4> lSettings = {
        {{KyGvcp::cMessageAddressRegister, lOwn.mAddress},
         {KyGvcp::cMessageTimeoutRegister, mOptions.mEventTimeout},
         {KyGvcp::cMessageRetriesRegister, mOptions.mEventRetries},
         {KyGvcp::cMessagePortRegister, lOwn.mPort}}};
    for (const auto& [lRegister, lValue] : lSettings)
    {
        lResult = mControl.WriteRegister(lRegister, lValue);
        // A device that keeps its own times still sends its events.
        const bool lIsTime =
            lRegister == KyGvcp::cMessageTimeoutRegister || lRegister == KyGvcp::cMessageRetriesRegister;
        if (!lResult.IsOK() && (!lIsTime || mControl.IsShut()))
        {
            return lResult;
        }
    }
    if (mControl.ReadRegister(KyGvcp::cMessageCapabilityRegister, lCapability).IsOK() &&
        (lCapability & cHasSourcePort) != 0)
    {
        uint32_t lPort = 0;
        static_cast<void>(mControl.ReadRegister(KyGvcp::cMessageSourcePortRegister, lPort)); // 0: unknown
        mMessages.OpenWay(static_cast<uint16_t>(lPort));
    }
    return lResult;
}

void GvcpClient::LoseConnection(const char* aReason)
{
    mControl.SetShut(true);
    if (mConnected.exchange(false))
    {
        ++mLosses;
        Warn(__LINE__, "KyGigE::GvcpClient::LoseConnection",
             "The connection to the device at " + Where() + " is lost: " + aReason);
    }
}

// A write rather than a read: it also fails when another application has got the control.
void GvcpClient::SendHeartbeat()
{
    KyResult lResult = mControl.WriteRegister(KyGvcp::cHeartbeatRegister, mOptions.mHeartbeatTimeout);
    if (lResult.IsOK() || lResult.GetCode() == KyGvcp::cBusy)
    {
        return;
    }
    if (lResult.GetCode() != KyResult::NO_CONNECTION && lResult.GetCode() != KyGvcp::cAccessDenied)
    {
        uint32_t lPrivilege = 0; // the device's time-out is fixed; any access is a sign of life
        lResult = mControl.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege);
        if (lResult.IsOK() && (lPrivilege & (KyGvcp::cControlAccess | KyGvcp::cExclusiveAccess)) != 0)
        {
            return;
        }
    }
    LoseConnection(lResult.GetCode() == KyResult::NO_CONNECTION ? "it does not answer."
                                                                : "it has withdrawn the control.");
}

void GvcpClient::Keep()
{
    for (;;)
    {
        {
            const LockScope lScope(mLock);
            if (!mStop)
            {
                mChanged.WaitFor(mLock, mOptions.mHeartbeatPeriod);
            }
            if (mStop)
            {
                return;
            }
        }
        if (IsConnected())
        {
            SendHeartbeat();
        }
        if (mConnected && mControl.IsShut())
        {
            LoseConnection("it does not answer.");
        }
        if (mOptions.mReconnect && !IsConnected() && Reconnect().IsOK())
        {
            Warn(__LINE__, "KyGigE::GvcpClient::Keep", "The device at " + Where() + " is connected again.");
        }
    }
}

KyResult GvcpClient::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    return mConnected ? mControl.ReadRegister(aAddress, aValue) : NotConnected();
}

KyResult GvcpClient::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    return mConnected ? mControl.WriteRegister(aAddress, aValue) : NotConnected();
}

KyResult GvcpClient::ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize)
{
    return mConnected ? mControl.ReadMemory(aAddress, aBuffer, aSize) : NotConnected();
}

KyResult GvcpClient::WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize)
{
    return mConnected ? mControl.WriteMemory(aAddress, aBuffer, aSize) : NotConnected();
}

} // namespace KyGigE
