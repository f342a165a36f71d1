#include "KyPlatform/WorkerThread.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>

using KyPlatform::WorkerThread;

namespace
{

uint32_t GetSlack(void* /*aNothing*/)
{
    return static_cast<uint32_t>(::prctl(PR_GET_TIMERSLACK));
}

} // namespace

TEST(TimerSlackTest, AWorkersWaitsAreLateByAMicrosecondAtMostAndNobodyElsesChange)
{
    const uint32_t lOwn = GetSlack(nullptr);
    WorkerThread lThread;
    ASSERT_TRUE(lThread.Start(&GetSlack, nullptr));
    EXPECT_LE(lThread.Join(), 1000U);
    EXPECT_EQ(GetSlack(nullptr), lOwn);
}
