#include "SerialPortIPEngine.h"

#include "DeviceChecks.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/Thread.h"
#include "KySerial/DeviceProtocol.h"
#include "LogResult.h"
#include "PortMap.h"

#include <array>

namespace KySerialLib
{

using namespace KyDeviceProtocol;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/SerialPortIPEngine";

constexpr uint32_t cTxTimeoutMs = 1020; // for the interrupt after a byte
constexpr uint64_t cDrainTimeMs = 1020; // for what the device still holds after a failure
constexpr uint32_t cDrainIntervalMs = 100;

// The interrupt bits of a UART, in the enable register and in an event's status alike.
struct InterruptBits
{
    uint32_t mTxDone;
    uint32_t mRxData;
};
constexpr InterruptBits cUart0Bits{cUart0TransmitDone, cUart0Receive};
constexpr InterruptBits cUart1Bits{cUart1TransmitDone, cUart1Receive};
constexpr InterruptBits cNoBits{0, 0};

constexpr InterruptBits GetBits(KyDeviceSerial aPort)
{
    return aPort == KyDeviceSerialUart0 ? cUart0Bits : aPort == KyDeviceSerialUart1 ? cUart1Bits : cNoBits;
}

constexpr uint32_t WithBits(uint32_t aValue, uint32_t aBits, bool aSet)
{
    return aSet ? aValue | aBits : aValue & ~aBits;
}

} // namespace

SerialPortIPEngine::SerialPortIPEngine() : mTxEvent(true) {}

SerialPortIPEngine::~SerialPortIPEngine() = default;

bool SerialPortIPEngine::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::SerialPortIPEngine::IsSupported";
    const JxUtilsLib::Logger lLogger(cLogCategory, 0);
    uint32_t lCaps = 0;
    if (!ReadFunctionCaps(aDevice, lCaps, {lLogger, cFunction}))
    {
        return false;
    }
    const uint32_t lUarts = lCaps & cUartCountMask;
    switch (aPort)
    {
    case KyDeviceSerialUart0:
        return lUarts > 0;
    case KyDeviceSerialUart1:
        return lUarts > 1;
    default:
        KY_LOG_FATAL(lLogger, cFunction, "The specified port is not supported");
        JX_ASSERT(false);
        return false;
    }
}

KyResult SerialPortIPEngine::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::SerialPortIPEngine::Open";
    KyResult lResult = ClaimPort(aDevice, aPort, &IsSupported, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    mDevice = aDevice;
    mPort = aPort;
    // Ignored: a device without events still sends, and the writer notices by its time-out.
    static_cast<void>(aDevice->RegisterEventSink(this));
    // A failure leaves everything above in place; the caller's Close() undoes it.
    return EnableInterrupts(false);
}

KyResult SerialPortIPEngine::EnableInterrupts(bool aRestore)
{
    static constexpr char cFunction[] = "KySerialLib::SerialPortIPEngine::EnableInterrupts";
    IKyDeviceAdapter* const lDevice = mDevice;
    uint32_t lValue = 0;
    if (!lDevice->ReadRegister(cInterruptEnable, lValue).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Failed while attempting to read interrupt enable register.");
    }
    if (!aRestore)
    {
        // UART 0's bits for either port: at close UART 1 gets the bits that UART 0 had at open.
        // Applications that open both ports count on that.
        mSavedRxEnable = (lValue & cUart0Bits.mRxData) != 0;
        mSavedTxEnable = (lValue & cUart0Bits.mTxDone) != 0;
    }
    const KyDeviceSerial lPort = mPort;
    // GCOVR_EXCL_START: no other port has been claimed by this engine
    if (lPort != KyDeviceSerialUart0 && lPort != KyDeviceSerialUart1)
    {
        JX_ASSERT(false);
        return KyResult(KyResult::UNSUPPORTED);
    }
    // GCOVR_EXCL_STOP
    const InterruptBits lBits = GetBits(lPort);
    lValue = WithBits(lValue, lBits.mRxData, !aRestore || mSavedRxEnable);
    lValue = WithBits(lValue, lBits.mTxDone, !aRestore || mSavedTxEnable);
    if (!lDevice->WriteRegister(cInterruptEnable, lValue).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Failed while attempting to write value %x to interrupt enable register.",
                             lValue);
    }
    return KyResult(KyResult::OK);
}

uint32_t SerialPortIPEngine::GetDataRegister() const
{
    return mPort == KyDeviceSerialUart0 ? cUart0Data : cUart1Data;
}

