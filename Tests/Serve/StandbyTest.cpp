// Two services and one camera, each a process of its own: the second one waits, and takes over when the first is killed.

#include "Support/Process.h"
#include "Support/WaitFor.h"
#include "Tools/ToolRun.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using namespace KyTest;
using boost::asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr int64_t cHeartbeat = 3000; // ms; after which the camera gives up an application that is silent

/// KYTEST_STANDBY_KILLS: how many, on a machine that has time for the exact bound.
int WantedKills()
{
    const char* const lText =
        std::getenv("KYTEST_STANDBY_KILLS"); // NOLINT(concurrency-mt-unsafe): no other thread yet
    return lText != nullptr ? std::atoi(lText) : 0;
}

/// The number that follows aStart in aText; 0: it is not there, or not yet complete.
uint16_t NumberAfter(const std::string& aText, const std::string& aStart)
{
    const size_t lPlace = aText.rfind(aStart);
    const size_t lEnd = lPlace != std::string::npos
                            ? aText.find_first_not_of("0123456789", lPlace + aStart.size())
                            : std::string::npos;
    return lEnd != std::string::npos
               ? static_cast<uint16_t>(std::stoul('0' + aText.substr(lPlace + aStart.size())))
               : 0;
}

/// A running service of the camera.
class RunningService
{
public:
    RunningService(int aNumber, uint16_t aCamera)
    {
        const std::string lName = "standby" + std::to_string(aCamera) + '-' + std::to_string(aNumber);
        const std::string lText =
            "name = '" + lName +
            "'\nweb = ':0'\n[[device]]\nname = 'lens'\ndevice = 'gev://127.0.0.1:" + std::to_string(aCamera) +
            "'\n[[device.port]]\nport = 'bulk1'\nhost = 'tcp://:0'\nbaud = 57600\n";
        EXPECT_TRUE(WriteFile(mFile, lText));
        EXPECT_TRUE(mProcess.Start("kyserial", {"serve", mFile}, {}));
    }
    ~RunningService() { std::remove(mFile.c_str()); } // and kills it

    Process& GetProcess() { return mProcess; }
    std::string Log() const { return mProcess.Error(); }
    bool WaitFor(const std::string& aText) { return mProcess.WaitForError(aText); }
    bool WaitForPort()
    {
        return KyTest::WaitFor([this] { return NumberAfter(Log(), "lens bulk1 is tcp://127.0.0.1:") != 0; });
    }
    /// What the device answers to a client of the service.
    std::string Ask() const
    {
        boost::asio::io_context lContext;
        boost::system::error_code lError;
        tcp::socket lSocket(lContext);
        lSocket.connect(
            {boost::asio::ip::address_v4::loopback(), NumberAfter(Log(), "lens bulk1 is tcp://127.0.0.1:")},
            lError);
        boost::asio::write(lSocket, boost::asio::buffer(std::string("STATUS?\r\n")), lError);
        std::string lAnswer;
        boost::asio::read_until(lSocket, boost::asio::dynamic_buffer(lAnswer), '\n', lError);
        return lAnswer;
    }
    nlohmann::json Status() const
    {
        const ToolResult lResult = RunTool(
            {"status", "--json", std::to_string(NumberAfter(Log(), "web page is http://127.0.0.1:"))});
        EXPECT_EQ(lResult.mStatus, 0) << lResult.mError;
        return nlohmann::json::parse(lResult.mOutput, nullptr, false)["devices"][0];
    }

private:
    const std::string mFile = Process::TemporaryFile(".toml");
    Process mProcess;
};

class StandbyTest : public testing::Test
{
protected:
    void SetUp() override
    {
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        ASSERT_TRUE(mCamera.Start("kyserial-camera", {"--port", "0", "--fast"}, lFiles));
        ASSERT_TRUE(mCamera.WaitForOutput("\n")) << mCamera.Error();
        mPort = NumberAfter(mCamera.Output() + ' ', "ready at 127.0.0.1:");
        ASSERT_NE(mPort, 0) << mCamera.Output();
    }

