#pragma once

#include <cstdint>

namespace KyPlatform
{

/// Why the system did not make a named object for a thread: the first error since Forget(), 0 for none.
struct Obstacle
{
    /// \param aHandle  What a call that makes an object has returned. \return aHandle.
    static void* Check(void* aHandle) noexcept;
    static void Forget() noexcept;
    static uint32_t Get() noexcept;

    /// Whether the error means that the system or the process lacked something, which says nothing about the object.
    static bool IsShortage(uint32_t aError) noexcept;
};

} // namespace KyPlatform
