#include "DeviceSPIBus.h"

#include "DeviceChecks.h"
#include "IRegisterSerialPort.h"
#include "LogResult.h"
#include "RetiredEngines.h"

#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/DeviceSPIBus";

constexpr char cNotOpen[] = "%s failed SPI. You must first call Open before using this function";
constexpr uint32_t cMaxTransfer = 255; // sizes travel in one byte each

} // namespace

DeviceSPIBus::DeviceSPIBus() : DeviceBus(cSourceFile, cNotOpen) {}

KyResult DeviceSPIBus::Close()
{
    return CloseEngine("KySerialLib::DeviceSPIBus::Close", __LINE__);
}

bool DeviceSPIBus::IsOpened()
{
    return IsEngineOpen("KySerialLib::DeviceSPIBus::IsOpened", __LINE__);
}

bool DeviceSPIBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return IRegisterSerialPort::IsProtocolSupported(aDevice, aPort, "SPI");
}

KyResult DeviceSPIBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceSPIBus::Open";
    // This question comes first, so a disconnected device is UNSUPPORTED: callers know results by the order.
    if (!IsSupported(aDevice, aPort))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "SPI Bus is not supported with this device");
    }
    if (aPort < KyDeviceSerialBulk0 || aPort > KyDeviceSerialBulk7)
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                             "The specified port is not supported by this device.");
    }
    RetireEngine(std::move(mBulk));
    mBulk = std::make_unique<IRegisterSerialPort>(true);
    return mBulk->Open(aDevice, aPort);
}

KyResult DeviceSPIBus::BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead,
                                 uint32_t aTimeout)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceSPIBus::BurstRead";
    KyResult lResult = CheckEngine(cFunction, __LINE__);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (aBuffer == nullptr) // with size 0, too: a byte is taken all the same
    {
        aBytesRead = 0;
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    return mBulk->Read(aBuffer, aBufferSize, aBytesRead, aTimeout);
}

KyResult DeviceSPIBus::BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                                         bool aSimultaneous, bool aFinal)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceSPIBus::BurstWriteAndRead";
    KyResult lResult = CheckEngine(cFunction, __LINE__);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (aWriteSize > cMaxTransfer || aReadSize > cMaxTransfer)
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                             "SPI read and write only support up to 255 bytes");
    }
    if (IsMissing(aBuffer, aWriteSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    uint32_t lBytesWritten = 0;
    // Open() makes no other kind of engine.
    return static_cast<IRegisterSerialPort&>(*mBulk).WriteAndRead(aBuffer, aWriteSize, lBytesWritten,
                                                                  aReadSize, aSimultaneous, aFinal);
}

} // namespace KySerialLib
