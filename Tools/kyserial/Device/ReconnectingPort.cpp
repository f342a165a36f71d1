#include "kyserial/Device/ReconnectingPort.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cAway = KyResult::NO_CONNECTION;

} // namespace

ReconnectingPort::ReconnectingPort(Opener aOpen, Notice aNotice, std::string aPeer, uint32_t aPause)
    : mOpen(std::move(aOpen)), mNotice(std::move(aNotice)), mPeer(std::move(aPeer)), mPause(aPause)
{
    Open();
}

KyResult ReconnectingPort::Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent)
{
    const JxUtilsLib::LockScope lScope(mSending);
    aSent = 0;
    if (mAway)
    {
        return {cAway, (mPeer + " is away").c_str()};
    }
    KyResult lResult = mPort->Send(aData, aSize, aSent);
    if (!lResult.IsOK() && !mPort->IsBusy(lResult) && !mPort->GetState().IsOK())
    {
        return {cAway, lResult.GetDescription()}; // the receiving thread finds it gone, too
    }
    return lResult;
}

bool ReconnectingPort::IsBusy(const KyResult& aResult) const
{
    const JxUtilsLib::LockScope lScope(mSending);
    // A port that is away is waited for like one that has no room.
    return aResult.GetCode() == cAway || (mPort != nullptr && mPort->IsBusy(aResult));
}

std::vector<uint8_t> ReconnectingPort::Receive(uint32_t aTimeout)
{
    if (mAway)
    {
        // The caller waits for bytes as long as it would at an open port; a loop around this does not spin.
        JxUtilsLib::Thread::Sleep(mNext.GetRemaining(aTimeout));
        // A read without a time is that of a receiver which is to end. It must not begin to open a port.
        if (aTimeout > 0 && mNext.GetRemaining() == 0)
        {
            TryOpen();
        }
        return {};
    }
    std::vector<uint8_t> lBytes = mPort->Receive(aTimeout);
    const KyResult lState = mPort->GetState();
    if (lBytes.empty() && !lState.IsOK())
    {
        Lose(ResultText(lState));
    }
    return lBytes;
}

void ReconnectingPort::SetLine(const LineSelection& aLine)
{
    const JxUtilsLib::LockScope lScope(mSending);
    if (mPort == nullptr)
    {
        throw OperationError(mPeer + " is away");
    }
    mPort->SetLine(aLine);
}

KyResult ReconnectingPort::Close()
{
    return mPort != nullptr && !mAway ? mPort->Close()
                                      : KyResult(KyResult::OK); // a device that is away has no port
}

void ReconnectingPort::Lose(const std::string& aReason)
{
    {
        const JxUtilsLib::LockScope lScope(mSending);
        // Under the lock, so that no sender uses the port between this and its replacement.
        mAway = true;
    }
    mNext = KyPlatform::Deadline(mPause);
    mReason = aReason;
    mNotice(mPeer + " is gone: " + aReason);
}

void ReconnectingPort::TryOpen()
{
    try
    {
        Open();
    }
    catch (const std::exception& lError)
    {
        // Open() throws what waiting does not change. The receiver asks for the state and ends the session
        // with it.
        mState = KyResult(KyResult::FAILURE, lError.what());
    }
}

void ReconnectingPort::Open()
{
    const bool lFirst = mReason.empty();
    std::unique_ptr<BytePort> lPort;
    const auto lSwap = [&]
    {
        const JxUtilsLib::LockScope lScope(mSending);
        mPort.swap(lPort);
    };
    lSwap(); // opening takes its time, and a sender does not wait meanwhile
    try
    {
        mOpen(lPort);
        lSwap();
        mAway = false;
    }
    catch (const OperationError& lError)
    {
        // Waiting does not change a port that the device lacks, or a setting that it does not take.
        if (lError.GetCode() == KyResult::UNSUPPORTED || lError.GetCode() == KyResult::BAD_PARAMETER)
        {
            throw;
        }
        lSwap();
        mNext = KyPlatform::Deadline(mPause);
        // One notice for one absence; the attempts after it fail in silence.
        if (lFirst)
        {
            mNotice(std::string("waiting: ") + lError.what());
            mReason = lError.what();
        }
        return;
    }
    if (!lFirst)
    {
        mNotice(mPeer + " is there");
    }
}

} // namespace KySerialTool
