#pragma once

#include <JxUtilsLib/Thread.h>

#include <cstdint>
#include <new>

namespace KySerialTool
{

/// Repeats a step of the network's thread until there is memory for it: a step without which nothing would follow, such as the next
/// wait for a connection. Blocks meanwhile.
template<typename Step>
void Persist(const Step& aStep)
{
    constexpr uint32_t cPause = 10; // ms
    for (bool lDone = false; !lDone;)
    {
        try
        {
            aStep();
            lDone = true;
        }
        catch (const std::bad_alloc&)
        {
            JxUtilsLib::Thread::Sleep(cPause);
        }
    }
}

} // namespace KySerialTool
