#include "JxUtilsLib/Thread.h"

#include <chrono>
#include <thread>

namespace JxUtilsLib
{

void Thread::Sleep(uint32_t aMilliseconds) noexcept
{
    if (aMilliseconds == 0)
    {
        std::this_thread::yield();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(aMilliseconds));
}

uint64_t Thread::GetTickCount() noexcept
{
    const auto lNow = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(lNow).count());
}

} // namespace JxUtilsLib
