#include "kyserial/Serve/Status/RecentTraffic.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr int64_t cSameBlock = 20000; // microseconds between two bytes
constexpr size_t cLongestBlock = 1024;

} // namespace

void RecentTraffic::Add(bool aToDevice, int64_t aTime, const uint8_t* aBytes, size_t aCount)
{
    const JxUtilsLib::LockScope lScope(mLock);
    while (aCount > 0)
    {
        // Bytes without a pause between them are one block, as a person reads them. Its length is limited,
        // since only whole blocks are forgotten.
        const bool lGoesOn = !mBlocks.empty() && mBlocks.back().mToDevice == aToDevice &&
                             aTime - mLast < cSameBlock && mBlocks.back().mBytes.size() < cLongestBlock;
        if (!lGoesOn)
        {
            mBlocks.push_back({mPassed, aTime, aToDevice, {}});
        }
        std::string& lBytes = mBlocks.back().mBytes;
        const size_t lTaken = std::min(aCount, cLongestBlock - lBytes.size());
        lBytes.append(reinterpret_cast<const char*>(aBytes), lTaken);
        aBytes += lTaken;
        aCount -= lTaken;
        mPassed += lTaken;
        mRemembered += lTaken;
        mLast = aTime;
        Forget();
    }
}

void RecentTraffic::Forget()
{
    // Two limits: a port that sends single bytes with pauses makes many blocks of few bytes.
    while (mRemembered > cMostBytes || mBlocks.size() > cMostBlocks)
    {
        mRemembered -= mBlocks.front().mBytes.size();
        mBlocks.pop_front();
    }
}

std::vector<TrafficBlock> RecentTraffic::GetAfter(uint64_t aCount, uint64_t& aNext) const
{
    const JxUtilsLib::LockScope lScope(mLock);
    aNext = mPassed;
    const uint64_t lKnown = aCount > mPassed ? 0 : aCount; // of a port that has ended since
    std::vector<TrafficBlock> lBlocks;
    for (const TrafficBlock& lBlock : mBlocks)
    {
        if (lBlock.mStart + lBlock.mBytes.size() > lKnown)
        {
            lBlocks.push_back(lBlock);
        }
    }
    if (!lBlocks.empty() && lBlocks.front().mStart < lKnown)
    {
        TrafficBlock& lFirst = lBlocks.front(); // it has grown
        lFirst.mBytes.erase(0, static_cast<size_t>(lKnown - lFirst.mStart));
        lFirst.mStart = lKnown;
    }
    return lBlocks;
}

} // namespace KySerialTool
