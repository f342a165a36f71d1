#pragma once

#include <cstdint>

namespace KyPlatform
{

/// A file descriptor as a contract's object pointer. A descriptor that the system refused is null.
inline void* ToHandle(int aDescriptor) noexcept
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): nothing is ever read through it
    return aDescriptor < 0 ? nullptr : reinterpret_cast<void*>(static_cast<intptr_t>(aDescriptor) + 1);
}

/// The file descriptor of an object pointer, which must not be null.
inline int ToDescriptor(void* aHandle) noexcept
{
    return static_cast<int>(reinterpret_cast<intptr_t>(aHandle) - 1);
}

} // namespace KyPlatform
