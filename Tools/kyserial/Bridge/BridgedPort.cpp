#include "kyserial/Bridge/BridgedPort.h"

#include "kyserial/Bridge/StartReason.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>
#include <KyPlatform/HostSerialPort.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace KySerialTool
{

namespace
{

/// The terminal as the library wants it: from the root on.
std::string AbsolutePath(const std::string& aPath)
{
    std::error_code lError;
    const std::filesystem::path lPath = std::filesystem::absolute(aPath, lError);
    // Looked at here: the library's result is the same for a missing file and for a folder.
    const auto lType = std::filesystem::status(lPath, lError).type();
    if (lType == std::filesystem::file_type::not_found)
    {
        throw OperationError("--tty: there is no " + aPath);
    }
    if (lType == std::filesystem::file_type::directory)
    {
        throw OperationError("--tty: " + aPath + " is a directory");
    }
    return lPath.string();
}

/// Why a port of the host cannot be opened, when a try of this program's own is refused as well: the library's
/// result is the same for every reason.
std::string Refusal(const KyResult& aResult, const std::string& aHost)
{
    // The library's text is fixed, and nothing else distinguishes this failure.
    if (aResult.GetDescription() != KyString("Unable to open requested COM port."))
    {
        return {};
    }
    KyPlatform::HostSerialPort lTry;
    // Windows finds ports from COM10 on only with the prefix, and takes it for the others too.
    const bool lIsPath = KyPlatform::HostSerialPort::IsPath(aHost.c_str());
    static_cast<void>(
        lTry.Open((lIsPath ? aHost : R"(\\.\COM)" + aHost.substr(3)).c_str())); // refused, or free now
    const std::string lReason = lTry.GetRefusal();
    return lReason.empty() ? lReason : " (" + lReason + ')';
}

/// The name without what says its kind.
std::string PlainName(const HostSelection& aHost)
{
    // An option gives the name alone. A configuration gives it with its kind, which the library does not
    // know.
    static const std::string cStarts[] = {"pty:", "tty:", "com:", "clser:"};
    for (const std::string& lStart : cStarts)
    {
        if (aHost.mName.compare(0, lStart.size(), lStart) == 0)
        {
            return aHost.mName.substr(lStart.size());
        }
    }
    return aHost.mName;
}

} // namespace

BridgedPort::BridgedPort(const BridgeSelection& aSelection, Device& aDevice, Network& aNetwork,
                         TrafficLog& aLog, RecentTraffic* aRecent)
    : mSelection(aSelection), mDevice(aDevice), mLog(aLog), mRecent(aRecent)
{
    Start(aNetwork);
}

BridgedPort::~BridgedPort()
{
    End();
}

KySerialBridgeOptions BridgedPort::GetOptions()
{
    KySerialBridgeOptions lOptions;
    lOptions.mObserver = this;
    lOptions.mReconnect = mSelection.mReconnect;
    lOptions.mSelectsPort = true; // bridges to the device's other ports select theirs
    // What the user has not given stays as the device has it; a host port would bring its own defaults.
    lOptions.mKeepsLine = true;
    lOptions.mGeneration = &mDevice;
    return lOptions;
}

void BridgedPort::NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount)
{
    // Microseconds to seconds. This runs on the bridge's relay threads, so it does little.
    mLastTraffic = aTime / 1000000;
    if (mRecent != nullptr)
    {
        mRecent->Add(aWay == KySerialBridgeWay::ToDevice, aTime, aBytes, aCount);
    }
    if (!mSelection.mLogFile.empty())
    {
        mLog.Add(aWay == KySerialBridgeWay::ToDevice ? TrafficLog::cSent : TrafficLog::cReceived, aBytes,
                 aCount);
    }
}

void BridgedPort::NotifySettings(const KySerialPortConfiguration& aSettings)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mLine = LineText(aSettings);
}

void BridgedPort::AddChange(const DeviceChange& aChange)
{
    // Both counts are read without the lock, by threads that only report.
    mConnected = aChange.mIsBack;
    mReconnections += aChange.mIsBack ? 1 : 0;
    const JxUtilsLib::LockScope lScope(mLock);
    mChanges.push_back(aChange);
}

std::vector<BridgedPort::DeviceChange> BridgedPort::TakeChanges()
{
    const JxUtilsLib::LockScope lScope(mLock);
    return std::exchange(mChanges, {});
}

