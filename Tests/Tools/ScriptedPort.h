#pragma once

#include "kyserial/Device/DevicePort.h"

#include <JxUtilsLib/Event.h>

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace KyTest
{

/// A port whose answers a test has written down.
class ScriptedPort : public KySerialTool::BytePort
{
public:
    /// What one Send() does: takes up to mTake bytes and gives mResult.
    struct SendStep
    {
        uint32_t mTake;
        KyResult mResult;
    };

    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override
    {
        const std::lock_guard lLock(mMutex);
        SendStep lStep{aSize, KyResult::OK};
        if (!mSendSteps.empty())
        {
            lStep = mSendSteps.front();
            mSendSteps.pop_front();
        }
        aSent = lStep.mTake < aSize ? lStep.mTake : aSize;
        mSent.append(reinterpret_cast<const char*>(aData), aSent);
        mPieces.push_back(aSize);
        mOnSend();
        return lStep.mResult;
    }

    std::vector<uint8_t> Receive(uint32_t aTimeout) override
    {
        if (aTimeout > 0)
        {
            mArrived.Wait_ms(aTimeout);
        }
        const std::lock_guard lLock(mMutex);
        mArrived.Reset();
        std::vector<uint8_t> lBytes(mIncoming.begin(), mIncoming.end());
        mIncoming.clear();
        return lBytes;
    }

    KyResult GetState() override
    {
        const std::lock_guard lLock(mMutex);
        return mState;
    }

    /// Busy is the status of GigE Vision for "try again later".
    bool IsBusy(const KyResult& aResult) const override { return aResult.GetCode() == 0x8007; }

    /// Lets bytes arrive.
    void Arrive(const std::string& aText)
    {
        const std::lock_guard lLock(mMutex);
        mIncoming += aText;
        mArrived.Set();
    }

    void SetState(const KyResult& aState)
    {
        const std::lock_guard lLock(mMutex);
        mState = aState;
    }

    // For the thread that sends.
    std::deque<SendStep> mSendSteps;
    std::string mSent;
    std::vector<uint32_t> mPieces;
    std::function<void()> mOnSend = [] {}; // called before Send() returns

private:
    std::mutex mMutex;
    JxUtilsLib::Event mArrived{true};
    std::string mIncoming;
    KyResult mState;
};

} // namespace KyTest
