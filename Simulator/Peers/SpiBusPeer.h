#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/SpiDevice.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace KySimulator
{

/// What went over the bus while chip select was active.
struct SpiTransfer
{
    Time mStart{0};
    std::vector<uint8_t> mOut; ///< From the camera.
    std::vector<uint8_t> mIn;  ///< From the device; as many bytes.
    bool mReleased = false;    ///< Chip select has been released; false is a transfer that still goes on.
};

/// An SPI bus with one device, for a bulk port in SPI mode: CameraModel::PlugSpi(). Any thread.
class SpiBusPeer
{
public:
    /// Transfers that are remembered, the newest.
    static constexpr size_t cHistory = 1024;

    /// \param aDevice  May be null: an open bus reads as 0xFF.
    explicit SpiBusPeer(std::shared_ptr<SpiDevice> aDevice);

    /// Clocks bytes, with chip select active from the first of them on.
    /// \return The bytes that came in, as many as went out.
    std::vector<uint8_t> Exchange(const std::vector<uint8_t>& aOut, Time aStart, Time aByteTime);

    /// Releases chip select, if it is active.
    void Release(Time aNow);

    bool IsSelected() const;

    /// The remembered transfers, oldest first, the one that goes on included.
    std::vector<SpiTransfer> GetTransfers() const;
    void ClearTransfers();

private:
    const std::shared_ptr<SpiDevice> mDevice;
    mutable Lock mLock;
    std::deque<SpiTransfer> mTransfers JX_GUARDED_BY(mLock);
    bool mSelected JX_GUARDED_BY(mLock) = false;
};

} // namespace KySimulator
