#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/SpiDevice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KySimulator
{

/// Busy times of a SpiFlash.
struct SpiFlashTimes
{
    Time mProgram = std::chrono::milliseconds(1);
    Time mSectorErase = std::chrono::milliseconds(50);
    Time mChipErase = std::chrono::milliseconds(500);
};

/// A serial flash memory of 64 KiB: pages of 256 bytes, sectors of 4 KiB, erased to 0xFF.
///
/// Commands: 0x9F identity, 0x05 status (bit 0 busy, bit 1 write enabled), 0x06 and 0x04 write enable and
/// disable, 0x03 read, 0x02 page program, 0x20 sector erase, 0xC7 chip erase. Addresses have 24 bits; those
/// above the size wrap. Programming can only clear bits, and wraps within its page. What writes begins when
/// chip select is released and takes its time; while it lasts, everything but the status is ignored and reads
/// as 0xFF.
class SpiFlash : public SpiDevice
{
public:
    static constexpr size_t cSize = 65536;
    static constexpr size_t cPage = 256;
    static constexpr size_t cSector = 4096;
    static constexpr std::array<uint8_t, 3> cIdentity = {0xEF, 0x30, 0x10};

    explicit SpiFlash(SpiFlashTimes aTimes = {});

    void OnSelect(Time aNow) override;
    uint8_t OnExchange(uint8_t aByte, Time aNow) override;
    void OnRelease(Time aNow) override;

    /// The memory, for tests. Any thread.
    std::vector<uint8_t> GetContents() const;
    void SetContents(const std::vector<uint8_t>& aContents);

private:
    uint8_t AnswerLocked(uint8_t aByte, Time aNow) JX_REQUIRES(mLock);
    void ExecuteLocked(Time aNow) JX_REQUIRES(mLock);
    bool IsBusy(Time aNow) const JX_REQUIRES(mLock) { return aNow < mBusyUntil; }

    const SpiFlashTimes mTimes;
    mutable Lock mLock;
    std::vector<uint8_t> mContents JX_GUARDED_BY(mLock);
    std::vector<uint8_t> mPageData JX_GUARDED_BY(mLock);
    uint64_t mCount JX_GUARDED_BY(mLock) = 0; // bytes since chip select
    uint8_t mCommand JX_GUARDED_BY(mLock) = 0;
    uint32_t mAddress JX_GUARDED_BY(mLock) = 0;
    bool mIgnore JX_GUARDED_BY(mLock) = false;
    bool mWriteEnabled JX_GUARDED_BY(mLock) = false;
    Time mBusyUntil JX_GUARDED_BY(mLock){0};
};

} // namespace KySimulator
