#include "Adapters/GigE/Evaluator/RegisterCache.h"

namespace KyGigE
{

std::span<const uint8_t> RegisterCache::Find(NodeId aNode, uint64_t aAddress, size_t aSize, uint64_t aNow,
                                             bool& aExpired) const
{
    const auto lFound = mEntries.find(aNode);
    const bool lKnown = lFound != mEntries.end() && lFound->second.mAddress == aAddress &&
                        lFound->second.mBytes.size() == aSize;
    aExpired = lKnown && lFound->second.mUntil != 0 && aNow >= lFound->second.mUntil;
    return lKnown && !aExpired ? std::span<const uint8_t>(lFound->second.mBytes) : std::span<const uint8_t>();
}

void RegisterCache::Keep(NodeId aNode, uint64_t aAddress, std::span<const uint8_t> aBytes, uint64_t aUntil)
{
    Drop(aNode);
    if (aBytes.size() > cLargest)
    {
        return;
    }
    // All at once: which entry is needed next is unknown, and reading it again costs one packet.
    if (mBytes + aBytes.size() > cMostBytes)
    {
        Clear();
    }
    mBytes += aBytes.size();
    mEntries[aNode] = {aAddress, aUntil, {aBytes.begin(), aBytes.end()}};
}

void RegisterCache::Drop(NodeId aNode)
{
    const auto lFound = mEntries.find(aNode);
    if (lFound != mEntries.end())
    {
        mBytes -= lFound->second.mBytes.size();
        mEntries.erase(lFound);
    }
}

void RegisterCache::DropOverlapping(uint64_t aAddress, size_t aSize)
{
    for (auto lEntry = mEntries.begin(); lEntry != mEntries.end();)
    {
        const uint64_t lOther = lEntry->second.mAddress;
        const bool lOverlaps =
            lOther >= aAddress ? lOther - aAddress < aSize : aAddress - lOther < lEntry->second.mBytes.size();
        if (lOverlaps)
        {
            mBytes -= lEntry->second.mBytes.size();
            lEntry = mEntries.erase(lEntry);
        }
        else
        {
            ++lEntry;
        }
    }
}

void RegisterCache::Clear()
{
    mEntries.clear();
    mBytes = 0;
}

} // namespace KyGigE
