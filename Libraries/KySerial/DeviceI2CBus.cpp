#include "DeviceI2CBus.h"

#include "BulkIPEngine.h"
#include "DeviceChecks.h"
#include "IRegisterSerialPort.h"
#include "JxUtilsLib/Assert.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "RetiredEngines.h"

#include <cstring>
#include <new>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/DeviceI2CBus";

constexpr char cNotOpen[] = "%s failed. You must first call Open before using this function";

// Milliseconds that each read of an answer may take. The division comes first: reads shorter than a second on
// the wire get 50 ms, and clients' own time-outs build on that.
constexpr uint32_t ReadTimeout(uint32_t aSize, bool aFastMode)
{
    uint32_t lTimeout = aSize * 9; // eight data bits and an acknowledge
    lTimeout /= aFastMode ? 400000U : 100000U;
    lTimeout *= 1000;
    return lTimeout + 50;
}

// Memory for one byte more than aSize; null without memory, and for the size to which one cannot be added.
std::unique_ptr<uint8_t[]> OneMore(uint32_t aSize)
{
    return std::unique_ptr<uint8_t[]>(aSize != UINT32_MAX ? new (std::nothrow) uint8_t[size_t{aSize} + 1]
                                                          : nullptr);
}

constexpr uint8_t WireAddress(uint8_t aSlaveAddress, bool aRead)
{
    return static_cast<uint8_t>((uint32_t{aSlaveAddress} << 1U) | (aRead ? 1U : 0U));
}

} // namespace

DeviceI2CBus::DeviceI2CBus() : DeviceBus(cSourceFile, cNotOpen) {}

KyResult DeviceI2CBus::Close()
{
    return CloseEngine("KySerialLib::DeviceI2CBus::Close", __LINE__);
}

bool DeviceI2CBus::IsOpened()
{
    return IsEngineOpen("KySerialLib::DeviceI2CBus::IsOpened", __LINE__);
}

bool DeviceI2CBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    // The features first, the other way round than Open(): a device with them is spared the registers.
    const KyString lProtocol("I2C");
    return IRegisterSerialPort::IsProtocolSupported(aDevice, aPort, lProtocol) ||
           BulkIPEngine::IsI2CSupported(aDevice, aPort);
}

KyResult DeviceI2CBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceI2CBus::Open";
    // Both questions, in this order: adapters see the same accesses whatever the answers are.
    const bool lRegisters = BulkIPEngine::IsI2CSupported(aDevice, aPort);
    const bool lFeatures = IRegisterSerialPort::IsProtocolSupported(aDevice, aPort, "I2C");
    // This question comes first, so a disconnected device is UNSUPPORTED: callers know results by the order.
    if (!lRegisters && !lFeatures)
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "I2C Bus is not supported with this device");
    }
    if (aPort == KyDeviceSerialBulk0)
    {
        RetireEngine(std::move(mBulk));
        if (lRegisters)
        {
            mBulk = std::make_unique<BulkIPEngine>();
        }
        else
        {
            mBulk = std::make_unique<IRegisterSerialPort>(false);
        }
        return mBulk->Open(aDevice, aPort);
    }
    if (aPort >= KyDeviceSerialBulk1 && aPort <= KyDeviceSerialBulk7 && lFeatures)
    {
        auto lEngine = std::make_unique<IRegisterSerialPort>(false);
        // Unlike on bulk port 0, the former engine is not destroyed, closed or not: programs that open one
        // bus object on several of these ports in turn rely on the earlier ports staying claimed.
        RetiredEngines::Add(std::move(mBulk));
        mBulk = std::move(lEngine);
        return mBulk->Open(aDevice, aPort);
    }
    return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                         "The specified port is not supported by this device.");
}

void DeviceI2CBus::SetFlags(bool aFastMode, bool aStop)
{
    mBulk->SetI2CFastMode(aFastMode);
    mBulk->SetI2CStop(aStop);
    mBulk->SetI2CFlag3(true);
    mBulk->SetI2CTransfer(true);
}

