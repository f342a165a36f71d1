#include "kyserial/Terminal/PortReceiver.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

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
    bool lGoOn = true;
    while (lGoOn)
    {
        // Asked before the read: what came before Stop() is passed on.
        const bool lStop = mStop;
        const std::vector<uint8_t> lBytes = mPort.Receive(lStop ? 0 : cPoll);
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
        mLog.Flush(); // a pause: whoever watches the file sees what came before it
    }
    else
    {
        mReceived += aBytes.size();
        mLastTime = JxUtilsLib::Thread::GetTickCount();
        mLog.Add(TrafficLog::cReceived, aBytes.data(), aBytes.size());
    }
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
    mCallbacks.mFailed();
}

} // namespace KySerialTool
