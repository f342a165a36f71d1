#include "KySerial/KyDeviceSerialPort.h"

#include "BulkIPEngine.h"
#include "IRegisterSerialPort.h"
#include "LogResult.h"
#include "RetiredEngines.h"
#include "SerialPortIPEngine.h"
#include "Shell.h"

#include <utility>

using KySerialLib::BulkIPEngine;
using KySerialLib::CatchOutOfMemory;
using KySerialLib::DeviceSerialPort;
using KySerialLib::Forward;
using KySerialLib::IRegisterSerialPort;
using KySerialLib::IsOpen;
using KySerialLib::SerialPort;
using KySerialLib::SerialPortIPEngine;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/KyDeviceSerialPort";

// Puts a new engine in the place of the current one and opens it. The current one is not closed: a claim and
// a registration that it still has stay, and clients that open without closing find the port in use.
KyResult Replace(SerialPort*& aCurrent, std::unique_ptr<DeviceSerialPort> aEngine, IKyDeviceAdapter* aDevice,
                 KyDeviceSerial aPort)
{
    DeviceSerialPort* const lEngine = aEngine.get();
    KySerialLib::RetireEngine(std::unique_ptr<SerialPort>(std::exchange(aCurrent, aEngine.release())));
    JX_ASSERT(aCurrent != NULL);
    return lEngine->Open(aDevice, aPort);
}

} // namespace

KyDeviceSerialPort::KyDeviceSerialPort() : mThis(KySerialLib::MakeObject<SerialPortIPEngine>())
{
    JX_EXPECT(mThis != NULL);
}

KyDeviceSerialPort::~KyDeviceSerialPort()
{
    JX_EXPECT(mThis != NULL);
    if (mThis != nullptr && mThis->IsOpened())
    {
        const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
        KY_LOG(lLogger, JxUtilsLib::PriorityWarning, "KyDeviceSerialPort::~KyDeviceSerialPort",
               "SerialPort not closed before deleting. Will close");
        static_cast<void>(Close()); // ignored: there is no caller to report to
    }
    KySerialLib::RetireEngine(std::unique_ptr<SerialPort>(std::exchange(mThis, nullptr)));
}

KyResult KyDeviceSerialPort::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KyDeviceSerialPort::Open";
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (aPort == KyDeviceSerialInvalid)
            {
                const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
                return KY_LOG_RESULT(lLogger, KyResult::BAD_PARAMETER, cFunction,
                                     "The specified port is invalid.");
            }
            if (aPort == KyDeviceSerialUart0 || aPort == KyDeviceSerialUart1)
            {
                return Replace(mThis, std::make_unique<SerialPortIPEngine>(), aDevice, aPort);
            }
            if (aPort == KyDeviceSerialBulk0)
            {
                // Both questions, in this order, before the decision: adapters see the same accesses whatever
                // the answers are.
                const bool lRegisters = BulkIPEngine::IsSupported(aDevice, aPort);
                const bool lFeatures = IRegisterSerialPort::IsSupported(aDevice, aPort);
                if (lRegisters)
                {
                    return Replace(mThis, std::make_unique<BulkIPEngine>(), aDevice, aPort);
                }
                if (lFeatures)
                {
                    return Replace(mThis, std::make_unique<IRegisterSerialPort>(false), aDevice, aPort);
                }
                return KyResult(KyResult::UNSUPPORTED);
            }
            if (aPort >= KyDeviceSerialBulk1 && aPort <= KyDeviceSerialBulk7)
            {
                return Replace(mThis, std::make_unique<IRegisterSerialPort>(false), aDevice, aPort);
            }
            const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
            KY_LOG_FATAL(lLogger, cFunction, "Unknown port.");
            JX_EXPECT(false);
            return KyResult(KyResult::UNSUPPORTED);
        });
}

KyResult KyDeviceSerialPort::Close()
{
    return Forward(mThis, &SerialPort::Close);
}

bool KyDeviceSerialPort::IsOpened()
{
    return IsOpen(mThis);
}

KyResult KyDeviceSerialPort::Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten)
{
    // An object that found no memory has no engine that would set the count.
    aBytesWritten = 0;
    return Forward(mThis, &SerialPort::Write, aBuffer, aSize, aBytesWritten);
}

KyResult KyDeviceSerialPort::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesRead, uint32_t aTimeout)
{
    aBytesRead = 0;
    return Forward(mThis, &SerialPort::Read, aBuffer, aSize, aBytesRead, aTimeout);
}

KyResult KyDeviceSerialPort::FlushRxBuffer()
{
    return Forward(mThis, &SerialPort::FlushRxBuffer);
}

KyResult KyDeviceSerialPort::GetRxBytesReady(uint32_t& aBytes)
{
    aBytes = 0;
    return Forward(mThis, &SerialPort::GetRxBytesReady, aBytes);
}

KyResult KyDeviceSerialPort::GetRxBufferSize(uint32_t& aSize)
{
    aSize = 0;
    return Forward(mThis, &SerialPort::GetRxBufferSize, aSize);
}

KyResult KyDeviceSerialPort::SetRxBufferSize(uint32_t aSize)
{
    return Forward(mThis, &SerialPort::SetRxBufferSize, aSize);
}

bool KyDeviceSerialPort::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return KySerialLib::AskWithMemory(
        [&]
        {
            if (aPort == KyDeviceSerialUart0 || aPort == KyDeviceSerialUart1)
            {
                return SerialPortIPEngine::IsSupported(aDevice, aPort);
            }
            if (aPort == KyDeviceSerialBulk0)
            {
                // The features first, the other way round than Open(): a device with them is spared the
                // registers.
                return IRegisterSerialPort::IsSupported(aDevice, aPort) ||
                       BulkIPEngine::IsSupported(aDevice, aPort);
            }
            return aPort >= KyDeviceSerialBulk1 && aPort <= KyDeviceSerialBulk7 &&
                   IRegisterSerialPort::IsSupported(aDevice, aPort);
        });
}
