#pragma once

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/BytePort.h"

#include <KySerial/KyDeviceSerialPort.h>

namespace KySerialTool
{

/// An open port of a device as a terminal session uses it. A bulk port runs UART or USRT meanwhile: one that
/// runs something else is switched to UART and back.
///
/// Threads: Send() by one thread, Receive() and GetState() by one, which may be another.
class DevicePort : public BytePort
{
public:
    /// Opens the port; throws OperationError when that fails.
    DevicePort(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort);
    ~DevicePort() override;

    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override;
    std::vector<uint8_t> Receive(uint32_t aTimeout) override;
    KyResult GetState() override;
    /// A device whose queue is full answers with the status of GigE Vision for "try again later".
    bool IsBusy(const KyResult& aResult) const override;

    /// Closes the port; the destructor does that too, but cannot tell the result.
    KyResult Close();

private:
    IKyDeviceAdapter& mAdapter;
    BulkPortScope mScope;
    KyDeviceSerialPort mPort;
    bool mOverflown = false;
};

} // namespace KySerialTool
