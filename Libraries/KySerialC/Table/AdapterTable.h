#pragma once

#include "KySerialC/Adapter.h"

#include <cstddef>
#include <cstdint>

namespace KySerialCLib
{

/// The table of functions of a camera in AdapterObjects(); the context is the handle.
KyAdapter AdapterTable(uint64_t aHandle);

/// How many bytes of a table of that size are whole functions that this library knows, with what comes before
/// them; 0 for a size too small for the first function. A size between two functions is that of the one before:
/// half a pointer points nowhere.
constexpr uint32_t WholeTable(uint32_t aSize)
{
    constexpr uint32_t cBefore = offsetof(KyAdapter, mIsConnected);
    constexpr uint32_t cFunction = sizeof(KyAdapter::mIsConnected);
    const uint32_t lKnown = aSize < sizeof(KyAdapter) ? aSize : uint32_t{sizeof(KyAdapter)};
    return lKnown < cBefore + cFunction ? 0 : lKnown - (lKnown - cBefore) % cFunction;
}

} // namespace KySerialCLib
