// Operations of the two kinds of buses in any order, on a device that answers, answers too much, or refuses:
// a read brings the bytes that the slave sent for it, and nothing that came before.

#include "Fuzz/PlainAdapter.h"
#include "Fuzz/PortModel.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"

using namespace KyDeviceProtocol;
using namespace KyTest;

namespace
{

constexpr uint32_t cTransmitted = cBulkTransmitEmpty | cBulkTransmitPartialEmpty;
constexpr uint32_t cReceived = 0x100; // one of the causes

// A camera whose slaves answer every read at once.
struct Camera final : PlainAdapter
{
    Camera()
    {
        mRegisters[cFunctionCapabilities] = cImplemented | 2U;
        mRegisters[cBulk0Configuration] = cInterfaceI2C << cInterfaceShift | 6U << cSpeedShift;
    }

    bool IsRegisterFeatureAvailable(const KyString& /*aName*/) override { return mFeatures; }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        aValue = aName == KyString(cMacAddressFeature) ? 1 : static_cast<int64_t>(mUpstream.size());
        return KyResult(KyResult::OK);
    }
    KyResult GetRegisterLength(const KyString& /*aName*/, int64_t& aLength) override
    {
        aLength = 520;
        return KyResult(KyResult::OK);
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        std::copy_n(mUpstream.begin(), aLength, aBuffer);
        return KyResult(KyResult::OK);
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* aBuffer, int64_t aLength) override
    {
        const size_t lHeader = mSPI ? 12 : 8;
        const size_t lSize = static_cast<size_t>(aBuffer[6]) * 256 + aBuffer[7] - (mSPI ? 4U : 0U);
        KY_REQUIRE(static_cast<size_t>(aLength) == lHeader + (lSize + 3) / 4 * 4);
        return Take({aBuffer + lHeader, aBuffer + lHeader + lSize},
                    mSPI ? static_cast<size_t>(aBuffer[9]) + aBuffer[10] : 0);
    }
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t /*aAddress*/, uint32_t aLength) override
    {
        KyResult lResult = Take({aBuffer, aBuffer + aLength}, 0);
        if (lResult.IsOK())
        {
            const uint8_t lEvent[] = {0, cTransmitted >> 8U, 0, 0};
            Send(cInterruptEvent, lEvent, sizeof lEvent);
        }
        return lResult;
    }

    // One message or chunk.
    KyResult Take(const std::vector<uint8_t>& aBytes, size_t aRead)
    {
        if (mAccepted == 0)
        {
            return KyResult(0x7777);
        }
        --mAccepted;
        mTaken.insert(mTaken.end(), aBytes.begin(), aBytes.end());
        const bool lIsRead = !mSPI && mReading && aBytes.size() == 3 && (aBytes[0] & 1U) != 0;
        const size_t lCount = lIsRead ? static_cast<size_t>(aBytes[1]) + aBytes[2] * size_t{256} : aRead;
        for (size_t lDone = 0; lDone < lCount; lDone += 500)
        {
            Arrive(std::min<size_t>(lCount - lDone, 500), true);
        }
        return KyResult(KyResult::OK);
    }

    // Bytes come from the slave, or from nowhere.
    void Arrive(size_t aCount, bool aAnswer)
    {
        mUpstream.clear();
        for (size_t lIndex = 0; lIndex < aCount; ++lIndex)
        {
            mUpstream.push_back(mNext++);
        }
        if (aAnswer)
        {
            mAnswer.insert(mAnswer.end(), mUpstream.begin(), mUpstream.end());
        }
        if (mFeatures)
        {
            const KyString lName(UpstreamBufferFeature(0).c_str());
            Invalidate(&lName);
            return;
        }
        std::vector<uint8_t> lEvent{0, cReceived >> 8U, 0, 0};
        lEvent.insert(lEvent.end(), mUpstream.begin(), mUpstream.end());
        Send(cBulkInterruptEvent, lEvent.data(), static_cast<uint32_t>(lEvent.size()));
    }

    bool mFeatures = false;
    bool mSPI = false;
    bool mReading = false;
    uint8_t mNext = 0;
    uint32_t mAccepted = 0;
    std::vector<uint8_t> mUpstream{};
    std::vector<uint8_t> mTaken{};
    std::vector<uint8_t> mAnswer{};
};

