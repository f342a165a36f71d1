#include "kyserial/Bridge/BridgeSession.h"

#include "kyserial/Bridge/StartReason.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Terminal/StatusRow.h"
#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

// Milliseconds after which an interruption is noticed late at most, or a device that is gone.
constexpr uint32_t cTick = 50;

/// The terminal as the library wants it: from the root on.
std::string AbsolutePath(const std::string& aPath)
{
    std::error_code lError;
    const std::filesystem::path lPath = std::filesystem::absolute(aPath, lError);
    if (lError || !std::filesystem::exists(lPath, lError))
    {
        throw OperationError("--tty: there is no " + aPath);
    }
    if (std::filesystem::is_directory(lPath, lError))
    {
        throw OperationError("--tty: " + aPath + " is a directory");
    }
    return lPath.string();
}

void PrintTo(std::FILE* aFile, const std::string& aText)
{
    std::fputs(aText.c_str(), aFile);
    std::fflush(aFile);
}

} // namespace

BridgeSession::BridgeSession(Context& aContext, const BridgeOptions& aOptions, Device& aDevice,
                             TrafficLog& aLog)
    : mContext(aContext)
    , mOptions(aOptions)
    , mDevice(aDevice)
    , mLog(aLog)
    , mBegin(Clock::now())
    , mStatistics(PortName(aOptions.mPort), aOptions.mHost.mName, mBegin)
{
    Start();
}

KySerialBridgeOptions BridgeSession::GetOptions()
{
    KySerialBridgeOptions lOptions;
    lOptions.mObserver = this;
    lOptions.mReconnect = mOptions.mReconnect;
    lOptions.mGeneration = &mDevice;
    return lOptions;
}

void BridgeSession::NotifyTraffic(KySerialBridgeWay aWay, int64_t /*aTime*/, const uint8_t* aBytes,
                                  uint32_t aCount)
{
    if (!mOptions.mLogFile.empty())
    {
        mLog.Add(aWay == KySerialBridgeWay::ToDevice ? TrafficLog::cSent : TrafficLog::cReceived, aBytes,
                 aCount);
    }
}

void BridgeSession::AddChange(const DeviceChange& aChange)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mChanges.push_back(aChange);
}

void BridgeSession::StartClser()
{
    const std::string& lName = mOptions.mHost.mName;
    StartReason lReason;
    const KyResult lResult =
        mBridge.Start(lName.c_str(), &mDevice.GetAdapter(), mOptions.mPort, GetOptions());
    if (!lResult.IsOK())
    {
        throw OperationError("cannot bridge " + PortName(mOptions.mPort) + " to Camera Link clients as \"" +
                             lName + "\": " + ResultText(lResult) + lReason.Text());
    }
    if (mOptions.mLine.mBaudRate.has_value())
    {
        Check(mBridge.SetHardCodedBaudRate(*mOptions.mLine.mBaudRate), "--baud");
    }
}

void BridgeSession::Start()
{
    if (mOptions.mHost.mKind == HostKind::Clser)
    {
        StartClser();
        return;
    }
    std::string lHost = mOptions.mHost.mName;
    if (mOptions.mHost.mKind == HostKind::Pty)
    {
        mRelay.emplace();
        lHost = mRelay->GetBridgePath();
    }
    else if (mOptions.mHost.mKind == HostKind::Tty)
    {
        lHost = AbsolutePath(lHost);
    }
    Check(mBridge.Start(lHost.c_str(), ToConfiguration(mOptions.mLine), &mDevice.GetAdapter(), mOptions.mPort,
                        GetOptions()),
          "cannot bridge " + PortName(mOptions.mPort) + " to " + mOptions.mHost.mName);
    if (mRelay.has_value())
    {
        mLink.emplace(mOptions.mHost.mName, mRelay->GetUserPath()); // last: who finds it finds a bridge
    }
}

// What is counted further down the stream of bytes is read first: it may only grow meanwhile.
BridgeLedger BridgeSession::GetLedgerToDevice() const
{
    BridgeLedger lLedger;
    const KySerialBridgeFlow lFlow = mEnded ? mFinalToDevice : mBridge.GetFlowToDevice();
    lLedger.mAway = lFlow.mAway;
    lLedger.mDelivered = lFlow.mDelivered;
    lLedger.mRefused = lFlow.mRefused;
    lLedger.mStopped = lFlow.mCutOff;
    lLedger.mTaken = lFlow.mTaken;
    if (mRelay.has_value())
    {
        lLedger.mStopped += mRelay->GetLostToBridge();
        lLedger.mTaken = mRelay->GetTakenFromUser();
    }
    return lLedger;
}

BridgeLedger BridgeSession::GetLedgerFromDevice(uint64_t& aBytes) const
{
    BridgeLedger lLedger;
    if (mRelay.has_value())
    {
        lLedger.mUnread = mRelay->GetUnread();
        lLedger.mStopped = mRelay->GetStoppedToUser();
        lLedger.mDelivered = mRelay->GetDeliveredToUser();
    }
    const KySerialBridgeFlow lFlow = mEnded ? mFinalFromDevice : mBridge.GetFlowFromDevice();
    aBytes = lFlow.mDelivered + lFlow.mRefused; // as the bridge counts them
    lLedger.mOverrun = lFlow.mOverrun;
    lLedger.mCleared = lFlow.mCleared;
    lLedger.mRefused = lFlow.mRefused;
    lLedger.mStopped += lFlow.mCutOff;
    lLedger.mTaken = lFlow.mTaken;
    lLedger.mDelivered = mRelay.has_value() ? lLedger.mDelivered : lFlow.mDelivered;
    return lLedger;
}

