#include "BridgeGate.h"

#include "JxUtilsLib/Event.h"
#include "JxUtilsLib/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using JxUtilsLib::Event;
using KySerialLib::BridgeGate;
using KySerialLib::BridgeGateScope;

namespace
{

TEST(BridgeGateTest, LetsAnyNumberIn)
{
    BridgeGate lGate;
    const BridgeGateScope lFirst(lGate);
    const BridgeGateScope lSecond(lGate);
    std::thread([&] { const BridgeGateScope lThird(lGate); }).join();
}

TEST(BridgeGateTest, ShutsAtOnceWhenNobodyIsInside)
{
    BridgeGate lGate;
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        lGate.Shut();
        lGate.Open();
        const BridgeGateScope lInside(lGate);
    }
}

TEST(BridgeGateTest, ShutWaitsUntilEverybodyHasLeft)
{
    BridgeGate lGate;
    lGate.Enter();
    lGate.Enter();
    Event lShut(true);
    std::thread lOther(
        [&]
        {
            lGate.Shut();
            lShut.Set();
        });
    EXPECT_FALSE(lShut.Wait_ms(20));
    lGate.Leave();
    EXPECT_FALSE(lShut.Wait_ms(20));
    lGate.Leave();
    EXPECT_TRUE(lShut.Wait_ms(Event::cInfinite));
    lOther.join();
}

TEST(BridgeGateTest, NobodyComesInWhileItIsShut)
{
    BridgeGate lGate;
    lGate.Shut();
    Event lIn(true);
    std::thread lOther(
        [&]
        {
            const BridgeGateScope lInside(lGate);
            lIn.Set();
        });
    EXPECT_FALSE(lIn.Wait_ms(20));
    lGate.Open();
    EXPECT_TRUE(lIn.Wait_ms(Event::cInfinite));
    lOther.join();
}

TEST(BridgeGateTest, ASecondOneShutsAfterTheFirstHasOpened)
{
    BridgeGate lGate;
    lGate.Shut();
    Event lShut(true);
    std::thread lOther(
        [&]
        {
            lGate.Shut();
            lShut.Set();
            lGate.Open();
        });
    EXPECT_FALSE(lShut.Wait_ms(20));
    lGate.Open();
    EXPECT_TRUE(lShut.Wait_ms(Event::cInfinite));
    lOther.join();
}

TEST(BridgeGateTest, NobodyIsInsideWhileItIsShutHoweverOftenThatIs)
{
    BridgeGate lGate;
    std::atomic<bool> lEnd{false};
    int lGuarded = 0; // the thread sanitizer sees whether the gate orders the accesses
    std::atomic<int> lInside{0};
    std::vector<std::thread> lThreads;
    for (int lIndex = 0; lIndex < 2; ++lIndex)
    {
        lThreads.emplace_back(
            [&]
            {
                while (!lEnd)
                {
                    const BridgeGateScope lScope(lGate);
                    ++lInside;
                    EXPECT_GE(lGuarded, 0);
                    --lInside;
                }
            });
    }
    for (int lTurn = 0; lTurn < 1000; ++lTurn)
    {
        lGate.Shut();
        EXPECT_EQ(lInside, 0);
        ++lGuarded;
        lGate.Open();
        if (lTurn % 100 == 0)
        {
            JxUtilsLib::Thread::Sleep(1);
        }
    }
    lEnd = true;
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
}

} // namespace
