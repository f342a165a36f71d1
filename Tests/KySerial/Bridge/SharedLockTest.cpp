#include "SharedLock.h"

#include "JxUtilsLib/Thread.h"
#include "Support/Repeater.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <thread>

using KySerialLib::SharedLock;
using KyTest::Repeater;

namespace
{

TEST(SharedLockTest, AnyNumberShares)
{
    SharedLock lLock;
    const auto lFirst = lLock.Share();
    std::thread([&] { const auto lSecond = lLock.Share(); }).join();
}

TEST(SharedLockTest, IsHadAloneAtOnceWhenNobodyHasIt)
{
    SharedLock lLock;
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        {
            const auto lAlone = lLock.Alone();
        }
        const auto lShared = lLock.Share();
    }
}

/// Expects that a thread which takes the lock waits until this one gives back what it has.
template<typename Held, typename Take>
void ExpectWait(Held aHeld, Take aTake)
{
    std::promise<void> lStarted;
    auto lOther = std::async(std::launch::async,
                             [&]
                             {
                                 lStarted.set_value();
                                 static_cast<void>(aTake());
                             });
    lStarted.get_future().wait();
    EXPECT_EQ(lOther.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    aHeld.unlock();
    lOther.get();
}

TEST(SharedLockTest, IsHadAloneWhenAllOthersHaveGivenItBackAndIsNotSharedMeanwhile)
{
    SharedLock lLock;
    const auto lAlone = [&] { return lLock.Alone(); };
    ExpectWait(lLock.Share(), lAlone);
    ExpectWait(lLock.Alone(), lAlone);
    ExpectWait(lLock.Alone(), [&] { return lLock.Share(); });
}

TEST(SharedLockTest, IsHadAloneHoweverManyShareIt)
{
    SharedLock lLock;
    int lGuarded = 0; // the thread sanitizer sees whether the lock orders the accesses
    std::atomic<int> lInside{0};
    const auto lShare = [&]
    {
        const auto lShared = lLock.Share();
        ++lInside;
        EXPECT_GE(lGuarded, 0);
        --lInside;
    };
    std::optional<Repeater> lFirst(lShare);
    std::optional<Repeater> lSecond(lShare);
    for (int lTurn = 0; lTurn < 1000; ++lTurn)
    {
        {
            const auto lAlone = lLock.Alone();
            EXPECT_EQ(lInside, 0);
            ++lGuarded;
        }
        if (lTurn % 100 == 0)
        {
            JxUtilsLib::Thread::Sleep(1);
        }
    }
    lFirst.reset();
    lSecond.reset();
    EXPECT_EQ(lGuarded, 1000);
}

} // namespace