BridgeCounts BridgeSession::GetCounts() const
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

// Nobody finds the terminal any more, then the bridge lets go of the device and of its terminal, then the
// rest is counted: what is in the terminals then, nobody gets.
void BridgeSession::End()
{
    mLink.reset();
    mFinalBaudRate = mBridge.GetBaudRate();
    static_cast<void>(mBridge.Stop(mFinalToDevice, mFinalFromDevice)); // cannot fail for a bridge that runs
    mEnded = true;
    if (mRelay.has_value())
    {
        mRelay->End();
    }
}

void BridgeSession::Run()
{
    if (!mOptions.mQuiet)
    {
        const bool lClser = mOptions.mHost.mKind == HostKind::Clser;
        PrintTo(stderr,
                PortName(mOptions.mPort) + " of " + mContext.mCommon.mDevice.mName + " is " +
                    mOptions.mHost.mName +
                    (lClser ? " for Camera Link clients" : ", " + LineText(ToConfiguration(mOptions.mLine))) +
                    "; Ctrl-C ends\n");
    }
    if (mOptions.mStatsJson)
    {
        Report(Clock::now(), false); // at once: a script sees that the bridge runs
    }
    std::string lFailure;
    try
    {
        Watch();
    }
    catch (const OperationError& lError)
    {
        lFailure = lError.what();
    }
    End();
    Report(Clock::now(), true);
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
}

void BridgeSession::Watch()
{
    const std::chrono::milliseconds lInterval(mOptions.mStatsInterval);
    Clock::time_point lNext = mBegin + lInterval;
    while (!mContext.mConsole.WaitForInterrupt(cTick))
    {
        const Clock::time_point lNow = Clock::now();
        FlushQuietLog();
        FollowDevice();
        if (lNow >= lNext)
        {
            Report(lNow, false);
            lNext = std::max(lNext + lInterval, lNow); // one that is late is not made up for
        }
        if (mOptions.mDuration > 0 && lNow >= mBegin + std::chrono::seconds(mOptions.mDuration))
        {
            return;
        }
    }
}

// Says what the bridge has noticed since the last time. Without --reconnect the first absence is the end.
void BridgeSession::FollowDevice()
{
    std::vector<DeviceChange> lChanges;
    {
        const JxUtilsLib::LockScope lScope(mLock);
        lChanges.swap(mChanges);
    }
    for (const DeviceChange& lChange : lChanges)
    {
        mConnected = lChange.mIsBack;
        if (!mOptions.mReconnect)
        {
            throw OperationError(PortName(mOptions.mPort) + ": the connection to the device is lost");
        }
        mReconnections += lChange.mIsBack ? 1 : 0;
        Note(lChange.mIsBack
                 ? "the device is back; " + std::to_string(lChange.mLost) + " bytes to it are lost"
                 : "the device is gone");
    }
}

void BridgeSession::Note(const std::string& aText)
{
    mLog.AddNote(aText);
    if (!mOptions.mQuiet)
    {
        const bool lLine = mLineLength > 0; // a status line stays where it is
        PrintTo(stderr, (lLine ? "\n" : "") + PortName(mOptions.mPort) + ": " + aText + '\n');
    }
}

// Whoever watches the file sees what came before a pause.
void BridgeSession::FlushQuietLog()
{
    const uint64_t lBytes = mBridge.GetBytesSentToDevice() + mBridge.GetBytesReceivedFromDevice();
    if (lBytes == mLoggedBytes)
    {
        mLog.Flush();
    }
    mLoggedBytes = lBytes;
}

void BridgeSession::Report(Clock::time_point aNow, bool aFinal)
{
    const BridgeCounts lCounts = GetCounts();
    if (mOptions.mStatsJson)
    {
        Print(mContext, mStatistics.Json(lCounts, aNow, aFinal));
    }
    if (mOptions.mQuiet)
    {
        return;
    }
    if (Console::IsErrorTerminal() && !mOptions.mStatsJson)
    {
        const auto lSize = Console::GetErrorSize();
        std::string lLine = FitRow(mStatistics.Line(lCounts, aNow), lSize.has_value() ? lSize->mColumns : 0);
        const size_t lLength = lLine.size();
        lLine.append(lLength < mLineLength ? mLineLength - lLength : 0, ' '); // over what was there
        mLineLength = lLength;
        PrintTo(stderr, '\r' + lLine + (aFinal ? "\n" : ""));
    }
    if (aFinal)
    {
        PrintTo(stderr, "sent " + std::to_string(lCounts.mToDevice) + " bytes, received " +
                            std::to_string(lCounts.mFromDevice) + " bytes\n");
        const std::string lLoss = LossText(lCounts);
        PrintTo(stderr, lLoss.empty() ? lLoss : lLoss + '\n');
    }
}

} // namespace KySerialTool
