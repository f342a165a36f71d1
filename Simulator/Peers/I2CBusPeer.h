#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/I2CDevice.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace KySimulator
{

/// The four flags that come with a transmit.
struct I2CFlags
{
    bool mFast = false;     ///< 400 kHz rather than 100 kHz.
    bool mStop = false;     ///< End with a stop; false holds the bus for a repeated start.
    bool mThird = false;    ///< Recorded, without an effect.
    bool mTransfer = false; ///< Marks a bus transfer.
};

/// One byte on the bus and whether the receiver acknowledged it. The master acknowledges every byte that it
/// reads but the last.
struct I2CByte
{
    uint8_t mByte = 0;
    bool mAcknowledged = false;
    bool operator==(const I2CByte& aOther) const
    {
        return mByte == aOther.mByte && mAcknowledged == aOther.mAcknowledged;
    }
};

/// What happened on the bus between a start and the next one or a stop.
struct I2CTransfer
{
    Time mStart{0};
    Time mEnd{0};
    bool mRepeatedStart = false; ///< Began without a stop before it.
    uint8_t mAddress = 0;        ///< 7 bits.
    bool mRead = false;
    bool mAddressAcknowledged = false;
    std::vector<I2CByte> mBytes; ///< Without the address; a byte that was not acknowledged is the last.
    bool mStop = false;          ///< Ended with a stop. A missing acknowledge always ends with one.
    bool mFast = false;
    bool mThirdFlag = false;

    /// Every byte that needed an acknowledge had one.
    bool IsComplete() const;
};

/// An I2C bus with its slaves, for a bulk port in I2C mode: CameraModel::PlugI2C(). Any thread.
class I2CBusPeer
{
public:
    /// Transfers that are remembered, the newest.
    static constexpr size_t cHistory = 1024;

    I2CBusPeer();

    /// Puts a device at an address (7 bits) in place of what was there; null takes it away.
    void SetDevice(uint8_t aAddress, std::shared_ptr<I2CDevice> aDevice);

    /// Whether a device at the address would be called; not whether it would acknowledge.
    bool HasDevice(uint8_t aAddress) const;

    /// A write transfer.
    /// \return What happened, also remembered.
    I2CTransfer Write(uint8_t aAddress, const uint8_t* aData, size_t aSize, I2CFlags aFlags, Time aStart,
                      Time aBitTime);
    /// A read transfer of aCount bytes.
    I2CTransfer Read(uint8_t aAddress, size_t aCount, I2CFlags aFlags, Time aStart, Time aBitTime);

    /// Whether the last transfer ended without a stop.
    bool IsHeld() const;

    /// The remembered transfers, oldest first.
    std::vector<I2CTransfer> GetTransfers() const;
    void ClearTransfers();

private:
    I2CTransfer Begin(uint8_t aAddress, bool aRead, I2CFlags aFlags, Time aStart, Time aBitTime)
        JX_REQUIRES(mLock);
    I2CTransfer Finish(I2CTransfer aTransfer, bool aStop, Time aEnd) JX_REQUIRES(mLock);

    mutable Lock mLock;
    std::map<uint8_t, std::shared_ptr<I2CDevice>> mDevices JX_GUARDED_BY(mLock);
    std::vector<std::shared_ptr<I2CDevice>> mAddressed JX_GUARDED_BY(mLock); // since the last stop
    std::shared_ptr<I2CDevice> mCurrent JX_GUARDED_BY(mLock);
    std::deque<I2CTransfer> mTransfers JX_GUARDED_BY(mLock);
    bool mHeld JX_GUARDED_BY(mLock) = false;
};

} // namespace KySimulator