std::vector<std::string> BridgedPort::TakeNews()
{
    return mTcp.has_value() ? mTcp->TakeNews() : std::vector<std::string>();
}

std::string BridgedPort::GetLine() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mLine;
}

std::string BridgedPort::GetHost() const
{
    if (!mTcp.has_value())
    {
        return mSelection.mHost.mName;
    }
    const TcpSettings& lTcp = mSelection.mHost.mTcp;
    return (lTcp.mTelnet ? "rfc2217://" : "tcp://") + HostText(lTcp.mAddress, mTcp->GetPort());
}

void BridgedPort::StartClser()
{
    const std::string lName = PlainName(mSelection.mHost);
    StartReason lReason;
    const KyResult lResult =
        mBridge.Start(lName.c_str(), &mDevice.GetAdapter(), mSelection.mPort, GetOptions());
    if (!lResult.IsOK())
    {
        throw OperationError("cannot bridge " + PortName(mSelection.mPort) + " to Camera Link clients as \"" +
                             lName + "\": " + ResultText(lResult) + lReason.Text());
    }
    // Camera Link clients choose the rate from what the server offers; a fixed rate is the only one on offer.
    if (mSelection.mLine.mBaudRate.has_value())
    {
        Check(mBridge.SetHardCodedBaudRate(*mSelection.mLine.mBaudRate), "--baud");
    }
}

void BridgedPort::StartTcp(Network& aNetwork)
{
    mTcp.emplace(mSelection.mHost.mTcp, aNetwork);
    StartHost(*mTcp);
}

// What is given is fixed; the rest follows the terminal's user.
void BridgedPort::StartPty()
{
    const LineSelection& lLine = mSelection.mLine;
    mPty.emplace(PtyFollows{!lLine.mBaudRate.has_value(), !lLine.mStopBits.has_value()});
    StartHost(*mPty);
    mLink.emplace(PlainName(mSelection.mHost),
                  mPty->GetPath()); // last: a program that finds the link finds a bridge
}

// Sets what is given only: the rest stays as the device has it.
void BridgedPort::StartHost(IKySerialBridgeHost& aHost)
{
    const LineSelection& lLine = mSelection.mLine;
    KySerialBridgeRequest lRequest;
    lRequest.mBaudRate = lLine.mBaudRate.value_or(0);
    lRequest.mSetsParity = lLine.mParity.has_value();
    lRequest.mParity = lLine.mParity.value_or(KyParityNone);
    lRequest.mStopBits = lLine.mStopBits.value_or(0);
    Check(mBridge.Start(aHost, lRequest, &mDevice.GetAdapter(), mSelection.mPort, GetOptions()),
          "cannot bridge " + PortName(mSelection.mPort) + " to " + PlainName(mSelection.mHost));
}

// What is not given stays as the device has it.
KySerialPortConfiguration BridgedPort::GetLineOfHostPort() const
{
    const LineSelection& lGiven = mSelection.mLine;
    KySerialPortConfiguration lLine = ToConfiguration(lGiven);
    lLine.MakeInvalid();
    lLine.mBaudRate = lGiven.mBaudRate.value_or(lLine.mBaudRate);
    lLine.mParity = lGiven.mParity.value_or(lLine.mParity);
    lLine.mStopBits = lGiven.mStopBits.value_or(0);
    return lLine;
}

void BridgedPort::StartHostPort()
{
    std::string lHost = PlainName(mSelection.mHost);
    const std::string lName = lHost;
    if (mSelection.mHost.mKind == HostKind::Tty)
    {
        lHost = AbsolutePath(lHost);
    }
    const KyResult lResult = mBridge.Start(lHost.c_str(), GetLineOfHostPort(), &mDevice.GetAdapter(),
                                           mSelection.mPort, GetOptions());
    if (!lResult.IsOK())
    {
        throw OperationError("cannot bridge " + PortName(mSelection.mPort) + " to " + lName + ": " +
                             ResultText(lResult) + Refusal(lResult, lHost));
    }
}

void BridgedPort::Start(Network& aNetwork)
{
    if (mSelection.mHost.mKind == HostKind::Clser)
    {
        StartClser();
    }
    else if (IsTcp(mSelection.mHost.mKind))
    {
        StartTcp(aNetwork);
    }
    else if (mSelection.mHost.mKind == HostKind::Pty)
    {
        StartPty();
    }
    else
    {
        StartHostPort();
    }
}

