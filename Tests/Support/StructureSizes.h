#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

namespace KyTest
{

/// Calls aTry with a copy of a C structure for each size that a caller may give, 0 to eight bytes more than it has.
/// The copy has exactly as many bytes as its size says, so that a sanitizer sees each access beyond them.
template<typename Structure, typename Try>
void ForEachSize(const Structure& aModel, const Try& aTry)
{
    for (uint32_t lSize = 0; lSize <= sizeof(Structure) + 8; ++lSize)
    {
        const uint32_t lBytes =
            std::max<uint32_t>(lSize, sizeof(uint32_t)); // the size itself is always there
        const auto lMemory = std::make_unique<unsigned char[]>(lBytes);
        std::memcpy(lMemory.get(), &aModel, std::min<size_t>(lBytes, sizeof(Structure)));
        std::memcpy(lMemory.get(), &lSize, sizeof lSize);
        aTry(reinterpret_cast<Structure*>(lMemory.get()), lSize);
    }
}

} // namespace KyTest
