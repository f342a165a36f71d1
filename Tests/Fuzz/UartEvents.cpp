// Whatever a device puts into a UART's interrupt events: the bytes that are received are those that were
// sent, in order, and the interrupt enable register ends as it began.

#include "Fuzz/PlainAdapter.h"
#include "Fuzz/PortModel.h"
#include "SerialPortIPEngine.h"

using namespace KyDeviceProtocol;
using namespace KyTest;
using KySerialLib::SerialPortIPEngine;

namespace
{

constexpr uint32_t cUart0Bits = cUart0TransmitDone | cUart0Receive;

struct Uart final : PlainAdapter
{
    explicit Uart(bool aSecond)
        : mPort(aSecond ? KyDeviceSerialUart1 : KyDeviceSerialUart0)
        , mData(aSecond ? cUart1Data : cUart0Data)
        , mTx(aSecond ? cUart1TransmitDone : cUart0TransmitDone)
        , mRx(aSecond ? cUart1Receive : cUart0Receive)
    {
        mRegisters[cFunctionCapabilities] = cImplemented | 2U;
    }

    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        if (aAddress != mData)
        {
            return PlainAdapter::WriteRegister(aAddress, aValue);
        }
        if (mRefused)
        {
            return KyResult(0x7777);
        }
        mSent.push_back(static_cast<uint8_t>(aValue));
        Notify(cInterruptEvent, mAnswer); // inside the write, as a fast device may
        return KyResult(KyResult::OK);
    }

    // Looked at after a refused byte, or not: that depends on the clock.
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        KyResult lResult = PlainAdapter::ReadRegister(aAddress, aValue);
        if (aAddress == mData && (aValue & cDataValid) != 0)
        {
            mModel.Push(static_cast<uint8_t>(aValue));
        }
        return lResult;
    }

    void Notify(uint16_t aEventID, const std::vector<uint8_t>& aPayload)
    {
        if (aEventID == cInterruptEvent && aPayload.size() >= 4 && (GetStatus(aPayload) & mRx) != 0)
        {
            for (size_t lWord = 1; lWord < aPayload.size() / 4; ++lWord)
            {
                mModel.Push(aPayload[lWord * 4]);
            }
        }
        Send(aEventID, aPayload.data(), static_cast<uint32_t>(aPayload.size()));
    }

    const KyDeviceSerial mPort;
    const uint32_t mData;
    const uint32_t mTx;
    const uint32_t mRx;
    bool mRefused = false;
    std::vector<uint8_t> mAnswer{};
    std::vector<uint8_t> mSent{};
    PortModel mModel{};
};

void Write(Uart& aUart, SerialPortIPEngine& aEngine, FuzzInput& aInput)
{
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(aInput.TakeByte() % 8U);
    aUart.mAnswer = aInput.TakeBytes(aInput.TakeByte() % 64U);
    aUart.mAnswer.resize(std::max<size_t>(aUart.mAnswer.size(), 4));
    aUart.mAnswer[0] = static_cast<uint8_t>(aUart.mAnswer[0] | aUart.mTx); // else a second goes by
    aUart.mRefused = (aInput.TakeByte() & 7U) == 7;
    const uint8_t lByte = aInput.TakeByte();
    const uint32_t lLast = lByte | (aInput.TakeFlag() ? cDataValid : 0U);
    aUart.mRegisters[aUart.mData] = lLast; // what a failing write finds there
    aUart.mSent.clear();
    uint32_t lWritten = 0xDEAD;
    const KyResult lResult = aEngine.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lWritten);
    KY_REQUIRE(lWritten == aUart.mSent.size());
    if (aUart.mRefused && !lBytes.empty())
    {
        KY_REQUIRE(lResult.GetCode() == KyResult::FAILURE && lWritten == 0);
        return;
    }
    KY_REQUIRE(lResult.IsOK() && aUart.mSent == lBytes);
}

void Reopen(Uart& aUart, SerialPortIPEngine& aEngine, uint32_t aEnable)
{
    aUart.mRegisters[cInterruptEnable] = aEnable;
    KY_REQUIRE(aEngine.Open(&aUart, aUart.mPort).IsOK() && aUart.mSinks.size() == 1);
    KY_REQUIRE(aUart.mRegisters[cInterruptEnable] == (aEnable | aUart.mTx | aUart.mRx));
    aUart.mModel.Flush();
}

void Close(Uart& aUart, SerialPortIPEngine& aEngine, uint32_t aEnable)
{
    KY_REQUIRE(aEngine.Close().IsOK() && aUart.mSinks.empty());
    // UART 0's bits as they were are what either port gets back.
    const uint32_t lMine = aUart.mTx | aUart.mRx;
    const uint32_t lSaved = (aEnable & cUart0Bits) * (aUart.mTx == 1 ? 1U : 4U);
    KY_REQUIRE(aUart.mRegisters[cInterruptEnable] == ((aEnable & ~lMine) | lSaved));
    aUart.mModel.Flush();
}

void Run(Uart& aUart, SerialPortIPEngine& aEngine, FuzzInput& aInput)
{
    uint32_t lEnable = aInput.TakeWord();
    Reopen(aUart, aEngine, lEnable);
    aUart.mModel.Resize(aEngine, aInput.TakeByte());
    while (aInput.HasStep())
    {
        const uint8_t lCode = aInput.TakeByte();
        switch (lCode % 8U)
        {
        case 0:
        case 1:
        case 2:
        {
            const uint16_t lEvent =
                (lCode & 0x10U) != 0 ? static_cast<uint16_t>(aInput.TakeWord()) : cInterruptEvent;
            aUart.Notify(lEvent, aInput.TakeBytes(aInput.TakeByte()));
            break;
        }
        case 3:
            aUart.Send(cInterruptEvent, nullptr, aInput.TakeByte());
            break;
        case 4:
            Write(aUart, aEngine, aInput);
            break;
        case 5:
            aUart.mModel.Resize(aEngine, aInput.TakeByte() * 3U);
            break;
        case 6:
            KY_REQUIRE(aEngine.FlushRxBuffer().IsOK());
            aUart.mModel.Flush();
            break;
        default:
            Close(aUart, aEngine, lEnable);
            lEnable = aInput.TakeWord();
            Reopen(aUart, aEngine, lEnable);
            break;
        }
        aUart.mModel.Check(aEngine, lCode / 8U);
    }
    Close(aUart, aEngine, lEnable);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static const HostileDevice cHostile{};
    static Uart sFirst(false);
    static Uart sSecond(true);
    static SerialPortIPEngine sFirstEngine;
    static SerialPortIPEngine sSecondEngine;
    FuzzInput lInput(aData, aSize);
    const bool lSecond = lInput.TakeFlag();
    Run(lSecond ? sSecond : sFirst, lSecond ? sSecondEngine : sFirstEngine, lInput);
    return 0;
}
