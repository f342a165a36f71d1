// Whatever a device puts into its bulk port's interrupt events and registers: the bytes that are received are
// those that were sent, and what is written goes out whole, in order, in chunks of the size that the device
// can take.

#include "BulkIPEngine.h"
#include "Fuzz/PlainAdapter.h"
#include "Fuzz/PortModel.h"

using namespace KyDeviceProtocol;
using namespace KyTest;
using KySerialLib::BulkIPEngine;

namespace
{

struct Bulk final : PlainAdapter
{
    Bulk() { mRegisters[cFunctionCapabilities] = cImplemented | 1U; }

    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override
    {
        KY_REQUIRE(aAddress == mWindow);
        KY_REQUIRE(aLength <= (mSent.empty() ? mFirstChunk : mNextChunk));
        KY_REQUIRE(aLength > 0 || mNextChunk == 0);
        if (mAccepted == 0)
        {
            return KyResult(0x7777);
        }
        --mAccepted;
        mSent.insert(mSent.end(), aBuffer, aBuffer + aLength);
        Notify(cInterruptEvent, mAnswer);
        return KyResult(KyResult::OK);
    }

    void Notify(uint16_t aEventID, const std::vector<uint8_t>& aPayload)
    {
        if ((aEventID == cInterruptEvent || aEventID == cBulkInterruptEvent) && aPayload.size() >= 4 &&
            (GetStatus(aPayload) & cBulkReceive) != 0)
        {
            std::for_each(aPayload.begin() + 4, aPayload.end(),
                          [this](uint8_t aByte) { mModel.Push(aByte); });
        }
        Send(aEventID, aPayload.data(), static_cast<uint32_t>(aPayload.size()));
    }

    uint32_t mWindow = cTransmitWindow;
    uint32_t mFirstChunk = 0;
    uint32_t mNextChunk = 0;
    uint32_t mAccepted = 0; // chunks until one is refused
    std::vector<uint8_t> mAnswer{};
    std::vector<uint8_t> mSent{};
    PortModel mModel{};
};

void Write(Bulk& aBulk, BulkIPEngine& aEngine, FuzzInput& aInput)
{
    std::vector<uint8_t> lBytes = aInput.TakeBytes(16);
    lBytes.resize(lBytes.size() + size_t{aInput.TakeByte()} * 4, uint8_t{0x5A});
    if (lBytes.empty())
    {
        return; // only looks at the last interrupt, and waits for one
    }
    aBulk.mAnswer = aInput.TakeBytes(aInput.TakeByte() % 32U);
    aBulk.mAnswer.resize(std::max<size_t>(aBulk.mAnswer.size(), 4));
    aBulk.mAnswer[1] =
        static_cast<uint8_t>(aBulk.mAnswer[1] | 0x18U); // transmitted; else a third of a second
    aBulk.mAccepted = (aInput.TakeByte() & 3U) == 3 ? aInput.TakeByte() : 0xFFFFFFFFU;
    const uint8_t lFlags = aInput.TakeByte();
    aEngine.SetI2CFastMode((lFlags & 1U) != 0);
    aEngine.SetI2CStop((lFlags & 2U) != 0);
    aEngine.SetI2CFlag3((lFlags & 4U) != 0);
    aEngine.SetI2CTransfer((lFlags & 8U) != 0);
    aBulk.mWindow = cTransmitWindow | (lFlags & 0xFU) << 9U;
    aBulk.mSent.clear();
    uint32_t lWritten = 0xDEAD;
    const KyResult lResult = aEngine.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lWritten);
    KY_REQUIRE(lWritten == aBulk.mSent.size());
    KY_REQUIRE(std::equal(aBulk.mSent.begin(), aBulk.mSent.end(), lBytes.begin()));
    KY_REQUIRE(lResult.IsOK() == (lWritten == lBytes.size()));
    KY_REQUIRE(lResult.IsOK() || lResult.GetCode() == 0x7777 ||
               (lResult.GetCode() == KyResult::TIMED_OUT && aBulk.mNextChunk == 0));
}

void Open(Bulk& aBulk, BulkIPEngine& aEngine, uint32_t aEnable, FuzzInput& aInput)
{
    const uint32_t lConfig = aInput.TakeWord();
    aBulk.mRegisters[cInterruptEnable] = aEnable;
    aBulk.mRegisters[cBulk0Configuration] = lConfig;
    aBulk.mRegisters[cBulk0Rate] = aInput.TakeByte();
    const bool lI2C = ((lConfig >> cInterfaceShift) & cThreeBits) == cInterfaceI2C;
    aBulk.mFirstChunk = lI2C ? 254 : 256;
    aBulk.mNextChunk =
        252U - (lConfig >> cThresholdShift) - (lI2C ? 1U : 0U); // beyond the threshold there is no limit
    KY_REQUIRE(aEngine.Open(&aBulk, KyDeviceSerialBulk0).IsOK() && aBulk.mSinks.size() == 1);
    KY_REQUIRE(aBulk.mRegisters[cInterruptEnable] == (aEnable | cBulkInterrupts));
    KY_REQUIRE(aBulk.mRegisters[cBulk0Configuration] ==
               (lConfig & ~cResetFifos)); // the reset of its queues is over
    aBulk.mModel.Flush();
}

void Close(Bulk& aBulk, BulkIPEngine& aEngine, uint32_t aEnable)
{
    KY_REQUIRE(aEngine.Close().IsOK() && aBulk.mSinks.empty());
    KY_REQUIRE(aBulk.mRegisters[cInterruptEnable] == aEnable);
    aBulk.mModel.Flush();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    // An interface that does not exist, and a threshold that leaves no room.
    static const HostileDevice cHostile{"false", "lBytesAllowed"};
    static Bulk sBulk;
    static BulkIPEngine sEngine;
    FuzzInput lInput(aData, aSize);
    uint32_t lEnable = lInput.TakeWord();
    Open(sBulk, sEngine, lEnable, lInput);
    sBulk.mModel.Resize(sEngine, lInput.TakeByte());
    while (lInput.HasStep())
    {
        const uint8_t lCode = lInput.TakeByte();
        switch (lCode % 8U)
        {
        case 0:
        case 1:
        case 2:
        {
            const uint32_t lEvent =
                (lCode & 0x10U) != 0 ? lInput.TakeWord() : cInterruptEvent + lCode / 0x80U;
            sBulk.Notify(static_cast<uint16_t>(lEvent), lInput.TakeBytes(lInput.TakeByte()));
            break;
        }
        case 3:
            sBulk.Send(cInterruptEvent, nullptr, lInput.TakeByte());
            break;
        case 4:
            Write(sBulk, sEngine, lInput);
            break;
        case 5:
            sBulk.mModel.Resize(sEngine, lInput.TakeByte() * 3U);
            break;
        case 6:
            KY_REQUIRE(sEngine.FlushRxBuffer().IsOK());
            sBulk.mModel.Flush();
            break;
        default:
            Close(sBulk, sEngine, lEnable);
            lEnable = lInput.TakeWord();
            Open(sBulk, sEngine, lEnable, lInput);
            break;
        }
        sBulk.mModel.Check(sEngine, lCode / 8U);
    }
    Close(sBulk, sEngine, lEnable);
    return 0;
}
