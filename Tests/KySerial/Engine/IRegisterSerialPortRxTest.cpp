#include "KySerial/FeatureEngineTest.h"

#include <limits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cLengthAssert[] = "lTrueDataLength <= lRegLength";
constexpr int64_t cMin = std::numeric_limits<int64_t>::min();
constexpr int64_t cMax = std::numeric_limits<int64_t>::max();

class IRegisterSerialPortRxTest : public EngineTest
{
protected:
    void SetUp() override
    {
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
        Forget();
    }

    void TearDown() override
    {
        EXPECT_EQ(TakeLog(), Lines()); // receiving logs nothing
        EngineTest::TearDown();
    }

    // The device has bytes for us.
    void Offer(const Bytes& aBytes)
    {
        Bytes lContent(1024, 0xDD);
        std::copy(aBytes.begin(), aBytes.end(), lContent.begin());
        mDevice.SetContent(cUpstreamBuffer, lContent);
        mDevice.SetInteger(cUpstreamLength, static_cast<int64_t>(aBytes.size()));
    }

    Bytes Receive()
    {
        mDevice.Invalidate(cUpstreamBuffer);
        return ReadAll(mEngine);
    }

    IRegisterSerialPort mEngine{false};
};

TEST_F(IRegisterSerialPortRxTest, FetchesTheBytesOfAnEvent)
{
    Offer({1, 2, 3});
    EXPECT_EQ(Receive(), (Bytes{1, 2, 3}));
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsRegisterFeatureAvailable(EventBulk0UpstreamDataBuffer)",
                                          "GetRegisterLength(EventBulk0UpstreamDataBuffer)",
                                          "GetIntegerValue(EventBulk0UpstreamDataLength)",
                                          "GetRegisterData(EventBulk0UpstreamDataBuffer, 3)"}));
    Offer(Count(1024));
    EXPECT_EQ(Receive(), Count(1024));
}

TEST_F(IRegisterSerialPortRxTest, FetchesFromTheFeaturesOfItsPort)
{
    EXPECT_THAT(mEngine.Close(), IsOK());
    ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk5), IsOK());
    mDevice.SetContent("EventBulk5UpstreamDataBuffer", {9, 8, 7});
    mDevice.SetInteger("EventBulk5UpstreamDataLength", 2);
    mDevice.Invalidate("EventBulk5UpstreamDataBuffer");
    EXPECT_EQ(ReadAll(mEngine), (Bytes{9, 8}));
}

TEST_F(IRegisterSerialPortRxTest, FetchesForAnyRegisterFeature)
{
    Offer({5});
    mDevice.Invalidate("EventBulk3UpstreamDataBuffer");
    EXPECT_EQ(ReadAll(mEngine), Bytes{5});
}

TEST_F(IRegisterSerialPortRxTest, FetchesNothingForOtherFeatures)
{
    Offer({5});
    mDevice.Invalidate(cUpstreamLength);
    mDevice.Invalidate("");
    mDevice.Invalidate("Unknown");
    EXPECT_EQ(GetReady(mEngine), 0U);
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"IsRegisterFeatureAvailable(EventBulk0UpstreamDataLength)",
                     "IsRegisterFeatureAvailable()", "IsRegisterFeatureAvailable(Unknown)"}));
}

TEST_F(IRegisterSerialPortRxTest, FetchesNothingForALengthThatNoMessageInItsBufferHas)
{
    constexpr int64_t cFar = int64_t{1} << 32;
    const struct
    {
        std::vector<int64_t> mLengths;
        int64_t mBuffer;
        Calls mBroken;
    } lCases[] = {{{0, -1, cMin, 5 - cFar}, 1024, {}},
                  {{1025, cFar / 2, cFar, cFar + 5, int64_t{1} << 40, cMax}, 1024, Broken({cLengthAssert})},
                  {{cFar / 2}, cFar, {}}};
    for (const auto& lCase : lCases)
    {
        for (const int64_t lLength : lCase.mLengths)
        {
            Offer({5});
            mDevice.SetLength(cUpstreamBuffer, lCase.mBuffer);
            mDevice.SetInteger(cUpstreamLength, lLength);
            EXPECT_EQ(Receive(), Bytes()) << lLength;
            EXPECT_EQ(mAsserts.Take(), lCase.mBroken) << lLength;
        }
    }
    EXPECT_EQ(mDevice.GetCallCount(Slot::GetRegisterData), 0);
}

TEST_F(IRegisterSerialPortRxTest, SurvivesABufferOfAbsurdLength)
{
    // More than 32 bits can say, with low bits that look small; and more than there is memory for.
    for (const int64_t lLength : {(int64_t{1} << 32) + 2, int64_t{1} << 31, int64_t{1} << 40, cMax})
    {
        SCOPED_TRACE(lLength);
        Offer({5, 6, 7});
        mDevice.SetLength(cUpstreamBuffer, lLength);
        const Bytes lGot = Receive();
        EXPECT_TRUE(lGot.empty() || lGot == (Bytes{5, 6, 7})) << ToText(lGot.data(), lGot.size());
    }
    for (const int64_t lLength : {int64_t{0}, int64_t{-1}, cMin})
    {
        Offer({5, 6, 7});
        mDevice.SetLength(cUpstreamBuffer, lLength);
        EXPECT_EQ(Receive(), Bytes());
        EXPECT_EQ(mAsserts.Take(), Broken({cLengthAssert}));
    }
    Offer({8});
    EXPECT_EQ(Receive(), Bytes{8}); // and goes on
}

TEST_F(IRegisterSerialPortRxTest, FetchesNothingWhenALengthCannotBeRead)
{
    Offer({1, 2, 3});
    mDevice.Fail(Slot::GetIntegerValue, cUpstreamLength);
    EXPECT_EQ(Receive(), Bytes());
    EXPECT_EQ(mAsserts.Take(), Calls());
    mDevice.StopFailing();
    mDevice.Fail(Slot::GetRegisterLength);
    EXPECT_EQ(Receive(), Bytes());
    EXPECT_EQ(mAsserts.Take(), Broken({cLengthAssert}));
}

TEST_F(IRegisterSerialPortRxTest, IgnoresALateCallWhenClosed)
{
    Offer({1});
    EXPECT_THAT(mEngine.Close(), IsOK());
    Forget();
    const KyString lName(cUpstreamBuffer);
    mEngine.NotifyFeatureInvalidated(&lName);
    EXPECT_EQ(GetReady(mEngine), 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_F(IRegisterSerialPortRxTest, ReceivesTheAnswersOfSPITransfersToo)
{
    EXPECT_THAT(mEngine.Close(), IsOK());
    IRegisterSerialPort lEngine(true);
    ASSERT_THAT(lEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
    Offer({7, 7});
    uint32_t lWritten = 0;
    mDevice.OnCall(Slot::PostWrite, [this] { mDevice.Invalidate(cUpstreamBuffer); });
    EXPECT_THAT(lEngine.WriteAndRead(nullptr, 0, lWritten, 2, false, true), IsOK());
    EXPECT_EQ(ReadAll(lEngine), (Bytes{7, 7}));
    TakeLog();
}

} // namespace