KyResult DeviceI2CBus::MasterTransmitter(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                                         bool aFastMode, bool aStop)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceI2CBus::MasterTransmitter";
    KyResult lResult = CheckEngine(cFunction, __LINE__);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (IsMissing(aBuffer, aBufferSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    // A device takes each transmit as one transfer, so address and data have to be in one buffer.
    const std::unique_ptr<uint8_t[]> lBytes = OneMore(aBufferSize);
    if (lBytes == nullptr)
    {
        return OutOfMemory();
    }
    lBytes[0] = WireAddress(aSlaveAddress, false);
    if (aBufferSize > 0)
    {
        std::memcpy(&lBytes[1], aBuffer, aBufferSize);
    }
    SetFlags(aFastMode, aStop);
    uint32_t lBytesWritten = 0;
    return mBulk->Write(lBytes.get(), aBufferSize + 1, lBytesWritten);
}

KyResult DeviceI2CBus::MasterReceiverAfterFirstByte(uint8_t aSlaveAddress, uint8_t* aBuffer,
                                                    uint32_t aBufferSize, uint32_t& aBytesRead,
                                                    bool aFastMode, bool aStop)
{
    static constexpr char cFunction[] = "KySerialLib::DeviceI2CBus::MasterReceiverAfterFirstByte";
    KyResult lResult = CheckEngine(cFunction, __LINE__);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    JX_EXPECT(aBufferSize < 65536); // the count travels in two bytes
    if (IsMissing(aBuffer, aBufferSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    const uint8_t lCommand[] = {WireAddress(aSlaveAddress, true), static_cast<uint8_t>(aBufferSize & 0xFFU),
                                static_cast<uint8_t>((aBufferSize >> 8U) & 0xFFU)};
    SetFlags(aFastMode, aStop);
    lResult = mBulk->FlushRxBuffer(); // only the answer to this command is to be read
    if (!lResult.IsOK())
    {
        return lResult; // GCOVR_EXCL_LINE: emptying a ring does not fail
    }
    uint32_t lBytesWritten = 0;
    lResult = mBulk->Write(lCommand, sizeof(lCommand), lBytesWritten);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    // Nothing reports that a slave did not acknowledge: its bytes do not
    // come, and the time-out ends the wait.
    const uint32_t lTimeout = ReadTimeout(aBufferSize, aFastMode);
    aBytesRead = 0;
    while (lResult.IsOK() && aBytesRead < aBufferSize)
    {
        uint32_t lGot = 0;
        lResult = mBulk->Read(aBuffer + aBytesRead, aBufferSize - aBytesRead, lGot, lTimeout);
        aBytesRead += lGot;
    }
    return lResult;
}

KyResult DeviceI2CBus::BurstWrite(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                                  bool aFastMode)
{
    return MasterTransmitter(aSlaveAddress, aBuffer, aBufferSize, aFastMode, true);
}

KyResult DeviceI2CBus::BurstRead(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize,
                                 uint32_t& aBytesRead, bool aFastMode)
{
    return MasterReceiverAfterFirstByte(aSlaveAddress, aBuffer, aBufferSize, aBytesRead, aFastMode, true);
}

KyResult DeviceI2CBus::IndirectBurstWrite(uint8_t aSlaveAddress, uint8_t aOffset, const uint8_t* aBuffer,
                                          uint32_t aBufferSize, bool aFastMode)
{
    if (IsMissing(aBuffer, aBufferSize))
    {
        return MasterTransmitter(aSlaveAddress, nullptr, aBufferSize, aFastMode, true); // logs what is wrong
    }
    const std::unique_ptr<uint8_t[]> lBytes = OneMore(aBufferSize);
    if (lBytes == nullptr)
    {
        return OutOfMemory();
    }
    lBytes[0] = aOffset;
    if (aBufferSize > 0)
    {
        std::memcpy(&lBytes[1], aBuffer, aBufferSize);
    }
    return MasterTransmitter(aSlaveAddress, lBytes.get(), aBufferSize + 1, aFastMode, true);
}

KyResult DeviceI2CBus::IndirectBurstRead(uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer,
                                         uint32_t aBufferSize, uint32_t& aBytesRead, bool aFastMode,
                                         bool aUseCombinedFormat)
{
    // A missing buffer is refused before the offset goes out: in combined format the bus would stay held, and no
    // read would release it. Without an engine MasterTransmitter() reports NOT_OPEN.
    if (mBulk != nullptr && IsMissing(aBuffer, aBufferSize))
    {
        return MasterReceiverAfterFirstByte(aSlaveAddress, nullptr, aBufferSize, aBytesRead, aFastMode, true);
    }
    // Combined format: no stop after the offset, so that the read begins with a repeated start.
    KyResult lResult = MasterTransmitter(aSlaveAddress, &aOffset, 1, aFastMode, !aUseCombinedFormat);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    return MasterReceiverAfterFirstByte(aSlaveAddress, aBuffer, aBufferSize, aBytesRead, aFastMode, true);
}

} // namespace KySerialLib
