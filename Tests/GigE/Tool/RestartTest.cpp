// A bridge of kyserial whose camera starts anew, more quickly than anybody looks.

#include "Simulator/RecordingPeer.h"
#include "Tools/BridgeRun.h"
#include "Tools/TerminalUser.h"

#include "Tests/Support/WaitFor.h"

#include <JxUtilsLib/Event.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using KyTest::BridgeRun;
using KyTest::Process;
using KyTest::TerminalUser;
using KyTest::WaitFor;

namespace
{

/// A camera that loses everything when it starts anew; what hangs on its line stays.
class MortalCamera
{
public:
    explicit MortalCamera(KySimulator::Port aPort) : mPort(aPort) { Start(); }

    void Restart(std::chrono::milliseconds aAway)
    {
        mCamera->Stop();
        FinishLine();
        mCamera.reset();
        mModel.reset();
        std::this_thread::sleep_for(aAway);
        Start();
    }
    std::string GetDevice() const { return "gev://127.0.0.1:" + std::to_string(mPlace.mEndpoint.mPort); }
    uint64_t GetHeard() const { return mPeer->GetBytes().size(); }

private:
    void Start()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mSerialNumber = "SIM1"; // the same camera, not another one
        lConfiguration.mMacAddress = 0x020000000001;
        mModel = std::make_shared<KySimulator::CameraModel>(lConfiguration);
        mModel->Plug(mPort, mPeer);
        mCamera = std::make_unique<KySimulator::NetworkCamera>(mModel, mPlace);
        ASSERT_TRUE(WaitFor([&] { return mCamera->Start(); })) << mCamera->GetError();
        mPlace.mEndpoint = mCamera->GetEndpoint();
    }

    /// What the camera has accepted goes out on the line: no bridge can know of bytes that die inside a camera.
    void FinishLine()
    {
        for (int lQuiet = 0; lQuiet < 3;)
        {
            const uint64_t lBefore = GetHeard();
            JxUtilsLib::Event lDone(true);
            KySimulator::Scheduler& lScheduler = mModel->GetScheduler();
            lScheduler.At(lScheduler.Now(), [&] { lDone.Set(); });
            ASSERT_TRUE(lDone.Wait_ms(60000));
            lQuiet = GetHeard() == lBefore ? lQuiet + 1 : 0;
        }
    }

    const KySimulator::Port mPort;
    std::shared_ptr<KySimulator::CameraModel> mModel;
    const std::shared_ptr<RecordingPeer> mPeer = std::make_shared<RecordingPeer>();
    KySimulator::NetworkPlace mPlace{{0x7F000001, 0}, false};
    std::unique_ptr<KySimulator::NetworkCamera> mCamera;
};

/// Types lines on a thread of its own. The pause after each is what makes a bridge pass it on: without pauses the bridge gathers
/// 16384 bytes first, which takes seconds.
class Typist
{
public:
    explicit Typist(TerminalUser& aUser)
        : mThread(
              [this, &aUser]
              {
                  while (!mStop)
                  {
                      aUser.Type("01234567890123456789\n");
                      mTyped += 21;
                      std::this_thread::sleep_for(15ms);
                  }
              })
    {
    }
    ~Typist() { Stop(); }
    uint64_t Stop()
    {
        mStop = true;
        if (mThread.joinable())
        {
            mThread.join();
        }
        return mTyped;
    }

private:
    std::atomic<bool> mStop = false;
    std::atomic<uint64_t> mTyped = 0;
    std::thread mThread;
};

struct RestartCase
{
    const char* mName;
    KySimulator::Port mPort;
};

class RestartTest : public testing::TestWithParam<RestartCase>
{
};

/// Bytes to the device that a report counts as lost, for all reasons.
uint64_t LostToDevice(const nlohmann::json& aReport)
{
    uint64_t lSum = 0;
    for (const auto& [lReason, lBytes] : aReport["to_device"]["lost"].items())
    {
        lSum += lBytes.get<uint64_t>();
    }
    return lSum;
}

// 16 restarts of 20 to 400 ms, each a little longer than the one before. With KYSERIAL_FULL_RESTART_TEST there are 50 of 20 to
// 2000 ms.
TEST_P(RestartTest, EveryByteIsDeliveredOrCounted)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes it
    const bool lIsFull = std::getenv("KYSERIAL_FULL_RESTART_TEST") != nullptr;
    const int lRounds = lIsFull ? 50 : 16;
    const double lLongest = lIsFull ? 2000 : 400;
    MortalCamera lCamera(GetParam().mPort);
    const std::string lLink = Process::TemporaryFile(".pty");
    BridgeRun lBridge({"--port", GetParam().mName, "--pty", lLink, "--baud", "115200", "--reconnect",
                       "--log-level", "warning", "--device", lCamera.GetDevice()});
    uint64_t lTyped = 0;
    {
        TerminalUser lUser(lLink);
        Typist lTypist(lUser);
        for (int lRound = 0; lRound < lRounds; ++lRound)
        {
            const double lPart = static_cast<double>(lRound) / (lRounds - 1);
            lCamera.Restart(std::chrono::milliseconds(std::lround(20 * std::pow(lLongest / 20, lPart))));
            EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"reconnections\":" + std::to_string(lRound + 1)))
                << lRound << ": " << lBridge.mTool.Error();
            const uint64_t lBefore = lCamera.GetHeard();
            EXPECT_TRUE(WaitFor([&] { return lCamera.GetHeard() > lBefore; })) << lRound;
        }
        lTyped = lTypist.Stop();
        const auto lAccounted = [&]
        {
            const nlohmann::json lReport = lBridge.LastReport();
            return lReport["to_device"]["delivered"].get<uint64_t>() + LostToDevice(lReport);
        };
        EXPECT_TRUE(WaitFor([&] { return lAccounted() >= lTyped; })) << lAccounted() << " of " << lTyped;
    }
    EXPECT_EQ(lBridge.End(), 0);
    const nlohmann::json lReport = lBridge.LastReport();
    const uint64_t lDelivered = lReport["to_device"]["delivered"];
    EXPECT_EQ(lReport["reconnections"], lRounds);
    EXPECT_EQ(lReport["to_device"]["taken"], lTyped);
    EXPECT_EQ(lDelivered + LostToDevice(lReport), lTyped) << lReport;
    EXPECT_EQ(lReport["lost_bytes"], LostToDevice(lReport));
    // The line has heard what counts as delivered. It may have heard more: the camera takes a message, and ends before the
    // confirmation is out. The bridge has to count those bytes as lost.
    constexpr uint64_t cLongestMessage = 512;
    EXPECT_GE(lCamera.GetHeard(), lDelivered) << lReport;
    EXPECT_LE(lCamera.GetHeard(), lDelivered + cLongestMessage * static_cast<uint64_t>(lRounds)) << lReport;
}

INSTANTIATE_TEST_SUITE_P(Ports, RestartTest,
                         testing::Values(RestartCase{"uart0", KySimulator::Port::Uart0},
                                         RestartCase{"bulk0", KySimulator::Port::Bulk0},
                                         RestartCase{"bulk1", KySimulator::Port::Bulk1}),
                         [](const auto& aCase) { return std::string(aCase.param.mName); });

} // namespace
