#pragma once

#include "kyserial/Bus/BulkPortScope.h"

#include <KySerial/KyDeviceI2CBus.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KySerialTool
{

/// An open I2C bus of a device. The bulk port runs I2C meanwhile.
class I2CBus
{
public:
    /// What follows a transfer.
    enum class Then
    {
        Stop,
        RepeatedStart ///< The bus stays held for the next transfer.
    };

    /// Opens the bus; throws OperationError when that fails.
    /// \param aFast     400 kHz instead of 100 kHz.
    /// \param aRetries  How often a read is repeated whose answer did not come within the library's 50 ms. A
    ///                  slave that counts has moved on by then.
    I2CBus(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort, bool aFast, uint32_t aRetries = 0);
    ~I2CBus();
    I2CBus(const I2CBus&) = delete;
    I2CBus& operator=(const I2CBus&) = delete;

    /// Writes bytes to a slave; none sends its address alone. Does not throw: a missing slave is an answer
    /// too.
    KyResult TryWrite(uint8_t aAddress, const std::vector<uint8_t>& aBytes, Then aThen = Then::Stop);
    /// Reads bytes from a slave. \param aBytes  What came; all that was asked for only when the result is OK.
    KyResult TryRead(uint8_t aAddress, size_t aCount, std::vector<uint8_t>& aBytes, Then aThen = Then::Stop);

    /// The same, throwing OperationError with the slave's address in its text.
    void Write(uint8_t aAddress, const std::vector<uint8_t>& aBytes, Then aThen = Then::Stop);
    std::vector<uint8_t> Read(uint8_t aAddress, size_t aCount, Then aThen = Then::Stop);

    /// Writes bytes, a register number usually, and reads after a repeated start.
    std::vector<uint8_t> WriteAndRead(uint8_t aAddress, const std::vector<uint8_t>& aBytes, size_t aCount);
    KyResult TryWriteAndRead(uint8_t aAddress, const std::vector<uint8_t>& aBytes, size_t aCount,
                             std::vector<uint8_t>& aRead);

    /// Whether a result says that the slave did not answer, rather than that the device failed.
    static bool IsNoAnswer(const KyResult& aResult);

private:
    KyResult ReadOnce(uint8_t aAddress, size_t aCount, std::vector<uint8_t>& aBytes, Then aThen);
    std::string Name(uint8_t aAddress) const;

    BulkPortScope mScope;
    const KyDeviceSerial mPort;
    const bool mFast;
    const uint32_t mRetries;
    KyDeviceI2CBus mBus;
};

} // namespace KySerialTool
