#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/I2CDevice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KySimulator
{

/// A 2 kbit I2C EEPROM: 256 bytes in pages of 8, erased to 0xFF, usually at address 0x50.
///
/// A write sends the word address and then data, which stays within its page and wraps there; the stop starts
/// a write cycle during which the device does not acknowledge. A write of the word address alone only sets
/// the address for the reads that follow; reads go on from it and wrap at the end.
class Eeprom24C02 : public I2CDevice
{
public:
    static constexpr size_t cSize = 256;
    static constexpr size_t cPage = 8;
    static constexpr uint8_t cAddress = 0x50;

    /// \param aWriteTime  Length of a write cycle.
    explicit Eeprom24C02(Time aWriteTime = std::chrono::milliseconds(5));

    bool OnAddressed(bool aRead, Time aNow) override;
    bool OnWrite(uint8_t aByte, Time aNow) override;
    uint8_t OnRead(Time aNow) override;
    void OnStop(Time aNow) override;

    /// The memory, for tests. Any thread.
    std::array<uint8_t, cSize> GetContents() const;
    void SetContents(const std::array<uint8_t, cSize>& aContents);
    /// When the last write cycle ends or ended.
    Time GetBusyUntil() const;

private:
    const Time mWriteTime;
    mutable Lock mLock;
    std::array<uint8_t, cSize> mContents JX_GUARDED_BY(mLock);
    uint8_t mPointer JX_GUARDED_BY(mLock) = 0;
    bool mExpectPointer JX_GUARDED_BY(mLock) = false;
    std::vector<std::pair<uint8_t, uint8_t>>
        mPending JX_GUARDED_BY(mLock); // address and byte, until the stop
    Time mBusyUntil JX_GUARDED_BY(mLock){0};
};

} // namespace KySimulator
