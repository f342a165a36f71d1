#include "SharedLock.h"

#include "JxUtilsLib/Event.h"
#include "JxUtilsLib/Thread.h"
#include "Support/Repeater.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

using JxUtilsLib::Event;
using KySerialLib::SharedLock;

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

/// A thread that takes the lock alone, and says when it has it.
class Owner
{
public:
    explicit Owner(SharedLock& aLock)
        : mThread(
              [this, &aLock]
              {
                  mStarted.Set();
                  const auto lAlone = aLock.Alone();
                  mHas.Set();
                  mEnd.Wait_ms(Event::cInfinite);
              })
    {
        mStarted.Wait_ms(Event::cInfinite);
    }
    ~Owner()
    {
        mEnd.Set();
        mThread.join();
    }

    Event mStarted{true};
    Event mHas{true};
    Event mEnd{true};

private:
    std::thread mThread;
};

TEST(SharedLockTest, IsHadAloneWhenAllOthersHaveGivenItBack)
{
    SharedLock lLock;
    auto lShared = lLock.Share();
    Owner lOwner(lLock);
    EXPECT_FALSE(lOwner.mHas.Wait_ms(20));
    lShared.unlock();
    EXPECT_TRUE(lOwner.mHas.Wait_ms(Event::cInfinite));
}

TEST(SharedLockTest, IsNotSharedWhileSomebodyHasItAlone)
{
    SharedLock lLock;
    auto lAlone = lLock.Alone();
    Event lIn(true);
    std::thread lOther(
        [&]
        {
            const auto lShared = lLock.Share();
            lIn.Set();
        });
    EXPECT_FALSE(lIn.Wait_ms(20));
    lAlone.unlock();
    EXPECT_TRUE(lIn.Wait_ms(Event::cInfinite));
    lOther.join();
}

TEST(SharedLockTest, OneAfterTheOtherHasItAlone)
{
    SharedLock lLock;
    auto lAlone = lLock.Alone();
    Owner lSecond(lLock);
    EXPECT_FALSE(lSecond.mHas.Wait_ms(20));
    lAlone.unlock();
    EXPECT_TRUE(lSecond.mHas.Wait_ms(Event::cInfinite));
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
