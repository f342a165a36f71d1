#include "Support/Process.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/GvcpClient.h"

#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <gmock/gmock.h>

#include <filesystem>

using KyGigE::GigEDeviceAdapter;
using KyTest::IsOK;

// Aravis's fake camera, a device that nobody here has written. It has no message channel, and listens at the
// usual port of 127.0.0.1 only.

namespace
{

class FakeCameraTest : public testing::Test
{
protected:
    FakeCameraTest()
    {
        const std::string lProgram =
            std::filesystem::relative(KYSERIAL_FAKE_CAMERA, KyTest::Process::ProgramFolder()).string();
        EXPECT_TRUE(mProcess.Start(lProgram, {"-i", "127.0.0.1"}, {}));
        KyGigE::DiscoveryOptions lOptions;
        lOptions.mAddress = "127.0.0.1";
        lOptions.mTime = 100;
        for (int lTry = 0; lTry < 200 && mFound.empty(); ++lTry)
        {
            EXPECT_EQ(KyGigE::DiscoverDevices(lOptions, mFound), "");
        }
    }

    KyTest::Process mProcess;
    std::vector<KyGigE::FoundDevice> mFound;
};

TEST_F(FakeCameraTest, AnswersDiscovery)
{
    ASSERT_EQ(mFound.size(), 1U);
    EXPECT_EQ(mFound[0].mInformation.mVendor, "Aravis");
    EXPECT_EQ(mFound[0].mInformation.mModel, "Fake");
}

TEST_F(FakeCameraTest, IsControlledAndDescribesItself)
{
    ASSERT_EQ(mFound.size(), 1U);
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", 3956, ""}, lAdapter), IsOK());
    EXPECT_FALSE(lAdapter->IsKorvoVideoInterface());
    EXPECT_GT(lAdapter->ListFeatures().size(), 10U);
    EXPECT_THAT(lAdapter->SetFeatureFromString("Width", "64"), IsOK());
    KyString lText;
    EXPECT_THAT(lAdapter->GetFeatureAsString("Width", lText), IsOK());
    EXPECT_STREQ(lText.GetAscii(), "64");
    KyStringList lFormats;
    EXPECT_THAT(lAdapter->GetEnumEntries("PixelFormat", lFormats), IsOK());
    EXPECT_GT(lFormats.GetCount(), 1U);
    EXPECT_TRUE(lAdapter->IsEnumEntryAvailable("PixelFormat", "Mono8"));
    EXPECT_EQ(lAdapter->SetFeatureFromString("PixelFormat", "Purple").GetCode(), 0x8002U);
    EXPECT_THAT(lAdapter->GetStringValue("DeviceVendorName", lText), IsOK());
    EXPECT_STREQ(lText.GetAscii(), "Aravis");
}

TEST_F(FakeCameraTest, RefusesASecondApplicationAndTakesTheNextOne)
{
    ASSERT_EQ(mFound.size(), 1U);
    std::unique_ptr<GigEDeviceAdapter> lFirst;
    std::unique_ptr<GigEDeviceAdapter> lSecond;
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", 3956, ""}, lFirst), IsOK());
    EXPECT_EQ(GigEDeviceAdapter::Connect({"127.0.0.1", 3956, ""}, lSecond).GetCode(), 0x8006U);
    lFirst.reset();
    EXPECT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", 3956, ""}, lSecond), IsOK());
}

} // namespace