    std::unique_ptr<RunningService> StartStandby(int aNumber) const
    {
        auto lService = std::make_unique<RunningService>(aNumber, mPort);
        EXPECT_TRUE(lService->WaitFor("lens: standing by: another application controls the device"))
            << lService->Log();
        return lService;
    }

    Process mCamera;
    uint16_t mPort = 0;
};

TEST_F(StandbyTest, TheSecondServiceWaitsAndTakesOverWhenTheFirstIsKilled)
{
    const bool lIsExact = WantedKills() > 0;
    const int lKills = lIsExact ? WantedKills() : 5;
    auto lActive = std::make_unique<RunningService>(0, mPort);
    ASSERT_TRUE(lActive->WaitForPort()) << lActive->Log();
    int64_t lLongest = 0;
    for (int lKill = 1; lKill <= lKills; ++lKill)
    {
        auto lStandby = StartStandby(lKill);
        const nlohmann::json lStatus = lStandby->Status();
        EXPECT_EQ(lStatus["standby"], true) << lStatus;
        EXPECT_EQ(lStatus["connected"], false) << lStatus;
        EXPECT_THAT(lStatus["error"].get<std::string>(), HasSubstr(", at 127.0.0.1:")) << lStatus;
        EXPECT_FALSE(lActive->Ask().empty());
        EXPECT_THAT(lStandby->Log(),
                    Not(HasSubstr("lens: connected"))); // it takes nothing from the one that lives
        const auto lBegin = Clock::now();
        lActive.reset();
        ASSERT_TRUE(lStandby->WaitForPort()) << lStandby->Log();
        const auto lTime =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lBegin).count();
        lLongest = std::max<int64_t>(lLongest, lTime);
        EXPECT_LE(lTime, lIsExact ? cHeartbeat + 1000 : 10 * cHeartbeat);
        EXPECT_THAT(lStandby->Log(), HasSubstr("lens: connected; the other application is gone"));
        EXPECT_THAT(lStandby->Ask(), HasSubstr("STATUS READY"));
        const nlohmann::json lAfter = lStandby->Status();
        EXPECT_EQ(lAfter["standby"], false) << lAfter;
        EXPECT_EQ(lAfter["connected"], true) << lAfter;
        EXPECT_EQ(lAfter["ports"][0]["baud_rate"], 57600) << lAfter; // the settings are applied again
        lActive = std::move(lStandby);
    }
    RecordProperty("longest_ms", std::to_string(lLongest));
    std::printf("%d kills, taken over after %lld ms at most\n", lKills, static_cast<long long>(lLongest));
}

// Its sockets are open all the while, so that only its silence says that it is gone.
TEST_F(StandbyTest, TheSecondServiceTakesOverFromOneThatDoesNotRunAndTheFirstOneSaysSoWhenItGoesOn)
{
    RunningService lFirst(0, mPort);
    ASSERT_TRUE(lFirst.WaitForPort()) << lFirst.Log();
    const auto lStandby = StartStandby(1);
    if (!lFirst.GetProcess().Pause())
    {
        GTEST_SKIP() << "this test cannot keep a program of this system from running";
    }
    EXPECT_TRUE(lStandby->WaitForPort()) << lStandby->Log();
    EXPECT_THAT(lStandby->Log(), HasSubstr("lens: connected; the other application is gone"));
    EXPECT_THAT(lStandby->Ask(), HasSubstr("STATUS READY"));
    EXPECT_TRUE(lFirst.GetProcess().Continue());
    EXPECT_TRUE(lFirst.WaitFor("lens bulk1: the device is gone")) << lFirst.Log();
    EXPECT_THAT(lStandby->Ask(), HasSubstr("STATUS READY")); // it takes nothing back
}

} // namespace
