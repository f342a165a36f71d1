#include "Simulator/Peers/I2CBusPeer.h"

#include <algorithm>
#include <utility>

namespace KySimulator
{

namespace
{

constexpr int cBitsPerByte = 9; // with the acknowledge

} // namespace

bool I2CTransfer::IsComplete() const
{
    if (!mAddressAcknowledged)
    {
        return false;
    }
    // In a read the master acknowledges the bytes, and refuses the last one on purpose.
    return mRead || std::all_of(mBytes.begin(), mBytes.end(),
                                [](const I2CByte& aByte) { return aByte.mAcknowledged; });
}

I2CBusPeer::I2CBusPeer() = default;

void I2CBusPeer::SetDevice(uint8_t aAddress, std::shared_ptr<I2CDevice> aDevice)
{
    LockScope lScope(mLock);
    if (aDevice != nullptr)
    {
        mDevices[aAddress & 0x7FU] = std::move(aDevice);
    }
    else
    {
        mDevices.erase(aAddress & 0x7FU);
    }
}

bool I2CBusPeer::HasDevice(uint8_t aAddress) const
{
    LockScope lScope(mLock);
    return mDevices.count(aAddress & 0x7FU) != 0;
}

I2CTransfer I2CBusPeer::Begin(uint8_t aAddress, bool aRead, I2CFlags aFlags, Time aStart, Time aBitTime)
{
    I2CTransfer lTransfer;
    lTransfer.mStart = aStart;
    // The start condition and the address byte have passed when the device decides on its acknowledge.
    lTransfer.mEnd = aStart + (1 + cBitsPerByte) * aBitTime;
    lTransfer.mRepeatedStart = mHeld;
    lTransfer.mAddress = aAddress & 0x7FU;
    lTransfer.mRead = aRead;
    lTransfer.mFast = aFlags.mFast;
    lTransfer.mThirdFlag = aFlags.mThird;
    const auto lFound = mDevices.find(lTransfer.mAddress);
    mCurrent = lFound != mDevices.end() ? lFound->second : nullptr;
    lTransfer.mAddressAcknowledged = mCurrent != nullptr && mCurrent->OnAddressed(aRead, lTransfer.mEnd);
    // Repeated starts may address several devices; each of them hears the stop once.
    if (lTransfer.mAddressAcknowledged &&
        std::find(mAddressed.begin(), mAddressed.end(), mCurrent) == mAddressed.end())
    {
        mAddressed.push_back(mCurrent);
    }
    return lTransfer;
}

I2CTransfer I2CBusPeer::Finish(I2CTransfer aTransfer, bool aStop, Time aEnd)
{
    // A master that gets no acknowledge ends with a stop, whether or not one was asked for.
    aTransfer.mStop = aStop || !aTransfer.IsComplete();
    aTransfer.mEnd = aEnd;
    mHeld = !aTransfer.mStop;
    if (aTransfer.mStop)
    {
        for (const auto& lDevice : std::exchange(mAddressed, {}))
        {
            lDevice->OnStop(aEnd);
        }
    }
    mTransfers.push_back(aTransfer);
    // The record is for tests. The newest transfers are enough, and a long run does not fill memory.
    if (mTransfers.size() > cHistory)
    {
        mTransfers.pop_front();
    }
    return aTransfer;
}

I2CTransfer I2CBusPeer::Write(uint8_t aAddress, const uint8_t* aData, size_t aSize, I2CFlags aFlags,
                              Time aStart, Time aBitTime)
{
    LockScope lScope(mLock);
    I2CTransfer lTransfer = Begin(aAddress, false, aFlags, aStart, aBitTime);
    Time lNow = lTransfer.mEnd;
    bool lGoOn = lTransfer.mAddressAcknowledged;
    for (size_t lIndex = 0; lIndex < aSize && lGoOn; ++lIndex)
    {
        lNow += cBitsPerByte * aBitTime;
        // The byte that is refused has been on the bus too, so the record has it. The bytes after it are not sent.
        lGoOn = mCurrent->OnWrite(aData[lIndex], lNow);
        lTransfer.mBytes.push_back({aData[lIndex], lGoOn});
    }
    // The stop condition takes the time of one more bit.
    return Finish(std::move(lTransfer), aFlags.mStop, lNow + aBitTime);
}

I2CTransfer I2CBusPeer::Read(uint8_t aAddress, size_t aCount, I2CFlags aFlags, Time aStart, Time aBitTime)
{
    LockScope lScope(mLock);
    I2CTransfer lTransfer = Begin(aAddress, true, aFlags, aStart, aBitTime);
    Time lNow = lTransfer.mEnd;
    for (size_t lIndex = 0; lIndex < aCount && lTransfer.mAddressAcknowledged; ++lIndex)
    {
        lNow += cBitsPerByte * aBitTime;
        // The master does not acknowledge the last byte: so the slave knows that it is the last.
        lTransfer.mBytes.push_back({mCurrent->OnRead(lNow), lIndex + 1 < aCount});
    }
    return Finish(std::move(lTransfer), aFlags.mStop, lNow + aBitTime);
}

bool I2CBusPeer::IsHeld() const
{
    LockScope lScope(mLock);
    return mHeld;
}

std::vector<I2CTransfer> I2CBusPeer::GetTransfers() const
{
    LockScope lScope(mLock);
    return {mTransfers.begin(), mTransfers.end()};
}

void I2CBusPeer::ClearTransfers()
{
    LockScope lScope(mLock);
    mTransfers.clear();
}

} // namespace KySimulator
