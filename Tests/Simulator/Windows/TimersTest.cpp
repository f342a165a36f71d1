#include <Simulator/Time/RealScheduler.h>

#include <gtest/gtest.h>

#include <future>

#include <windows.h>

using namespace KySimulator;

namespace
{

struct Resolution
{
    ULONG mCoarsest = 0; // in units of 100 ns, as the others
    ULONG mFinest = 0;
    ULONG mCurrent = 0;
};

Resolution QueryResolution()
{
    using Query = LONG(WINAPI*)(ULONG*, ULONG*, ULONG*);
    const FARPROC lFound = ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtQueryTimerResolution");
    Resolution lResolution;
    reinterpret_cast<Query>(reinterpret_cast<void*>(lFound))(&lResolution.mCoarsest, &lResolution.mFinest,
                                                             &lResolution.mCurrent);
    return lResolution;
}

void RunAnAction()
{
    RealScheduler lClock;
    std::promise<void> lRan;
    lClock.At(Time(0), [&] { lRan.set_value(); });
    lRan.get_future().get();
}

} // namespace

// Without the request, waits end at multiples of 16 ms, the time of 180 characters at 115200 bit/s.
TEST(WindowsTimersTest, AnActionIsLateByAMillisecondAtMostAsFarAsTheSystemCanSeeToIt)
{
    RunAnAction();
    constexpr ULONG cMillisecond = 10000;
    EXPECT_LE(QueryResolution().mCurrent, cMillisecond);
}

// Each of them starts and ends with each program, calls the system on the way and may have threads.
TEST(WindowsTimersTest, ExactTimersBringNoLibrariesForSoundAndWindowsIntoTheProgram)
{
    RunAnAction();
    for (const char* lName : {"winmm.dll", "user32.dll", "ole32.dll"})
    {
        EXPECT_EQ(::GetModuleHandleA(lName), nullptr) << lName;
    }
}