KyResult SerialPortIPEngine::Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten)
{
    static constexpr char cFunction[] = "KySerialLib::SerialPortIPEngine::Write";
    aBytesWritten = 0;
    IKyDeviceAdapter* const lDevice = mDevice;
    KyResult lResult = CheckConnected(lDevice, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (IsMissing(aBuffer, aSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, cFunction, "Writing %d bytes of data",
           static_cast<int>(aSize));
    // The end is looked for before each byte: a long block must not hold up the stop of a bridge.
    for (uint32_t lIndex = 0; lIndex < aSize && !AreWritesEnded(); ++lIndex)
    {
        lResult = WriteByte(aBuffer[lIndex], lIndex, aBytesWritten);
        if (!lResult.IsOK())
        {
            return lResult;
        }
    }
    return KyResult(KyResult::OK);
}

KyResult SerialPortIPEngine::WriteByte(uint8_t aByte, uint32_t aIndex, uint32_t& aBytesWritten)
{
    static constexpr char cFunction[] = "KySerialLib::SerialPortIPEngine::Write";
    mTxEvent.Reset(); // before the write: the interrupt may come inside it
    if (!mDevice.load()->WriteRegister(GetDataRegister(), aByte).IsOK())
    {
        // When interrupts do not come, received bytes wait in the data register until they are fetched.
        DrainRx();
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Failed to write byte %d.",
                             static_cast<int>(aIndex));
    }
    ++aBytesWritten; // the device has it, whether its interrupt comes or not
    CountSent(&aByte, 1);
    if (!AwaitInterrupt(mTxEvent, cTxTimeoutMs))
    {
        DrainRx();
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Failed while waiting for the event from the device after writing byte %d.",
                             static_cast<int>(aIndex));
    }
    return KyResult(KyResult::OK);
}

void SerialPortIPEngine::DrainRx()
{
    const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
    for (;;)
    {
        // Start minus now, unsigned: the loop ends at the first pass after the tick count has moved on, so a
        // failing write is not held up by a device that keeps sending.
        const uint64_t lNow = JxUtilsLib::Thread::GetTickCount();
        if (lStart - lNow > cDrainTimeMs)
        {
            return;
        }
        uint32_t lValue = 0;
        if (!mDevice.load()->ReadRegister(GetDataRegister(), lValue).IsOK())
        {
            return;
        }
        if ((lValue & cDataValid) != 0)
        {
            PushByte(static_cast<uint8_t>(lValue & 0xFFU), true);
        }
        if ((lValue & cDataMore) == 0)
        {
            return;
        }
        JxUtilsLib::Thread::Sleep(cDrainIntervalMs);
    }
}

/// Receives the low byte of each word after the first one, all in one hold of the lock.
void SerialPortIPEngine::PushLowBytes(const void* aWords, uint32_t aCount)
{
    // The device decides how long an event is, and receiving allocates nothing, so the bytes go in pieces.
    std::array<uint8_t, 256> lBytes;
    LockRx();
    for (uint32_t lWord = 1; lWord < aCount;)
    {
        uint32_t lGathered = 0;
        while (lWord < aCount && lGathered < lBytes.size())
        {
            lBytes[lGathered++] = static_cast<uint8_t>(EventWord(aWords, lWord++) & 0xFFU);
        }
        PushBytes(lBytes.data(), lGathered);
    }
    UnlockRx();
}

void SerialPortIPEngine::NotifyEvent(uint16_t aEventID, uint16_t /*aChannel*/, uint64_t /*aBlockID*/,
                                     uint64_t /*aTimestamp*/, const void* aData, uint32_t aDataLength)
{
    if (IsRetired())
    {
        return;
    }
    JX_EXPECT(mDevice != NULL);
    // The other identifier of interrupts is that of bulk port 0 alone.
    if (aEventID != cInterruptEvent || aDataLength < 4 || aData == nullptr)
    {
        return;
    }
    const uint32_t lStatus = EventWord(aData, 0);
    const InterruptBits lBits = GetBits(mPort);
    if ((lStatus & lBits.mRxData) != 0)
    {
        PushLowBytes(aData, aDataLength / 4);
    }
    if ((lStatus & lBits.mTxDone) != 0)
    {
        mTxEvent.Set();
    }
}

KyResult SerialPortIPEngine::Close()
{
    return CloseDevice("KySerialLib::SerialPortIPEngine::Close",
                       [this](IKyDeviceAdapter* aDevice)
                       {
                           // Results ignored: the port closes all the same.
                           static_cast<void>(EnableInterrupts(true));
                           static_cast<void>(PortMap::GetInstance().Unlock(aDevice, mPort));
                           static_cast<void>(aDevice->UnregisterEventSink(this));
                       });
}

} // namespace KySerialLib
