#include "kyserial/Device/SimulatedCamera.h"

#include "Support/Process.h"
#include "Support/WaitFor.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

namespace
{

using namespace KySerialTool;
using testing::Contains;
using testing::Pair;

class SimulatedCameraTest : public testing::Test
{
protected:
    ~SimulatedCameraTest() override { std::remove(mOptions.mStateFile.c_str()); }

    static std::string RateOf(SimulatedCamera& aCamera)
    {
        KyString lRate;
        return aCamera.GetAdapter().GetFeatureAsString("Uart0BaudRate", lRate).IsOK() ? lRate.GetAscii()
                                                                                      : "refused";
    }
    std::string ErrorOfStart() const
    {
        try
        {
            const SimulatedCamera lCamera(mOptions);
        }
        catch (const OperationError& lError)
        {
            return lError.what();
        }
        return "";
    }

    SimulatorOptions mOptions;
};

TEST_F(SimulatedCameraTest, TheMemoriesAreKeptInAFile)
{
    mOptions.mStateFile = KyTest::Process::TemporaryFile(".state");
    EXPECT_EQ("", ErrorOfStart()) << "the first run has no file";
    const std::string lState = KyTest::ReadFile(mOptions.mStateFile);
    EXPECT_LT(512U, lState.size()) << "two EEPROMs and a flash memory";

    std::string lChanged = lState;
    lChanged[7] = '!';
    ASSERT_TRUE(KyTest::WriteFile(mOptions.mStateFile, lChanged));
    EXPECT_EQ("", ErrorOfStart());
    EXPECT_EQ(lChanged, KyTest::ReadFile(mOptions.mStateFile)) << "read, and written back";
}

TEST_F(SimulatedCameraTest, AFileOfAnotherSizeIsRefusedAndKept)
{
    mOptions.mStateFile = KyTest::Process::TemporaryFile(".state");
    ASSERT_TRUE(KyTest::WriteFile(mOptions.mStateFile, "my letters"));
    EXPECT_EQ("--sim-state: " + mOptions.mStateFile + " was not written by this program", ErrorOfStart());
    EXPECT_EQ("my letters", KyTest::ReadFile(mOptions.mStateFile));
}

TEST_F(SimulatedCameraTest, ADirectoryIsNoStateFile)
{
    SimulatorOptions lOptions;
    lOptions.mStateFile = std::filesystem::temp_directory_path().string();
    EXPECT_THROW(SimulatedCamera{lOptions}, OperationError);
}

TEST_F(SimulatedCameraTest, AStateThatCannotBeWrittenIsNoted)
{
    mOptions.mStateFile = KyTest::Process::TemporaryFile("") + "/missing/camera.state";
    testing::internal::CaptureStderr();
    EXPECT_EQ("", ErrorOfStart());
    const std::string lError = testing::internal::GetCapturedStderr();
    EXPECT_EQ("kyserial: --sim-state: cannot write " + mOptions.mStateFile + ": No such file or directory\n",
              lError);
    EXPECT_TRUE(*mOptions.mStateIsLost);
}

TEST_F(SimulatedCameraTest, TheConnectionBreaksWithTheAccessThatWasNamed)
{
    mOptions.mCutAfter = 2;
    SimulatedCamera lCamera(mOptions);
    EXPECT_TRUE(lCamera.GetAdapter().IsConnected());
    EXPECT_FALSE(lCamera.GetAdapter().IsConnected());
    EXPECT_EQ("refused", RateOf(lCamera));
    EXPECT_FALSE(lCamera.GetAdapter().IsConnected()) << "it stays away";
    EXPECT_EQ(1U, lCamera.GetGeneration());
}

TEST_F(SimulatedCameraTest, ACameraThatIsBackIsAsAfterPowerUp)
{
    mOptions.mCutAfter = 3;
    mOptions.mBackAfter = 1;
    SimulatedCamera lCamera(mOptions);
    const std::string lAtPowerUp = "Baud9600";
    ASSERT_TRUE(lCamera.GetAdapter().SetFeatureFromString("Uart0BaudRate", "Baud57600").IsOK());
    EXPECT_EQ("Baud57600", RateOf(lCamera));
    EXPECT_EQ("refused", RateOf(lCamera));
    EXPECT_TRUE(KyTest::WaitFor([&] { return lCamera.GetAdapter().IsConnected(); }));
    EXPECT_EQ(2U, lCamera.GetGeneration());
    EXPECT_EQ(lAtPowerUp, RateOf(lCamera));
}

// Its users set the ports up as soon as they see it connected, and share the port selector.
TEST_F(SimulatedCameraTest, ACameraThatIsBackChangesNothingItselfAnyMore)
{
    mOptions.mCutAfter = 1;
    mOptions.mBackAfter = 1;
    for (int lRound = 0; lRound < 20; ++lRound)
    {
        SimulatedCamera lCamera(mOptions);
        IKyDeviceAdapter& lAdapter = lCamera.GetAdapter();
        const auto lAwaitConnection = [&]
        {
            while (!lAdapter.IsConnected()) // without a pause, which would miss the moment
            {
                std::this_thread::yield();
            }
        };
        std::thread lOther(lAwaitConnection); // one of the two brings the camera back
        lAwaitConnection();
        EXPECT_TRUE(lAdapter.SetFeatureFromString("BulkSelector", "Bulk3").IsOK());
        EXPECT_TRUE(lAdapter.SetFeatureFromString("Uart0BaudRate", "Baud57600").IsOK());
        lOther.join();
        KyString lSelector;
        EXPECT_TRUE(lAdapter.GetFeatureAsString("BulkSelector", lSelector).IsOK());
        EXPECT_EQ("Bulk3", std::string(lSelector.GetAscii()));
        EXPECT_EQ("Baud57600", RateOf(lCamera));
    }
}

TEST_F(SimulatedCameraTest, FeaturesHaveTheirKinds)
{
    const auto lFeatures = SimulatedCamera(mOptions).GetFeatures();
    EXPECT_THAT(lFeatures, Contains(Pair("BulkMode", "Enumeration")));
    EXPECT_THAT(lFeatures, Contains(Pair("DeviceUserID", "String")));
    EXPECT_THAT(lFeatures, Contains(Pair("EventBulk0UpstreamDataLength", "Integer")));
    EXPECT_THAT(lFeatures, Contains(Pair("Bulk0DownstreamData", "Register")));
}

} // namespace
