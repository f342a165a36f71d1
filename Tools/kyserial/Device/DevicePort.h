#pragma once

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/Device.h"
#include "kyserial/Device/PortLine.h"
#include "kyserial/Device/PortName.h"

#include <KyBase/KyResult.h>
#include <KySerial/KyDeviceSerialPort.h>
#include <KySerial/KySerialTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// The bytes of a port, as a terminal session needs them: KyDeviceSerialPort as an interface that a test
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

    /// Whether the device is away for now, so that nothing can be sent. Any thread.
    virtual bool IsAway() const { return false; }

    /// Changes settings of the line until the port is closed. Throws OperationError when that fails. By the
    /// thread that sends.
    virtual void SetLine(const LineSelection& aLine);

    /// Closes the port; the destructor does that too, but drops the result. While no other call runs.
    virtual KyResult Close() { return {KyResult::OK}; }

protected:
    BytePort() = default;
};

/// An open port of a device as a terminal session uses it. A bulk port runs UART or USRT meanwhile: one that
/// runs something else is switched to UART and back.
///
/// Threads: Send() by one thread, Receive() and GetState() by one, which may be another.
class DevicePort : public BytePort
{
public:
    /// Opens the port; throws OperationError when that fails.
    /// \param aLine  Settings that it has until it is closed.
    DevicePort(Device& aDevice, KyDeviceSerial aPort, const LineSelection& aLine = {});
    ~DevicePort() override;

    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override;
    std::vector<uint8_t> Receive(uint32_t aTimeout) override;
    KyResult GetState() override;
    /// A device whose queue is full answers with the status of GigE Vision for "try again later".
    bool IsBusy(const KyResult& aResult) const override;

    void SetLine(const LineSelection& aLine) override { mLine.Set(aLine); }
    KyResult Close() override;

private:
    Device& mDevice;
    const uint64_t mGeneration; // of the connection that the port was opened over
    BulkPortScope mScope;
    PortLine mLine;
    KyDeviceSerialPort mPort;
    bool mOverflown = false;
};

} // namespace KySerialTool
