#include "kyserial/Device/DevicePort.h"
#include "kyserial/Text/Failure.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

/// More than a minute and a half at 115200 bit/s, for a reader of our output that takes a break.
constexpr uint32_t cReceiveCells = 1U << 20U;
constexpr size_t cPiece = 16384;
constexpr uint32_t cDeviceBusy = 0x8007;

} // namespace

void BytePort::SetLine(const LineSelection& /*aLine*/)
{
    throw OperationError("the line of this port cannot be set");
}

DevicePort::DevicePort(Device& aDevice, KyDeviceSerial aPort, const LineSelection& aLine)
    : mDevice(aDevice)
    , mGeneration(aDevice.GetGeneration())
    , mScope(aDevice.GetAdapter(), aPort)
    , mLine(aDevice.GetAdapter(), aPort)
{
    // Mode and line come before the port is opened: the library's port takes both as the device has them.
    mScope.UseOneOf({"UART", "USRT"});
    mLine.Set(aLine);
    const KyResult lOpened = mPort.Open(&aDevice.GetAdapter(), aPort);
    if (!lOpened.IsOK())
    {
        static_cast<void>(DevicePort::Close()); // a refused step may have left the port claimed
        Check(lOpened, "cannot open " + PortName(aPort));
    }
    const KyResult lSized = mPort.SetRxBufferSize(cReceiveCells);
    if (!lSized.IsOK())
    {
        static_cast<void>(DevicePort::Close());
        Check(lSized, "cannot open " + PortName(aPort));
    }
}

DevicePort::~DevicePort()
{
    static_cast<void>(DevicePort::Close()); // a caller that needs the result calls Close() itself
}

KyResult DevicePort::Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent)
{
    aSent = 0;
    return mPort.Write(aData, aSize, aSent);
}

std::vector<uint8_t> DevicePort::Receive(uint32_t aTimeout)
{
    // Asked before the read makes room: a full buffer has dropped bytes or is about to, and no call says so.
    uint32_t lReady = 0;
    if (mPort.GetRxBytesReady(lReady).IsOK() && lReady >= cReceiveCells - 1)
    {
        mOverflown = true;
    }
    std::vector<uint8_t> lBytes(cPiece);
    uint32_t lRead = 0;
    // A time-out is the usual end of a read. What is wrong with the device is for GetState() to say.
    if (!mPort.Read(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lRead, aTimeout).IsOK())
    {
        lRead = 0;
    }
    lBytes.resize(lRead);
    return lBytes;
}

KyResult DevicePort::GetState()
{
    if (mOverflown)
    {
        return {KyResult::FAILURE, "The receive buffer ran full, received bytes are lost."};
    }
    // A device that was away and is back has other settings, and has dropped what it was to send.
    return mDevice.GetAdapter().IsConnected() && mDevice.GetGeneration() == mGeneration
               ? KyResult(KyResult::OK)
               : KyResult(KyResult::NO_CONNECTION, "The device is not currently connected.");
}

bool DevicePort::IsBusy(const KyResult& aResult) const
{
    return aResult.GetCode() == cDeviceBusy;
}

KyResult DevicePort::Close()
{
    return mPort.IsOpened() ? mPort.Close() : KyResult(KyResult::OK);
}

} // namespace KySerialTool
