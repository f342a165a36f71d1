// Whatever a device says of its bulk port's features: no byte is read that the device did not give, what is
// written goes out whole, in order, in messages of the device's size with a true header.

#include "Fuzz/PlainAdapter.h"
#include "Fuzz/PortModel.h"
#include "IRegisterSerialPort.h"

using namespace KyDeviceProtocol;
using namespace KyTest;
using KySerialLib::IRegisterSerialPort;

namespace
{

constexpr char cDownstream[] = "Bulk3DownstreamData";
constexpr char cUpstreamBuffer[] = "EventBulk3UpstreamDataBuffer";
constexpr char cUpstreamLength[] = "EventBulk3UpstreamDataLength";
constexpr int64_t cSaneLength = 0x100000;
constexpr int64_t cMostData = 0x1000; // of one event; megabytes are no different, but take long

struct Features final : PlainAdapter
{
    bool IsRegisterFeatureAvailable(const KyString& aName) override
    {
        return mKnown || aName == KyString(cUpstreamBuffer) || aName == KyString(cDownstream);
    }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        aValue = aName == KyString(cUpstreamLength) ? mDataLength : 1;
        return KyResult((mRefused & 1U) != 0 ? 0x7777U : 0U);
    }
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override
    {
        aLength = aName == KyString(cDownstream) ? mDownstreamLength : mUpstreamLength;
        return KyResult((mRefused & 2U) != 0 ? 0x7777U : 0U);
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        if ((mRefused & 4U) != 0)
        {
            return KyResult(0x7777);
        }
        for (int64_t lIndex = 0; lIndex < aLength; ++lIndex) // all of it, whatever it costs
        {
            aBuffer[lIndex] = static_cast<uint8_t>(mSeed + lIndex);
        }
        return KyResult(KyResult::OK);
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* aBuffer, int64_t aLength) override
    {
        if (mAccepted == 0)
        {
            return KyResult(0x7777);
        }
        --mAccepted;
        mMessages.emplace_back(aBuffer, aBuffer + aLength);
        return KyResult(KyResult::OK);
    }
    bool IsGigEVision() override { return mNetworkOrder; }

    uint32_t GetHeaderWord(const std::vector<uint8_t>& aMessage, size_t aOffset) const
    {
        uint32_t lWord = 0;
        for (size_t lByte = 0; lByte < 4; ++lByte)
        {
            lWord |= static_cast<uint32_t>(aMessage[aOffset + lByte])
                     << (mNetworkOrder ? 24 - 8 * lByte : 8 * lByte);
        }
        return lWord;
    }

    bool mKnown = false;
    bool mNetworkOrder = true;
    uint8_t mRefused = 0;
    uint8_t mSeed = 0;
    int64_t mDataLength = 0;
    int64_t mUpstreamLength = 0;
    int64_t mDownstreamLength = 520;
    uint32_t mAccepted = 0;
    std::vector<std::vector<uint8_t>> mMessages{};
};

// Small numbers, and those at which arithmetic breaks.
int64_t TakeLength(FuzzInput& aInput)
{
    constexpr int64_t cExtremes[] = {INT64_MIN,       -1,          0,           cSaneLength,
                                     cSaneLength + 1, INT32_MAX,   0x80000000,  UINT32_MAX,
                                     INT64_MAX,       0x100000000, 0x100000010, INT32_MIN};
    const uint8_t lKind = aInput.TakeByte();
    return lKind < 0xF0U ? int64_t{lKind} * 3 : cExtremes[aInput.TakeByte() % std::size(cExtremes)];
}

// What the port's own buffer must hold, as far as a later failure to read shows it.
class BufferModel
{
public:
    // \return Whether the bytes of the event arrive.
    bool Fetch(const Features& aDevice)
    {
        const int64_t lRoom = (aDevice.mRefused & 2U) != 0 ? 0 : aDevice.mUpstreamLength;
        mCount = (aDevice.mRefused & 1U) != 0 ? 0 : aDevice.mDataLength;
        if (mCount <= 0 || mCount > lRoom || mCount > INT32_MAX)
        {
            return false;
        }
        const int64_t lNeeded = lRoom <= cSaneLength ? lRoom : mCount;
        if (mRoom < lNeeded)
        {
            mRoom = lNeeded;
            mBytes.fill(0);
        }
        KY_REQUIRE(mCount <= cMostData);
        for (int64_t lIndex = 0; (aDevice.mRefused & 4U) == 0 && lIndex < mCount; ++lIndex)
        {
            mBytes[static_cast<size_t>(lIndex)] = static_cast<uint8_t>(aDevice.mSeed + lIndex);
        }
        return true;
    }

    void PushTo(PortModel& aModel) const
    {
        std::for_each_n(mBytes.begin(), mCount, [&](uint8_t aByte) { aModel.Push(aByte); });
    }

private:
    std::array<uint8_t, cMostData> mBytes{}; // bytes after them stay unread
    int64_t mRoom = 0;
    int64_t mCount = 0;
};

void Receive(Features& aDevice, BufferModel& aBuffer, PortModel& aModel, FuzzInput& aInput)
{
    static const KyString cNames[] = {cUpstreamBuffer, UpstreamBufferFeature(1).c_str(), "", cDownstream};
    aDevice.mSeed = aInput.TakeByte();
    aDevice.mRefused = aInput.TakeByte() & aInput.TakeByte();
    aDevice.mKnown = aInput.TakeFlag();
    aDevice.mUpstreamLength = TakeLength(aInput);
    aDevice.mDataLength = TakeLength(aInput);
    if (aDevice.mDataLength > cMostData && aDevice.mDataLength <= INT32_MAX)
    {
        aDevice.mDataLength = cMostData;
    }
    const uint8_t lName = aInput.TakeByte() % 5U;
    aDevice.Invalidate(lName < std::size(cNames) ? &cNames[lName] : nullptr);
    if (lName < std::size(cNames) && aDevice.IsRegisterFeatureAvailable(cNames[lName]) &&
        aBuffer.Fetch(aDevice))
    {
        aBuffer.PushTo(aModel);
    }
}

