#pragma once

#include <KyBase/KyResult.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KySerialTool
{

/// The bytes of a port, as a terminal session needs them: KyDeviceSerialPort behind an interface that a test
/// can take the place of.
class BytePort
{
public:
    virtual ~BytePort() = default;
    BytePort(const BytePort&) = delete;
    BytePort& operator=(const BytePort&) = delete;

    /// Sends bytes. \param aSent  Receives the number that went out, on a failure too.
    virtual KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) = 0;

    /// Whether a result of Send() means that there is no room now: trying again later makes sense.
    virtual bool IsBusy(const KyResult& aResult) const = 0;

    /// What has come, oldest first; waits for the first byte. Empty when none came in time.
    virtual std::vector<uint8_t> Receive(uint32_t aTimeout) = 0;

    /// Why nothing more can be received, if that is so: the device is gone, or received bytes were lost. OK
    /// otherwise.
    virtual KyResult GetState() = 0;

protected:
    BytePort() = default;
};

} // namespace KySerialTool
