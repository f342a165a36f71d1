#include "Simulator/Peers/SpiFlash.h"

#include <algorithm>

namespace KySimulator
{

namespace
{

constexpr uint8_t cPageProgram = 0x02;
constexpr uint8_t cRead = 0x03;
constexpr uint8_t cWriteDisable = 0x04;
constexpr uint8_t cStatus = 0x05;
constexpr uint8_t cWriteEnable = 0x06;
constexpr uint8_t cSectorErase = 0x20;
constexpr uint8_t cIdentify = 0x9F;
constexpr uint8_t cChipErase = 0xC7;

constexpr uint64_t cAddressEnd = 4; // command and three address bytes
constexpr uint8_t cOpen = 0xFF;     // the output is not driven

} // namespace

SpiFlash::SpiFlash(SpiFlashTimes aTimes) : mTimes(aTimes), mContents(cSize, 0xFF) {}

void SpiFlash::OnSelect(Time /*aNow*/)
{
    LockScope lScope(mLock);
    mCount = 0;
    // A chip select begins a new command, whatever became of the one before.
    mCommand = 0;
    mAddress = 0;
    mIgnore = false;
    mPageData.clear();
}

uint8_t SpiFlash::OnExchange(uint8_t aByte, Time aNow)
{
    LockScope lScope(mLock);
    const uint8_t lAnswer = AnswerLocked(aByte, aNow);
    ++mCount;
    return lAnswer;
}

uint8_t SpiFlash::AnswerLocked(uint8_t aByte, Time aNow)
{
    if (mCount == 0)
    {
        mCommand = aByte;
        // While it programs or erases the chip answers the status command only, and ignores all others to their
        // end.
        mIgnore = IsBusy(aNow) && aByte != cStatus;
        return cOpen;
    }
    if (mIgnore)
    {
        return cOpen;
    }
    if (mCommand == cIdentify)
    {
        return mCount <= cIdentity.size() ? cIdentity[mCount - 1] : cOpen;
    }
    if (mCommand == cStatus)
    {
        // Bit 0 is "busy", bit 1 the write enable. Drivers poll them, so the status goes on for as long as it
        // is clocked.
        return static_cast<uint8_t>((IsBusy(aNow) ? 1U : 0U) | (mWriteEnabled ? 2U : 0U));
    }
    const bool lAddressed = mCommand == cRead || mCommand == cPageProgram || mCommand == cSectorErase;
    if (lAddressed && mCount < cAddressEnd)
    {
        mAddress = (mAddress << 8U) | aByte;
        return cOpen;
    }
    // A read goes on over the end of the chip at address 0.
    if (mCommand == cRead)
    {
        return mContents[mAddress++ % cSize];
    }
    if (mCommand == cPageProgram)
    {
        mPageData.push_back(aByte);
        if (mPageData.size() > cPage)
        {
            // Of more bytes than a page has the chip programs the last ones, and the first of those starts one place later.
            mPageData.erase(mPageData.begin());
            mAddress = static_cast<uint32_t>((mAddress & ~(cPage - 1)) | ((mAddress + 1) & (cPage - 1)));
        }
    }
    return cOpen;
}

void SpiFlash::OnRelease(Time aNow)
{
    LockScope lScope(mLock);
    // The chip executes when it is released, not before: a command that is cut off does nothing.
    if (!mIgnore && mCount > 0)
    {
        ExecuteLocked(aNow);
    }
    mCount = 0;
}

void SpiFlash::ExecuteLocked(Time aNow)
{
    if (mCommand == cWriteEnable || mCommand == cWriteDisable)
    {
        mWriteEnabled = mCommand == cWriteEnable;
        return;
    }
    // Each change needs a write enable of its own; without one the chip ignores the command silently.
    if (!mWriteEnabled)
    {
        return;
    }
    const uint32_t lAddress = mAddress % cSize;
    if (mCommand == cPageProgram && !mPageData.empty())
    {
        const size_t lPage = lAddress & ~(cPage - 1);
        for (size_t lIndex = 0; lIndex < mPageData.size(); ++lIndex)
        {
            uint8_t& lCell = mContents[lPage + (lAddress + lIndex) % cPage];
            // Programming only clears bits. An erase sets them.
            lCell = static_cast<uint8_t>(lCell & mPageData[lIndex]);
        }
        mBusyUntil = aNow + mTimes.mProgram;
    }
    // An erase with too few or too many bytes is no erase.
    else if (mCommand == cSectorErase && mCount == cAddressEnd)
    {
        const auto lSector = mContents.begin() + static_cast<std::ptrdiff_t>(lAddress & ~(cSector - 1));
        std::fill_n(lSector, cSector, static_cast<uint8_t>(0xFF));
        mBusyUntil = aNow + mTimes.mSectorErase;
    }
    else if (mCommand == cChipErase && mCount == 1)
    {
        std::fill(mContents.begin(), mContents.end(), static_cast<uint8_t>(0xFF));
        mBusyUntil = aNow + mTimes.mChipErase;
    }
    else
    {
        return;
    }
    // Used up by the command. Commands that changed nothing leave it.
    mWriteEnabled = false;
}

std::vector<uint8_t> SpiFlash::GetContents() const
{
    LockScope lScope(mLock);
    return mContents;
}

void SpiFlash::SetContents(const std::vector<uint8_t>& aContents)
{
    LockScope lScope(mLock);
    std::copy_n(aContents.begin(), std::min(aContents.size(), cSize), mContents.begin());
}

} // namespace KySimulator
