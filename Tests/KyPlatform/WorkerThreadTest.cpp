#include "KyPlatform/WorkerThread.h"

#include "Tests/KyPlatform/ThreadName.h"

#include "JxUtilsLib/Event.h"

#include <gtest/gtest.h>

using JxUtilsLib::Event;
using KyPlatform::WorkerThread;

namespace
{

uint32_t Add(void* aNumber)
{
    return ++*static_cast<uint32_t*>(aNumber);
}

uint32_t WaitFor(void* aEvent)
{
    static_cast<Event*>(aEvent)->Wait_ms(Event::cInfinite);
    return 7;
}

TEST(WorkerThreadTest, IsIdleAtFirst)
{
    WorkerThread lThread;
    EXPECT_FALSE(lThread.IsRunning());
    EXPECT_FALSE(lThread.SetName("Name"));
    EXPECT_EQ(lThread.Join(), 0U);
}

TEST(WorkerThreadTest, RunsTheRoutineWithItsArgumentAndGivesItsResult)
{
    WorkerThread lThread;
    uint32_t lNumber = 41;
    ASSERT_TRUE(lThread.Start(&Add, &lNumber));
    EXPECT_TRUE(lThread.IsRunning());
    EXPECT_EQ(lThread.Join(), 42U);
    EXPECT_EQ(lNumber, 42U);
    EXPECT_FALSE(lThread.IsRunning());
    ASSERT_TRUE(lThread.Start(&Add, &lNumber)); // again
    EXPECT_EQ(lThread.Join(), 43U);
}

TEST(WorkerThreadTest, RefusesASecondThreadAndNoRoutine)
{
    WorkerThread lThread;
    EXPECT_FALSE(lThread.Start(nullptr, nullptr));
    Event lEnd(true);
    ASSERT_TRUE(lThread.Start(&WaitFor, &lEnd));
    EXPECT_FALSE(lThread.Start(&WaitFor, &lEnd));
    lEnd.Set();
    EXPECT_EQ(lThread.Join(), 7U);
}

TEST(WorkerThreadTest, DestructionWaitsForTheEnd)
{
    uint32_t lNumber = 0;
    {
        WorkerThread lThread;
        ASSERT_TRUE(lThread.Start(&Add, &lNumber));
    }
    EXPECT_EQ(lNumber, 1U);
}

TEST(WorkerThreadTest, DebuggersSeeTheName)
{
    const ThreadNameWatch lWatch;
    WorkerThread lThread;
    Event lEnd(true);
    ASSERT_TRUE(lThread.Start(&WaitFor, &lEnd));
    EXPECT_FALSE(lThread.SetName(nullptr));
    EXPECT_TRUE(lThread.SetName("BridgeUpstream"));
    EXPECT_TRUE(lWatch.HasSeen("BridgeUpstream"));
    EXPECT_TRUE(lThread.SetName("BridgeDownstream"));
    EXPECT_TRUE(lWatch.HasSeen("BridgeDownstream"));
    lEnd.Set();
    EXPECT_EQ(lThread.Join(), 7U);
}

} // namespace