// The payload of the messages, whose headers have to be true.
std::vector<uint8_t> JoinMessages(const Features& aDevice, bool aSPI, uint32_t aFlags)
{
    const size_t lHeader = aSPI ? cSpiMessageHeader : cMessageHeader;
    const int64_t lLongest = std::min<int64_t>(aDevice.mDownstreamLength, 520);
    std::vector<uint8_t> lAll;
    for (const std::vector<uint8_t>& lMessage : aDevice.mMessages)
    {
        KY_REQUIRE(lMessage.size() >= lHeader && lMessage.size() % 4 == 0);
        const size_t lSize = aDevice.GetHeaderWord(lMessage, 4) - (aSPI ? 4U : 0U);
        KY_REQUIRE(aDevice.GetHeaderWord(lMessage, 0) == aFlags);
        KY_REQUIRE(lMessage.size() == lHeader + (lSize + 3) / 4 * 4);
        KY_REQUIRE(static_cast<int64_t>(lHeader + lSize) <= lLongest);
        lAll.insert(lAll.end(), lMessage.begin() + static_cast<ptrdiff_t>(lHeader),
                    lMessage.begin() + static_cast<ptrdiff_t>(lHeader + lSize));
    }
    return lAll;
}

void Write(Features& aDevice, IRegisterSerialPort& aEngine, bool aSPI, FuzzInput& aInput)
{
    std::vector<uint8_t> lBytes = aInput.TakeBytes(16);
    lBytes.resize(lBytes.size() + size_t{aInput.TakeByte()} * 4, uint8_t{0x5A});
    aDevice.mDownstreamLength = TakeLength(aInput);
    aDevice.mRefused = aInput.TakeByte() & aInput.TakeByte() & 2U;
    aDevice.mAccepted = (aInput.TakeByte() & 3U) == 3 ? aInput.TakeByte() : 0xFFFFFFFFU;
    const uint8_t lFlags = aSPI ? 0 : aInput.TakeByte();
    aEngine.SetI2CFastMode((lFlags & 8U) != 0);
    aEngine.SetI2CStop((lFlags & 4U) != 0);
    aEngine.SetI2CFlag3((lFlags & 2U) != 0);
    aEngine.SetI2CTransfer((lFlags & 1U) != 0);
    aDevice.mMessages.clear();
    const uint8_t lRead = aInput.TakeByte();
    const uint8_t lHow = aInput.TakeByte();
    uint32_t lWritten = 0xDEAD;
    const KyResult lResult = aEngine.WriteAndRead(lBytes.data(), static_cast<uint32_t>(lBytes.size()),
                                                  lWritten, lRead, (lHow & 1U) != 0, (lHow & 2U) != 0);
    const std::vector<uint8_t> lSent =
        JoinMessages(aDevice, aSPI, static_cast<uint32_t>(lFlags & 0xFU) << 28U);
    KY_REQUIRE(lWritten == lSent.size() && std::equal(lSent.begin(), lSent.end(), lBytes.begin()));
    const bool lTooSmall = aDevice.mDownstreamLength <= (aSPI ? cSpiMessageHeader : cMessageHeader);
    if ((aDevice.mRefused & 2U) != 0 || lTooSmall)
    {
        KY_REQUIRE(lWritten == 0 &&
                   lResult.GetCode() == (aDevice.mRefused != 0 ? 0x7777U : KyResult::BUFFER_TOO_SMALL));
        return;
    }
    KY_REQUIRE(lResult.IsOK() ? lWritten == lBytes.size() : lResult.GetCode() == 0x7777);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    // More data than room; the reserve for padding, which is asked for more strictly than needed.
    static const HostileDevice cHostile{"lTrueDataLength <= lRegLength",
                                        "aSize + (aSize%4) + 12 <= mDownstreamBufferLength"};
    FuzzInput lInput(aData, aSize);
    const uint8_t lKind = lInput.TakeByte();
    const bool lSPI = (lKind & 1U) != 0;
    Features lDevice;
    lDevice.mNetworkOrder = (lKind & 2U) == 0;
    IRegisterSerialPort lEngine(lSPI);
    BufferModel lBuffer;
    PortModel lModel;
    KY_REQUIRE(lEngine.Open(&lDevice, KyDeviceSerialBulk3).IsOK());
    lModel.Resize(lEngine, lInput.TakeByte() * 3U);
    while (lInput.HasStep())
    {
        const uint8_t lCode = lInput.TakeByte();
        switch (lCode % 4U)
        {
        case 0:
        case 1:
            Receive(lDevice, lBuffer, lModel, lInput);
            break;
        case 2:
            Write(lDevice, lEngine, lSPI, lInput);
            break;
        default:
            lModel.Resize(lEngine, lInput.TakeByte() * 3U);
            break;
        }
        lModel.Check(lEngine, lCode / 4U);
    }
    lDevice.mRefused = 0; // or it is another device that is let go
    KY_REQUIRE(lEngine.Close().IsOK() && lDevice.mSinks.empty());
    return 0;
}
