#include "KyPlatform/Timers.h"

#include <windows.h>

namespace KyPlatform
{

namespace
{

using SetTimerResolution = LONG(WINAPI*)(ULONG, BOOLEAN, ULONG*);

bool Tighten() noexcept
{
    const HMODULE lSystem = ::GetModuleHandleA("ntdll.dll");
    const FARPROC lFound = lSystem != nullptr ? ::GetProcAddress(lSystem, "NtSetTimerResolution") : nullptr;
    const auto lSet = reinterpret_cast<SetTimerResolution>(reinterpret_cast<void*>(lFound));
    constexpr ULONG cMillisecond = 10000; // in units of 100 ns
    ULONG lResolution = 0;
    return lSet != nullptr && lSet(cMillisecond, TRUE, &lResolution) >= 0;
}

} // namespace

// Of the whole process, to its end: without it waits end at multiples of 16 ms. timeBeginPeriod does the same, but its DLL
// brings those for sound, windows and COM into each program, which then start and end with it.
void TightenTimers() noexcept
{
    static const bool lTightened = Tighten();
    static_cast<void>(lTightened);
}

} // namespace KyPlatform
