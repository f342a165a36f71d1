#include "kyserial/Bridge/BridgeSession.h"

#include "kyserial/Device/PortName.h"
#include "kyserial/Terminal/StatusRow.h"
#include "kyserial/Text/Failure.h"

#include <algorithm>
#include <cstdio>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

// Milliseconds after which an interruption is noticed late at most, or a device that is gone.
constexpr uint32_t cTick = 50;

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
    , mLog(aLog)
    , mBegin(Clock::now())
    , mPort(aOptions.mSelection, aDevice, mNetwork, aLog)
    , mStatistics(GetPortName(), mPort.GetHost(), mBegin)
{
}

std::string BridgeSession::GetPortName() const
{
    return PortName(mOptions.mSelection.mPort);
}

void BridgeSession::Run()
{
    if (!mOptions.mQuiet)
    {
        // Camera Link clients choose the line later, so the note has none for them.
        const bool lClser = mOptions.mSelection.mHost.mKind == HostKind::Clser;
        PrintTo(stderr, GetPortName() + " of " + mContext.mCommon.mDevice.mName + " is " + mPort.GetHost() +
                            (lClser ? " for Camera Link clients" : ", " + mPort.GetLine()) +
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
    // Kept for later: the bridge still ends in order, and its statistics are printed.
    catch (const OperationError& lError)
    {
        lFailure = lError.what();
    }
    // Ended before the last report, so that the counts are final.
    mPort.End();
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
        // No duration, or one of 0, is a bridge that only an interruption ends.
        if (mOptions.mDuration > 0 && lNow >= mBegin + std::chrono::seconds(mOptions.mDuration))
        {
            return;
        }
    }
}

// Says what the bridge has noticed since the last time. Without --reconnect the first absence is the end.
void BridgeSession::FollowDevice()
{
    for (const BridgedPort::DeviceChange& lChange : mPort.TakeChanges())
    {
        if (!mOptions.mSelection.mReconnect)
        {
            throw OperationError(GetPortName() + ": the connection to the device is lost");
        }
        Note(lChange.mIsBack
                 ? "the device is back; " + std::to_string(lChange.mLost) + " bytes to it are lost"
                 : "the device is gone");
    }
    for (const std::string& lNews : mPort.TakeNews())
    {
        Note(lNews);
    }
}

void BridgeSession::Note(const std::string& aText)
{
    mLog.AddNote(aText);
    if (!mOptions.mQuiet)
    {
        const bool lLine = mLineLength > 0; // a status line stays where it is
        PrintTo(stderr, (lLine ? "\n" : "") + GetPortName() + ": " + aText + '\n');
    }
}

// Flushed as soon as nothing has moved for one look: a user who watches the file sees all that came before a pause.
void BridgeSession::FlushQuietLog()
{
    const BridgeCounts lCounts = mPort.GetCounts();
    const uint64_t lBytes = lCounts.mToDevice + lCounts.mFromDevice;
    if (lBytes == mLoggedBytes)
    {
        mLog.Flush();
    }
    mLoggedBytes = lBytes;
}

void BridgeSession::Report(Clock::time_point aNow, bool aFinal)
{
    const BridgeCounts lCounts = mPort.GetCounts();
    if (mOptions.mStatsJson)
    {
        Print(mContext, mStatistics.Json(lCounts, aNow, aFinal));
    }
    // Only now: --quiet means the error output, and the JSON reports on the standard output are asked for by
    // their own option.
    if (mOptions.mQuiet)
    {
        return;
    }
    // A line that overwrites itself is for a terminal. In a file, or beside the JSON reports, it would only
    // be in the way.
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