void CheckI2C(Camera& aCamera, KyDeviceI2CBus& aBus, uint8_t aCode, FuzzInput& aInput)
{
    const uint8_t lAddress = aInput.TakeByte();
    const auto lWire = static_cast<uint8_t>(lAddress << 1U);
    const bool lFast = aInput.TakeFlag();
    const uint8_t lOffset = aInput.TakeByte();
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(aInput.TakeByte());
    const auto lSize = static_cast<uint32_t>(lBytes.size());
    const uint32_t lFactor = aInput.TakeFlag() ? 8 : 1;
    const uint32_t lWanted = 1U + aInput.TakeByte() * lFactor;
    std::vector<uint8_t> lRead(lWanted);
    uint32_t lGot = 0xDEAD;
    std::vector<uint8_t> lExpected{lWire};
    KyResult lResult;
    aCamera.mReading = aCode >= 2;
    switch (aCode)
    {
    case 0:
        lResult = aBus.MasterTransmitter(lAddress, lBytes.data(), lSize, lFast, aInput.TakeFlag());
        lExpected.insert(lExpected.end(), lBytes.begin(), lBytes.end());
        break;
    case 1:
        lResult = aBus.IndirectBurstWrite(lAddress, lOffset, lBytes.data(), lSize, lFast);
        lExpected.push_back(lOffset);
        lExpected.insert(lExpected.end(), lBytes.begin(), lBytes.end());
        break;
    case 2:
        lResult = aBus.MasterReceiverAfterFirstByte(lAddress, lRead.data(), lWanted, lGot, lFast,
                                                    aInput.TakeFlag());
        lExpected.clear();
        break;
    default:
        lResult =
            aBus.IndirectBurstRead(lAddress, lOffset, lRead.data(), lWanted, lGot, lFast, aInput.TakeFlag());
        lExpected.push_back(lOffset);
        break;
    }
    if (aCode >= 2)
    {
        lExpected.insert(lExpected.end(), {static_cast<uint8_t>(lWire | 1U), static_cast<uint8_t>(lWanted),
                                           static_cast<uint8_t>(lWanted >> 8U)});
    }
    KY_REQUIRE(lResult.IsOK() || (lResult.GetCode() == 0x7777 && aCamera.mAccepted == 0));
    KY_REQUIRE(!lResult.IsOK() || aCamera.mTaken == lExpected);
    if (aCode >= 2)
    {
        KY_REQUIRE(lGot == (lResult.IsOK() ? lWanted : 0xDEAD));
        KY_REQUIRE(!lResult.IsOK() || lRead == aCamera.mAnswer);
    }
}

void CheckSPI(Camera& aCamera, KyDeviceSPIBus& aBus, FuzzInput& aInput)
{
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(aInput.TakeByte());
    const bool lBoth = aInput.TakeFlag();
    const auto lSize = static_cast<uint32_t>(lBytes.size());
    const uint32_t lMore = aInput.TakeFlag() ? 1 : 0; // past the most that a transfer may have
    const uint32_t lWanted = aInput.TakeByte() + lMore;
    const KyResult lResult = aBus.BurstWriteAndRead(lBytes.data(), lSize, lWanted, lBoth, aInput.TakeFlag());
    if (lWanted > 255)
    {
        KY_REQUIRE(lResult.GetCode() == KyResult::BAD_PARAMETER && aCamera.mTaken.empty());
        return;
    }
    KY_REQUIRE(lResult.IsOK() ? aCamera.mTaken == lBytes : lResult.GetCode() == 0x7777);
    const size_t lComing = !lResult.IsOK() ? 0 : lBoth ? lSize : lWanted;
    KY_REQUIRE(aCamera.mAnswer.size() == lComing);
    std::vector<uint8_t> lRead(512);
    uint32_t lGot = 0;
    const KyResult lReading = aBus.BurstRead(lRead.data(), 512, lGot, 0);
    KY_REQUIRE(lReading.IsOK() == (lComing > 0) && lGot == lComing);
    lRead.resize(lGot);
    KY_REQUIRE(lRead == aCamera.mAnswer);
}

void Run(FuzzInput& aInput, uint8_t aKind)
{
    Camera lCamera;
    lCamera.mFeatures = (aKind & 3U) != 0;
    lCamera.mSPI = (aKind & 3U) == 1;
    lCamera.mRegisters[cBulkCapabilities] = lCamera.mFeatures ? 0 : cBulkI2C; // registers would be preferred
    KyDeviceI2CBus lI2C;
    KyDeviceSPIBus lSPI;
    KY_REQUIRE(
        (lCamera.mSPI ? lSPI.Open(&lCamera, KyDeviceSerialBulk0) : lI2C.Open(&lCamera, KyDeviceSerialBulk0))
            .IsOK());
    while (aInput.HasStep())
    {
        const uint8_t lCode = aInput.TakeByte();
        if (!lCamera.mSPI)
        {
            lCamera.Arrive(lCode / 16U, false); // of an earlier transfer that was given up
        }
        lCamera.mTaken.clear();
        lCamera.mAnswer.clear();
        lCamera.mAccepted = (lCode & 12U) == 12 ? aInput.TakeByte() % 4U : 0xFFFFFFFFU;
        if (lCamera.mSPI)
        {
            CheckSPI(lCamera, lSPI, aInput);
        }
        else
        {
            CheckI2C(lCamera, lI2C, lCode % 4U, aInput);
        }
    }
    KY_REQUIRE((lCamera.mSPI ? lSPI.Close() : lI2C.Close()).IsOK() && lCamera.mSinks.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static const HostileDevice cHostile{"aSize + (aSize%4) + 12 <= mDownstreamBufferLength"};
    FuzzInput lInput(aData, aSize);
    const uint8_t lKind = lInput.TakeByte();
    Run(lInput, lKind);
    return 0;
}
