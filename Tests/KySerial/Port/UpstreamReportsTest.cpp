// Two bulk ports on an adapter whose node map keeps what the last event of each port brought.

#include "Fuzz/PlainAdapter.h"
#include "KySerial/EngineTest.h"

#include "IRegisterSerialPort.h"
#include "KySerial/KyUpstreamReports.h"

#include <map>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

std::string BufferOf(int aBulk)
{
    return "EventBulk" + std::to_string(aBulk) + "UpstreamDataBuffer";
}

std::string LengthOf(int aBulk)
{
    return "EventBulk" + std::to_string(aBulk) + "UpstreamDataLength";
}

class NodeMapAdapter final : public PlainAdapter
{
public:
    void Receive(int aBulk, const Bytes& aBytes)
    {
        mNodes[BufferOf(aBulk)] = aBytes;
        mLengths[LengthOf(aBulk)] = static_cast<int64_t>(aBytes.size());
        Report(BufferOf(aBulk));
    }

    void Report(const std::string& aName)
    {
        const KyString lName(aName.c_str());
        const KyUpstreamReports::Report lReport(mReports, lName);
        Invalidate(&lName);
    }

    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        aValue = mReports.IsHidden(aName) ? 0 : mLengths[aName.GetAscii()];
        return KyResult::OK;
    }
    KyResult GetRegisterLength(const KyString& /*aName*/, int64_t& aLength) override
    {
        aLength = 64;
        return KyResult::OK;
    }
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override
    {
        Bytes lBytes = mNodes[aName.GetAscii()];
        lBytes.resize(static_cast<size_t>(aLength));
        std::copy(lBytes.begin(), lBytes.end(), aBuffer);
        return KyResult::OK;
    }

    KyUpstreamReports mReports;

private:
    std::map<std::string, Bytes> mNodes;
    std::map<std::string, int64_t> mLengths;
};

class UpstreamReportsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_THAT(mFirst.Open(&mCamera, KyDeviceSerialBulk1), IsOK());
        ASSERT_THAT(mSecond.Open(&mCamera, KyDeviceSerialBulk2), IsOK());
    }
    void TearDown() override
    {
        EXPECT_THAT(mFirst.Close(), IsOK());
        EXPECT_THAT(mSecond.Close(), IsOK());
    }

    NodeMapAdapter mCamera;
    IRegisterSerialPort mFirst{false};
    IRegisterSerialPort mSecond{false};
};

TEST_F(UpstreamReportsTest, EachPortGetsTheBytesOfItsEventsOnce)
{
    mCamera.Receive(1, {1, 2});
    mCamera.Receive(2, {3});
    mCamera.Receive(1, {4});
    mCamera.Receive(2, {5, 6});
    mCamera.Receive(2, {7});
    EXPECT_EQ(ReadAll(mFirst), (Bytes{1, 2, 4}));
    EXPECT_EQ(ReadAll(mSecond), (Bytes{3, 5, 6, 7}));
}

TEST_F(UpstreamReportsTest, AnotherFeatureBringsNoBytes)
{
    mCamera.Receive(1, {1, 2});
    for (const char* const lName : {"BulkMode", "EventBulk1UpstreamData", "EventBulk1UpstreamDataBuffers",
                                    "EventBulk8UpstreamDataBuffer", "Bulk1DownstreamData", "EventBulk", ""})
    {
        mCamera.Report(lName);
    }
    EXPECT_EQ(ReadAll(mFirst), (Bytes{1, 2}));
    EXPECT_EQ(ReadAll(mSecond), Bytes());
}

TEST_F(UpstreamReportsTest, HidesOnlyWhileItIsReportedAndOnlyFromTheThreadThatReports)
{
    const KyString lMine(LengthOf(1).c_str());
    const KyString lOther(LengthOf(2).c_str());
    KyUpstreamReports lReports;
    EXPECT_FALSE(lReports.IsHidden(lMine));
    {
        const KyUpstreamReports::Report lReport(lReports, lMine);
        EXPECT_FALSE(lReports.IsHidden(lMine));
        EXPECT_FALSE(lReports.IsHidden(KyString(BufferOf(1).c_str())));
        EXPECT_TRUE(lReports.IsHidden(lOther));
        EXPECT_TRUE(lReports.IsHidden(KyString(BufferOf(2).c_str())));
        EXPECT_FALSE(lReports.IsHidden("GevMACAddress"));
        std::thread([&] { EXPECT_FALSE(lReports.IsHidden(lOther)); }).join();
    }
    EXPECT_FALSE(lReports.IsHidden(lOther));
}

} // namespace
