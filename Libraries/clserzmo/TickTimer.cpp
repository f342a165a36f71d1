#include "TickTimer.h"

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/WaitResult.h"

#include <atomic>

namespace KySerialLib
{

namespace
{

uint32_t GetSystemTicks()
{
    return static_cast<uint32_t>(JxUtilsLib::Thread::GetTickCount());
}

std::atomic<TickTimer::Source> gSource{&GetSystemTicks};

} // namespace

// A time-out without end needs no clock, and reading it costs as much as a short write.
TickTimer::TickTimer(uint32_t aTimeout) noexcept
    : mTimeout(aTimeout), mStart(aTimeout == KyPlatform::cInfinite ? 0 : gSource.load()())
{
}

uint32_t TickTimer::GetElapsed() noexcept
{
    const uint32_t lNow = gSource.load()();
    // The count of 32 bits starts at 0 again after 49 days. A wait at that
    // moment gets longer, but not endless.
    if (lNow < mStart)
    {
        mStart = lNow;
    }
    return lNow - mStart;
}

uint32_t TickTimer::GetRemaining() noexcept
{
    if (mTimeout == KyPlatform::cInfinite)
    {
        return mTimeout;
    }
    const uint32_t lElapsed = GetElapsed();
    return lElapsed > mTimeout ? 0 : mTimeout - lElapsed;
}

void TickTimer::SetSource(Source aSource) noexcept
{
    gSource.store(aSource != nullptr ? aSource : &GetSystemTicks);
}

} // namespace KySerialLib
