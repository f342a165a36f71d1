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
        return static_cast<uint8_t>((IsBusy(aNow) ? 1U : 0U) | (mWriteEnabled ? 2U : 0U));
    }
    const bool lAddressed = mCommand == cRead || mCommand == cPageProgram || mCommand == cSectorErase;
    if (lAddressed && mCount < cAddressEnd)
    {
        mAddress = (mAddress << 8U) | aByte;
        return cOpen;
    }
    if (mCommand == cRead)
    {
        return mContents[mAddress++ % cSize];
    }
    if (mCommand == cPageProgram)
    {
        mPageData.push_back(aByte);
        if (mPageData.size() > cPage)
        {
            mPageData.erase(mPageData.begin()); // the last page's worth counts
            mAddress = static_cast<uint32_t>((mAddress & ~(cPage - 1)) | ((mAddress + 1) & (cPage - 1)));
        }
    }
    return cOpen;
}

void SpiFlash::OnRelease(Time aNow)
{
    LockScope lScope(mLock);
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
            lCell = static_cast<uint8_t>(lCell & mPageData[lIndex]);
        }
        mBusyUntil = aNow + mTimes.mProgram;
    }
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
