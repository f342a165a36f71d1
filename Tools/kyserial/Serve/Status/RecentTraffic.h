#pragma once

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Bytes that passed a port one after the other in one direction.
struct TrafficBlock
{
    uint64_t mStart = 0; ///< Number of bytes that passed before, both ways together.
    int64_t mTime = 0;   ///< Of the first byte: microseconds since 1970, UTC.
    bool mToDevice = false;
    std::string mBytes{};
};

/// The last bytes that passed a port, for somebody who looks on. It forgets the oldest: 8 KiB in 256 blocks stay.
/// Bytes that follow each other within 20 ms in one direction are one block.
///
/// Threads: any.
class RecentTraffic
{
public:
    static constexpr size_t cMostBytes = 8192;
    static constexpr size_t cMostBlocks = 256;

    void Add(bool aToDevice, int64_t aTime, const uint8_t* aBytes, size_t aCount);

    /// What passed after the first aCount bytes, as far as it is remembered; everything when fewer have passed.
    /// \param aNext  Receives the number of bytes that have passed, for the next question.
    std::vector<TrafficBlock> GetAfter(uint64_t aCount, uint64_t& aNext) const;

private:
    void Forget() JX_REQUIRES(mLock);

    mutable JxUtilsLib::Mutex mLock;
    std::deque<TrafficBlock> mBlocks JX_GUARDED_BY(mLock);
    size_t mRemembered JX_GUARDED_BY(mLock) = 0;
    uint64_t mPassed JX_GUARDED_BY(mLock) = 0;
    int64_t mLast JX_GUARDED_BY(mLock) = 0;
};

} // namespace KySerialTool
