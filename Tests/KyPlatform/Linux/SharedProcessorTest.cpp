// Two threads that share one processor, where a yield is worth making.

#include "JxUtilsLib/Event.h"
#include "KyPlatform/NamedEvent.h"
#include "Support/WaitFor.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sched.h>
#include <sys/resource.h>
#include <thread>

using KyTest::WaitFor;

namespace
{

/// Lets the calling thread, and those that it starts, run on one processor only.
class OneProcessor
{
public:
    OneProcessor()
    {
        EXPECT_EQ(::sched_getaffinity(0, sizeof(mBefore), &mBefore), 0);
        cpu_set_t lOne;
        CPU_ZERO(&lOne);
        CPU_SET(static_cast<size_t>(::sched_getcpu()), &lOne);
        EXPECT_EQ(::sched_setaffinity(0, sizeof(lOne), &lOne), 0);
    }
    ~OneProcessor() { ::sched_setaffinity(0, sizeof(mBefore), &mBefore); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t mBefore{};
};

/// How often the calling thread has gone to sleep. A yield does not count.
int64_t CountSleeps()
{
    rusage lUsage{};
    EXPECT_EQ(::getrusage(RUSAGE_THREAD, &lUsage), 0);
    return lUsage.ru_nvcsw;
}

/// An event of one process.
struct InProcess
{
    void Set() { mEvent.Set(); }
    bool Wait() { return mEvent.Wait_ms(60000); }

    JxUtilsLib::Event mEvent{false};
};

/// An event between processes.
struct Named
{
    Named() { EXPECT_TRUE(mEvent.Create("Local\\" + UniqueName("KySpin"))); }
    void Set() { EXPECT_TRUE(mEvent.Set()); }
    bool Wait() { return mEvent.Wait(60000) == KyPlatform::WaitResult::Done && mEvent.Reset(); }

    KyPlatform::NamedEvent mEvent;
};

/// Two threads take turns at two new events. \return How many turns in a row this one took without a sleep.
template<typename Event>
int CountTurnsAwake()
{
    constexpr int cTurns = 200;
    Event lThere;
    Event lBack;
    std::thread lPeer(
        [&]
        {
            for (int lTurn = 0; lTurn < cTurns; ++lTurn)
            {
                EXPECT_TRUE(lThere.Wait());
                lBack.Set();
            }
        });
    int lMost = 0;
    int lAwake = 0;
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        const int64_t lSleeps = CountSleeps();
        lThere.Set();
        EXPECT_TRUE(lBack.Wait());
        lAwake = CountSleeps() == lSleeps ? lAwake + 1 : 0;
        lMost = std::max(lMost, lAwake);
    }
    lPeer.join();
    return lMost;
}

template<typename Event>
class SharedProcessorTest : public testing::Test
{
};

using Events = testing::Types<InProcess, Named>;
TYPED_TEST_SUITE(SharedProcessorTest, Events);

// Others may have the processor meanwhile: then it is tried again.
TYPED_TEST(SharedProcessorTest, SavesTheSleepsOfThreadsThatShareAProcessor)
{
    const OneProcessor lOne;
    EXPECT_TRUE(WaitFor([] { return CountTurnsAwake<TypeParam>() >= 30; }));
}

} // namespace
