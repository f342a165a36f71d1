#pragma once

#include "Adapters/GigE/Evaluator/NodeTable.h"

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace KyGigE
{

/// What registers held when they were last read or written, of those that the description allows to be kept.
class RegisterCache
{
public:
    static constexpr size_t cLargest = 4096;               ///< Longer ones are not kept.
    static constexpr size_t cMostBytes = size_t{4} << 20U; ///< Of all together.

    /// The bytes of a register; none when they are not known. The register may lie elsewhere than it did
    /// then. \param aExpired  Set when they were known and only their time is up.
    std::span<const uint8_t> Find(NodeId aNode, uint64_t aAddress, size_t aSize, uint64_t aNow,
                                  bool& aExpired) const;
    /// \param aUntil  The time from which on they are not good any more; 0: always good.
    void Keep(NodeId aNode, uint64_t aAddress, std::span<const uint8_t> aBytes, uint64_t aUntil);
    void Drop(NodeId aNode);
    /// Drops what shares bytes with a place that was written.
    void DropOverlapping(uint64_t aAddress, size_t aSize);
    void Clear();

private:
    struct Entry
    {
        uint64_t mAddress;
        uint64_t mUntil;
        std::vector<uint8_t> mBytes;
    };

    std::unordered_map<NodeId, Entry> mEntries;
    size_t mBytes = 0;
};

} // namespace KyGigE
