#include "kyserial/Bridge/BridgeSession.h"
#include "Support/CapturedRun.h"
#include "Support/WaitFor.h"
#include "Tools/CutDevice.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdio>
#include <functional>
#include <sstream>
#include <thread>

namespace
{

using namespace KySerialTool;
using KyTest::CapturedResult;
using KyTest::CutDevice;
using testing::HasSubstr;
using testing::StartsWith;

class BridgeSessionTest : public testing::Test
{
protected:
    BridgeSessionTest()
    {
        ApplyLogOptions(CommonOptions()); // as the program runs: without the library's log
        mOptions.mSelection.mPort = KyDeviceSerialUart0;
        EXPECT_EQ("", ParseHost("tcp://127.0.0.1:0", mOptions.mSelection.mHost));
    }
    ~BridgeSessionTest() override
    {
        static_cast<void>(std::remove(mFile.c_str())); // ignored: a test may not have made it
    }

    /// Runs a session, and aMeanwhile on a thread beside it, which has to end it. \return What it has printed;
    /// mFailure is what it has thrown.
    CapturedResult Run(const std::function<void(KyToolPlatform::Console&)>& aMeanwhile)
    {
        return KyTest::CapturedRun(
            [&](KyToolPlatform::Console& aConsole)
            {
                Context lContext{aConsole};
                lContext.mCommon.mDevice.mName = "sim";
                BridgeSession lSession(lContext, mOptions, mDevice, mLog);
                std::thread lMeanwhile([&] { aMeanwhile(aConsole); });
                try
                {
                    lSession.Run();
                }
                catch (const OperationError& lError)
                {
                    mFailure = lError.what();
                }
                lMeanwhile.join();
                return 0;
            });
    }
    static void End(KyToolPlatform::Console& aConsole) { aConsole.Interrupt(); }
    static std::vector<nlohmann::json> Reports(const std::string& aOutput)
    {
        std::vector<nlohmann::json> lReports;
        std::istringstream lLines(aOutput);
        for (std::string lLine; std::getline(lLines, lLine);)
        {
            lReports.push_back(nlohmann::json::parse(lLine, nullptr, false));
        }
        return lReports;
    }

    BridgeOptions mOptions;
    CutDevice mDevice;
    const std::string mFile = KyTest::Process::TemporaryFile(".log");
    TrafficLog mLog;
    std::string mFailure;
};

TEST_F(BridgeSessionTest, SaysWhatItBridgesAndWhatPassed)
{
    const CapturedResult lResult = Run(End);
    EXPECT_EQ("", mFailure);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_THAT(lResult.mError, StartsWith("uart0 of sim is tcp://127.0.0.1:"));
    EXPECT_THAT(lResult.mError, HasSubstr("; Ctrl-C ends\nsent 0 bytes, received 0 bytes\n"));
}

TEST_F(BridgeSessionTest, AQuietSessionSaysNothing)
{
    mOptions.mQuiet = true;
    EXPECT_EQ("", Run(End).mError);
}

// A script reads the first report as the sign that the bridge runs.
TEST_F(BridgeSessionTest, ReportsComeAtTheBeginningAndAtTheEnd)
{
    mOptions.mStatsJson = true;
    mOptions.mQuiet = true;
    mOptions.mStatsInterval = 3600000;
    const std::vector<nlohmann::json> lReports = Reports(Run(End).mOutput);
    ASSERT_EQ(2U, lReports.size());
    EXPECT_EQ(false, lReports[0]["final"]);
    EXPECT_EQ(true, lReports[1]["final"]);
    EXPECT_EQ(true, lReports[1]["connected"]);
}

TEST_F(BridgeSessionTest, ADeviceThatHasGoneEndsTheSessionAfterItsLastReport)
{
    mOptions.mStatsJson = true;
    const CapturedResult lResult = Run([&](KyToolPlatform::Console&) { mDevice.Cut(); });
    EXPECT_EQ("uart0: the connection to the device is lost", mFailure);
    const std::vector<nlohmann::json> lReports = Reports(lResult.mOutput);
    ASSERT_FALSE(lReports.empty());
    EXPECT_EQ(true, lReports.back()["final"]);
    EXPECT_EQ(false, lReports.back()["connected"]);
    EXPECT_THAT(lResult.mError, HasSubstr("\nsent 0 bytes, received 0 bytes\n"));
}

TEST_F(BridgeSessionTest, WithReconnectAnAbsenceIsNotedOnTheScreenAndInTheLog)
{
    mOptions.mSelection.mReconnect = true;
    mOptions.mSelection.mLogFile = mFile;
    ASSERT_EQ("", mLog.Open(mFile));
    const auto lAwait = [&](const std::string& aNote)
    { return KyTest::WaitFor([&] { return KyTest::ReadFile(mFile).find(aNote) != std::string::npos; }); };
    const CapturedResult lResult = Run(
        [&](KyToolPlatform::Console& aConsole)
        {
            mDevice.Cut();
            if (lAwait("! the device is gone\n"))
            {
                mDevice.ComeBack();
                lAwait("! the device is back; 0 bytes to it are lost\n");
            }
            aConsole.Interrupt();
        });
    EXPECT_EQ("", mFailure);
    EXPECT_THAT(lResult.mError,
                HasSubstr("uart0: the device is gone\nuart0: the device is back; 0 bytes to it are lost\n"));
}

TEST_F(BridgeSessionTest, APortThatTheDeviceLacksIsAFailureBeforeAnythingIsSaid)
{
    mOptions.mSelection.mPort = KyDeviceSerialInvalid;
    CapturedResult lResult = KyTest::CapturedRun(
        [&](KyToolPlatform::Console& aConsole)
        {
            Context lContext{aConsole};
            try
            {
                const BridgeSession lSession(lContext, mOptions, mDevice, mLog);
            }
            catch (const OperationError& lError)
            {
                mFailure = lError.what();
            }
            return 0;
        });
    EXPECT_THAT(mFailure, StartsWith("cannot bridge "));
    EXPECT_EQ("", lResult.mError);
}

} // namespace