// What is counted further down the stream of bytes is read first: it may only grow meanwhile.
BridgeLedger BridgedPort::GetLedgerToDevice() const
{
    BridgeLedger lLedger;
    const KySerialBridgeFlow lFlow = mEnded ? mFinalToDevice : mBridge.GetFlowToDevice();
    // An ended bridge has no account any more. End() has kept the last one.
    lLedger.mAway = lFlow.mAway;
    lLedger.mDelivered = lFlow.mDelivered;
    lLedger.mRefused = lFlow.mRefused;
    lLedger.mStopped = lFlow.mCutOff;
    lLedger.mTaken = lFlow.mTaken;
    if (mPty.has_value())
    {
        lLedger.mStopped += mPty->GetLeft();
        // The host side has taken bytes from its user that the bridge has not seen yet.
        lLedger.mTaken = mPty->GetTaken();
    }
    if (mTcp.has_value())
    {
        const TcpCounts lTcp = mTcp->GetCounts();
        lLedger.mTaken = lTcp.mTaken;
        lLedger.mStopped += lTcp.mLeft;
        // Bytes of clients that may only read are dropped before the bridge sees them.
        lLedger.mRefused += lTcp.mNotAllowed;
        lLedger.mCleared += lTcp.mPurged;
    }
    return lLedger;
}

BridgeLedger BridgedPort::GetLedgerFromDevice(uint64_t& aBytes) const
{
    BridgeLedger lLedger;
    if (mPty.has_value())
    {
        lLedger.mUnread = mPty->GetUnread();
    }
    if (mTcp.has_value())
    {
        const TcpCounts lTcp = mTcp->GetCounts();
        lLedger.mUnread = lTcp.mUnread;
        lLedger.mStopped = lTcp.mStoppedToUser;
    }
    const KySerialBridgeFlow lFlow = mEnded ? mFinalFromDevice : mBridge.GetFlowFromDevice();
    aBytes = lFlow.mDelivered + lFlow.mRefused; // as the bridge counts them
    lLedger.mOverrun = lFlow.mOverrun;
    lLedger.mCleared = lFlow.mCleared;
    lLedger.mRefused = lFlow.mRefused;
    // A host side counts bytes before the bridge does.
    lLedger.mDelivered = lFlow.mDelivered - std::min(lFlow.mDelivered, lLedger.mUnread + lLedger.mStopped);
    lLedger.mStopped += lFlow.mCutOff;
    lLedger.mTaken = lFlow.mTaken;
    return lLedger;
}

BridgeCounts BridgedPort::GetCounts() const
{
    BridgeCounts lCounts;
    lCounts.mLedgerToDevice = GetLedgerToDevice();
    lCounts.mLedgerFromDevice = GetLedgerFromDevice(lCounts.mFromDevice);
    lCounts.mToDevice = lCounts.mLedgerToDevice.mDelivered;
    lCounts.mUnread = lCounts.mLedgerFromDevice.mUnread;
    lCounts.mBaudRate = mEnded ? mFinalBaudRate : mBridge.GetBaudRate();
    lCounts.mConnected = mConnected;
    lCounts.mReconnections = mReconnections;
    return lCounts;
}

bool BridgedPort::Insert(const std::string& aBytes)
{
    return mTcp.has_value() && mTcp->Insert(aBytes);
}

std::optional<TcpCounts> BridgedPort::GetTcpCounts() const
{
    return mTcp.has_value() ? std::optional<TcpCounts>(mTcp->GetCounts()) : std::nullopt;
}

// The link goes first, so that no program finds the terminal any more. Then the bridge lets go of the device and of its
// host side. Bytes that are in the host side after that are counted as lost.
void BridgedPort::End()
{
    if (mEnded)
    {
        return;
    }
    mLink.reset();
    // Asked before the end: an ended bridge has no rate.
    mFinalBaudRate = mBridge.GetBaudRate();
    static_cast<void>(mBridge.Stop(mFinalToDevice, mFinalFromDevice)); // fails for one that has not started
    mEnded = true;
    if (mPty.has_value())
    {
        mPty->Close();
    }
    if (mTcp.has_value())
    {
        mTcp->Close();
    }
}

} // namespace KySerialTool
