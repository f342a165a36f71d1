// Two threads of one process that wait for each other in turn: with the library's event, with the wait for an
// address that the system has for waits without a kernel object, and with what the standard library has.
// It also measures how late a wait as short as a line's quiet time ends.

#include "Benchmarks/RoundTrip.h"
#include "JxUtilsLib/Event.h"
#include "KyPlatform/Windows/SystemCalls.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

constexpr int cTurns = 2000;

class LibraryWait
{
public:
    void Set() { mEvent.Set(); }
    void Wait() { mEvent.Wait_ms(JxUtilsLib::Event::cInfinite); }

private:
    JxUtilsLib::Event mEvent{false};
};

using WaitOnAddressType = BOOL(WINAPI*)(volatile void*, void*, SIZE_T, DWORD);
using WakeByAddressType = void(WINAPI*)(void*);

template<typename tFunction>
tFunction Find(const char* aName)
{
    static const HMODULE cModule = ::LoadLibraryA("kernelbase.dll");
    return reinterpret_cast<tFunction>(reinterpret_cast<void*>(::GetProcAddress(cModule, aName)));
}

class AddressWait
{
public:
    void Set()
    {
        static const auto cWake = Find<WakeByAddressType>("WakeByAddressSingle");
        mWord = 1;
        cWake(&mWord);
    }
    void Wait()
    {
        static const auto cWait = Find<WaitOnAddressType>("WaitOnAddress");
        int lZero = 0;
        while (mWord.exchange(0) == 0)
        {
            cWait(&mWord, &lZero, sizeof(int), INFINITE);
        }
    }

private:
    std::atomic<int> mWord{0};
};

class ConditionWait
{
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        mIsSet = true;
        mChanged.notify_one();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lLock(mMutex);
        mChanged.wait(lLock, [this] { return mIsSet; });
        mIsSet = false;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mIsSet = false;
};

/// Waits of 10 ms for a kernel object that is never set. \return Milliseconds that each took.
std::vector<double> MeasureQuietTimes(int aWaits)
{
    const HANDLE lEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<double> lTimes;
    for (int lWait = 0; lWait < aWaits; ++lWait)
    {
        const auto lStart = KyBench::Clock::now();
        static_cast<void>(::WaitForSingleObject(lEvent, 10)); // ends by itself
        lTimes.push_back(KyBench::GetSeconds(lStart) * 1000);
    }
    ::CloseHandle(lEvent);
    return lTimes;
}

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    const bool lQuick = aCount > 1;
    ::SetProcessAffinityMask(::GetCurrentProcess(), 1);
    KyBench::Figures lFigures;
    for (int lRepeat = 0; lRepeat < (lQuick ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        lFigures.Add("inner.wait_us", KyBench::MeasureRoundTrip<LibraryWait>(cTurns));
        lFigures.Add("inner.address_us", KyBench::MeasureRoundTrip<AddressWait>(cTurns));
        lFigures.Add("inner.condition_us", KyBench::MeasureRoundTrip<ConditionWait>(cTurns));
        const std::vector<double> lQuiet = MeasureQuietTimes(lQuick ? 10 : 100);
        lFigures.Add("inner.quiet_ms", KyBench::GetQuantile(lQuiet, 0.5));
        lFigures.Add("inner.quiet_p99_ms", KyBench::GetQuantile(lQuiet, 0.99));
    }
    lFigures.Print();
    return 0;
}
