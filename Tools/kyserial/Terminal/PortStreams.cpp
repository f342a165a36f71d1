#include "kyserial/Terminal/PortStreams.h"
#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cPoll = 20; // milliseconds after which a stop, or a lost device, is noticed

} // namespace

PortReceiver::PortReceiver(BytePort& aPort, TrafficLog& aLog, Callbacks aCallbacks)
    : mPort(aPort), mLog(aLog), mCallbacks(std::move(aCallbacks)), mThread([this] { Run(); })
{
}

PortReceiver::~PortReceiver()
{
    Stop();
}

void PortReceiver::Stop()
{
    mStop = true;
    if (mThread.joinable())
    {
        mThread.join();
    }
}

std::string PortReceiver::GetFailure() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mFailure;
}

void PortReceiver::Run()
{
    try
    {
        Relay();
    }
    catch (const std::exception& lError) // no memory
    {
        Fail(std::string("receiving failed: ") + lError.what());
    }
}

void PortReceiver::Relay()
{
    bool lGoOn = true;
    while (lGoOn)
    {
        // Asked before the read: what came before Stop() is passed on.
        const bool lStop = mStop;
        const std::vector<uint8_t> lBytes = mPort.Receive(lStop ? 0 : cPoll);
        // After Stop() a port that has gone is no failure: nothing more is wanted of it.
        const KyResult lState = lBytes.empty() && lStop ? KyResult(KyResult::OK) : mPort.GetState();
        lGoOn = PassOn(lBytes) && !(lBytes.empty() && lStop);
        if (lGoOn && !lState.IsOK())
        {
            Fail("receiving failed after " + std::to_string(mReceived) + " bytes: " + ResultText(lState));
            lGoOn = false;
        }
    }
}

bool PortReceiver::PassOn(const std::vector<uint8_t>& aBytes)
{
    if (aBytes.empty())
    {
        mLog.Flush(); // a pause: a user who watches the file sees all that came before
    }
    else
    {
        mReceived += aBytes.size();
        mLastTime = JxUtilsLib::Thread::GetTickCount();
        mLog.Add(TrafficLog::cReceived, aBytes.data(), aBytes.size());
    }
    // Also without bytes: a pause is news for a taker that shows partial lines.
    if (mCallbacks.mTake(aBytes))
    {
        return true;
    }
    Fail("cannot write to the standard output");
    return false;
}

void PortReceiver::Fail(const std::string& aReason)
{
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mFailure = aReason;
    }
    // Called without the lock: it wakes the thread that asks for the reason at once.
    mCallbacks.mFailed();
}

namespace
{

constexpr uint32_t cBusyPause = 10; // milliseconds

} // namespace

PortSender::PortSender(BytePort& aPort, TrafficLog& aLog, std::function<bool()> aGiveUp, uint32_t aBusyLimit)
    : mPort(aPort), mLog(aLog), mGiveUp(std::move(aGiveUp)), mBusyLimit(aBusyLimit)
{
}

bool PortSender::Send(const uint8_t* aData, size_t aSize)
{
    size_t lDone = 0;
    while (lDone < aSize)
    {
        // Asked before each piece, so that a request to end does not wait for the rest.
        if (mGiveUp())
        {
            return false;
        }
        lDone += SendPiece(aData + lDone, static_cast<uint32_t>(std::min<size_t>(aSize - lDone, cPiece)));
    }
    return true;
}

uint32_t PortSender::SendPiece(const uint8_t* aData, uint32_t aSize)
{
    uint32_t lSent = 0;
    mLog.BeginSending();
    const KyResult lResult = mPort.Send(aData, aSize, lSent);
    // The count comes from the port, and must not lead past the data.
    lSent = std::min(lSent, aSize);
    mSent += lSent;
    // What went out is logged and counted even when the rest failed.
    mLog.EndSending(aData, lSent);
    const uint64_t lNow = JxUtilsLib::Thread::GetTickCount() + 1; // never 0
    // Any byte that gets through begins the patience anew.
    if (lResult.IsOK() || lSent > 0)
    {
        mBusySince = 0;
    }
    const bool lBusy = !lResult.IsOK() && mPort.IsBusy(lResult);
    if (lBusy)
    {
        mBusySince = mBusySince == 0 ? lNow : mBusySince;
    }
    if (!lResult.IsOK() && (!lBusy || lNow - mBusySince > mBusyLimit))
    {
        throw OperationError("sending failed after " + std::to_string(mSent) +
                             " bytes: " + ResultText(lResult));
    }
    if (!lResult.IsOK())
    {
        JxUtilsLib::Thread::Sleep(cBusyPause);
    }
    return lSent;
}

} // namespace KySerialTool
