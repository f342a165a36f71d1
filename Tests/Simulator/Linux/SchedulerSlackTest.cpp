#include <Simulator/Time/RealScheduler.h>

#include <gtest/gtest.h>

#include <future>

#include <sys/prctl.h>

using namespace KySimulator;

// The system puts off the end of a wait by 50 us unless a thread asks for less, half the time of a byte at 115200 bit/s.
TEST(SchedulerSlackTest, AnActionIsLateByAMicrosecondAtMostAsFarAsTheSystemCanSeeToIt)
{
    RealScheduler lClock;
    std::promise<int> lSlack;
    lClock.At(Time(0), [&] { lSlack.set_value(::prctl(PR_GET_TIMERSLACK)); });
    EXPECT_LE(lSlack.get_future().get(), 1000); // ns
}
