#pragma once

#include "kyserial/Bus/BulkPortScope.h"

#include <KySerial/KyDeviceSPIBus.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KySerialTool
{

/// One step of a transfer that the library takes at once.
struct SpiStep
{
    size_t mWrite = 0;
    size_t mRead = 0;
    bool operator==(const SpiStep&) const = default;
};

/// Splits a transfer into steps of at most aLimit bytes each way: writes, then reads, the last write and the
/// first read together; or, simultaneously, as many bytes each way. At least one step.
std::vector<SpiStep> SplitSpiTransfer(size_t aWrite, size_t aRead, bool aSimultaneous, size_t aLimit);

/// An open SPI bus of a device. The bulk port runs SPI meanwhile.
class SpiBus
{
public:
    /// Opens the bus; throws OperationError when that fails.
    SpiBus(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort);
    ~SpiBus();
    SpiBus(const SpiBus&) = delete;
    SpiBus& operator=(const SpiBus&) = delete;

    /// How a transfer goes.
    struct Options
    {
        bool mSimultaneous = false; ///< Reads while it writes, as many bytes.
        bool mHold = false;         ///< The slave stays selected for the next transfer.
    };

    /// Writes and then reads bytes, any number of them. Throws OperationError.
    /// \return The bytes read: aRead, or as many as were written when simultaneous.
    std::vector<uint8_t> Transfer(const std::vector<uint8_t>& aWrite, size_t aRead, Options aOptions);
    /// The same with neither option.
    std::vector<uint8_t> Transfer(const std::vector<uint8_t>& aWrite, size_t aRead);

private:
    void Collect(size_t aCount, std::vector<uint8_t>& aBytes);

    BulkPortScope mScope;
    const KyDeviceSerial mPort;
    size_t mLimit = 0;
    KyDeviceSPIBus mBus;
};

} // namespace KySerialTool
