// Two threads of one process that wait for each other in turn: with the library's event, with the wait for an
// address that the system has for those who need no kernel object, and with what the standard library has.

#include "Benchmarks/RoundTrip.h"
#include "JxUtilsLib/Event.h"
#include "KyPlatform/Windows/SystemCalls.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

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

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    ::SetProcessAffinityMask(::GetCurrentProcess(), 1);
    KyBench::Figures lFigures;
    for (int lRepeat = 0; lRepeat < (aCount > 1 ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        lFigures.Add("inner.wait_us", KyBench::MeasureRoundTrip<LibraryWait>(cTurns));
        lFigures.Add("inner.address_us", KyBench::MeasureRoundTrip<AddressWait>(cTurns));
        lFigures.Add("inner.condition_us", KyBench::MeasureRoundTrip<ConditionWait>(cTurns));
    }
    lFigures.Print();
    return 0;
}
