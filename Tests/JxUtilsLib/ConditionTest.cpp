#include "JxUtilsLib/Condition.h"
#include "JxUtilsLib/LockScope.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace
{

struct Signal
{
    JxUtilsLib::Mutex mMutex;
    JxUtilsLib::Condition mChanged;
    bool mIsSet JX_GUARDED_BY(mMutex) = false;

    void Set()
    {
        const JxUtilsLib::LockScope lLock(mMutex);
        mIsSet = true;
        mChanged.NotifyAll();
    }
};

TEST(ConditionTest, EveryWaiterWakesAndHoldsTheLockAgain)
{
    Signal lSignal;
    int lWoken = 0;
    const auto lWait = [&]
    {
        const JxUtilsLib::LockScope lLock(lSignal.mMutex);
        while (!lSignal.mIsSet)
        {
            lSignal.mChanged.Wait(lSignal.mMutex);
        }
        ++lWoken;
    };
    std::thread lFirst(lWait);
    std::thread lSecond(lWait);
    lSignal.Set();
    lFirst.join();
    lSecond.join();
    EXPECT_EQ(lWoken, 2);
}

TEST(ConditionTest, WaitEndsWithItsTime)
{
    Signal lSignal;
    const auto lBegin = std::chrono::steady_clock::now();
    const JxUtilsLib::LockScope lLock(lSignal.mMutex);
    while (std::chrono::steady_clock::now() - lBegin < std::chrono::milliseconds(30))
    {
        lSignal.mChanged.WaitFor(lSignal.mMutex, 30); // may wake without cause
    }
    EXPECT_FALSE(lSignal.mIsSet);
}

} // namespace
