// A bridge to a host side that the application brings, a scripted one here.

#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "Support/PrivateSession.h"
#include "Support/QuickStop.h"
#include "Support/WaitFor.h"

#include "JxUtilsLib/Thread.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace KyTest;

namespace
{

/// Gives what a test has put in, and keeps what the bridge writes.
class ScriptedHost final : public IKySerialBridgeHost
{
public:
    struct Step
    {
        std::string mBytes{};
        KySerialBridgeRequest mRequest{};
        bool mIsRequest = false;
    };

    ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, KySerialBridgeRequest& aRequest) override
    {
        std::unique_lock<std::mutex> lLock(mLock);
        ++mReads;
        if (mReadHook)
        {
            return mReadHook(aBuffer, aSize, aRead);
        }
        mChanged.wait(lLock, [this] { return mEnded || !mSteps.empty(); });
        if (mEnded)
        {
            return ReadEnd::Nothing;
        }
        const Step lStep = mSteps.front();
        mSteps.pop_front();
        aRequest = lStep.mRequest;
        aRead = static_cast<uint32_t>(lStep.mBytes.copy(reinterpret_cast<char*>(aBuffer), aSize));
        return lStep.mIsRequest ? ReadEnd::Request : ReadEnd::Bytes;
    }
    uint32_t Write(const uint8_t* aData, uint32_t aSize) override
    {
        std::unique_lock<std::mutex> lLock(mLock);
        ++mWrites;
        mChanged.wait(lLock, [this] { return mEnded || !mBlocks; });
        if (mThrows)
        {
            throw std::runtime_error("scripted");
        }
        const uint32_t lTaken = mBlocks ? 0 : std::min(aSize, mLimit);
        mText.append(reinterpret_cast<const char*>(aData), lTaken);
        return mClaim != 0 ? mClaim : lTaken;
    }
    void EndTransfers() noexcept override
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        mEnded = true;
        mChanged.notify_all();
    }
    void NotifySettings(const KySerialPortConfiguration& aSettings) override
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        mSettings.push_back(std::to_string(aSettings.mBaudRate) + ' ' +
                            std::to_string(static_cast<int>(aSettings.mParity)) + ' ' +
                            std::to_string(aSettings.mStopBits));
        if (mThrows)
        {
            throw std::runtime_error("scripted");
        }
    }

    void Put(const Step& aStep)
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        mSteps.push_back(aStep);
        mChanged.notify_all();
    }
    void Put(const std::string& aText) { Put(Step{aText}); }
    void Ask(const KySerialBridgeRequest& aRequest) { Put(Step{{}, aRequest, true}); }
    std::string Text()
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        return mText;
    }
    std::vector<std::string> Settings()
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        return mSettings;
    }

    std::atomic<int> mReads{0};
    std::atomic<int> mWrites{0};
    std::function<ReadEnd(uint8_t*, uint32_t, uint32_t&)> mReadHook{};
    std::atomic<bool> mThrows{false};
    std::atomic<bool> mBlocks{false};
    uint32_t mLimit = UINT32_MAX; // of each write
    uint32_t mClaim = 0;          // what a write says that it has taken; 0: the truth

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<Step> mSteps;
    std::string mText;
    std::vector<std::string> mSettings;
    bool mEnded = false;
};

class BridgeHostTest : public EngineTest
{
protected:
    void SetUp() override
    {
        AddBulkPort(mDevice);
        mDevice.SetText("Bulk1BaudRate", "Baud115200");
        mDevice.SetText("Bulk1Parity", "Even");
        mDevice.SetText("Bulk1NumOfStopBits", "Two");
        mDevice.OnCall(Slot::SetRegisterData, [this] { ++mMessages; });
    }
    void TearDown() override
    {
        if (mBridge.GetDevicePort() != KyDeviceSerialInvalid)
        {
            EXPECT_THAT(mBridge.Stop(), IsOK());
        }
        mDevice.OnCall(Slot::SetRegisterData, {});
        EngineTest::TearDown();
    }
    void Start(const KySerialBridgeRequest& aRequest = {}, const KySerialBridgeOptions& aOptions = {})
    {
        ASSERT_THAT(mBridge.Start(mHost, aRequest, &mDevice, KyDeviceSerialBulk1, aOptions), IsOK());
    }
    bool WaitForLog(const std::string& aText)
    {
        const auto lHasText = testing::Contains(testing::Field(&LogLine::mMessage, aText));
        return WaitFor([&] { return testing::Value(TakeLog(), lHasText); });
    }
    // Whether a call is made before another one is.
    static bool ComesBefore(const Calls& aCalls, const std::string& aFirst, const std::string& aSecond)
    {
        const auto lSecond = std::find(aCalls.begin(), aCalls.end(), aSecond);
        EXPECT_NE(lSecond, aCalls.end()) << aSecond;
        return std::find(aCalls.begin(), lSecond, aFirst) != lSecond;
    }
    // Bulk port 2 and the settings of whichever port is selected.
    void AddSelectedPorts()
    {
        AddSelector(mDevice);
        AddSettings(mDevice, "Bulk");
        mDevice.SetContent("Bulk2DownstreamData", Bytes(520));
    }
    // A request for a rate and nothing else.
    static KySerialBridgeRequest Rate(uint32_t aRate)
    {
        KySerialBridgeRequest lRequest;
        lRequest.mBaudRate = aRate;
        return lRequest;
    }

    std::atomic<int> mMessages{0};
    ScriptedHost mHost;
    KySerialBridge mBridge;
};

TEST_F(BridgeHostTest, BytesGoBothWaysAndAreCounted)
{
    Start();
    mHost.Put("ZOOM");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowToDevice().mDelivered == 4; }));
    SendUpstream(mDevice, "READY");
    EXPECT_TRUE(WaitFor([&] { return mHost.Text() == "READY"; }));
    KySerialBridgeFlow lTo;
    KySerialBridgeFlow lFrom;
    EXPECT_THAT(mBridge.Stop(lTo, lFrom), IsOK());
    EXPECT_EQ(Describe(lTo), "4 taken, 4 delivered");
    EXPECT_EQ(Describe(lFrom), "5 taken, 5 delivered");
    EXPECT_EQ(mMessages, 1);
}

TEST_F(BridgeHostTest, WithoutARequestTheDeviceKeepsItsSettings)
{
    Start();
    EXPECT_EQ(mHost.Settings(), std::vector<std::string>{"115200 1 2"});
    EXPECT_EQ(mBridge.GetBaudRate(), 115200U);
    for (const std::string& lCall : mDevice.TakeCalls())
    {
        EXPECT_EQ(lCall.find("SetFeatureFromString(Bulk1"), std::string::npos) << lCall;
    }
}

TEST_F(BridgeHostTest, TheRequestOfTheStartIsSetAndUndoneAtTheEnd)
{
    KySerialBridgeRequest lRequest = Rate(9600);
    lRequest.mSetsParity = true;
    lRequest.mStopBits = 1;
    Start(lRequest);
    EXPECT_EQ(mHost.Settings(), std::vector<std::string>{"9600 0 1"});
    EXPECT_THAT(mBridge.Stop(), IsOK());
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud115200");
    EXPECT_EQ(mDevice.GetText("Bulk1Parity"), "Even");
    EXPECT_EQ(mDevice.GetText("Bulk1NumOfStopBits"), "Two");
}

TEST_F(BridgeHostTest, ARequestTakesItsPlaceAmongTheBytes)
{
    std::string lRateAtWrite;
    mDevice.OnCall(Slot::SetRegisterData, [&] { lRateAtWrite = mDevice.GetText("Bulk1BaudRate"); });
    Start();
    mHost.Put("A");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowToDevice().mDelivered == 1; }));
    EXPECT_EQ(lRateAtWrite, "Baud115200");
    mHost.Ask(Rate(9600));
    mHost.Put("B");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowToDevice().mDelivered == 2; }));
    EXPECT_EQ(lRateAtWrite, "Baud9600");
    EXPECT_EQ(mHost.Settings(), (std::vector<std::string>{"115200 1 2", "9600 1 2"}));
    EXPECT_EQ(mBridge.GetBaudRate(), 9600U);
}

TEST_F(BridgeHostTest, WhatTheDeviceRefusesIsAnsweredWithWhatItHas)
{
    Start();
    mDevice.Fail(Slot::SetFeatureFromString, "Bulk1BaudRate");
    KySerialBridgeRequest lRequest = Rate(4800);
    lRequest.mSetsParity = true;
    lRequest.mParity = static_cast<KyParity>(7); // there is no such parity
    lRequest.mStopBits = 9;
    mHost.Ask(lRequest);
    EXPECT_TRUE(WaitFor([&] { return mHost.Settings().size() == 2; }));
    EXPECT_EQ(mHost.Settings().back(), "115200 1 2");
    mDevice.StopFailing();
}

TEST_F(BridgeHostTest, ARequestCanDropWhatWaitsInTheDevicePort)
{
    mHost.mBlocks = true;
    Start();
    SendUpstream(mDevice, "OLD"); // the host side has it, and takes nothing more
    EXPECT_TRUE(WaitFor([&] { return mHost.mWrites == 1; }));
    SendUpstream(mDevice, "WAITS");
    EXPECT_EQ(mBridge.GetFlowFromDevice().mTaken, 8U);
    KySerialBridgeRequest lRequest;
    lRequest.mClearsReceived = true;
    mHost.Ask(lRequest);
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowFromDevice().mCleared == 5; }));
    KySerialBridgeFlow lTo;
    KySerialBridgeFlow lFrom;
    EXPECT_THAT(mBridge.Stop(lTo, lFrom), IsOK()); // although the host side takes nothing
    EXPECT_EQ(Describe(lFrom), "8 taken, 5 cleared, 3 cut off");
}

TEST_F(BridgeHostTest, WhatTheHostSideDoesNotTakeIsCountedAsRefused)
{
    mHost.mLimit = 2;
    Start();
    SendUpstream(mDevice, "READY");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowFromDevice().mRefused == 3; }));
    EXPECT_EQ(mBridge.GetFlowFromDevice().mDelivered, 2U);
    EXPECT_TRUE(WaitForLog("The host side took 2 of 5 bytes."));
}

TEST_F(BridgeHostTest, WhatTheDeviceDoesNotTakeIsCountedAsRefused)
{
    Start();
    mDevice.Fail(Slot::SetRegisterData);
    mHost.Put("LOST");
    EXPECT_TRUE(WaitForLog("The device did not take all bytes of the host side."));
    EXPECT_EQ(mBridge.GetFlowToDevice().mRefused, 4U);
    mDevice.StopFailing();
}

TEST_F(BridgeHostTest, AHostSideThatClaimsToHaveTakenMoreHasTakenAll)
{
    mHost.mClaim = 1000000;
    Start();
    SendUpstream(mDevice, "READY");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowFromDevice().mDelivered == 5; }));
    EXPECT_EQ(mBridge.GetFlowFromDevice().mRefused, 0U);
}

TEST_F(BridgeHostTest, AHostSideThatClaimsToHaveGivenMoreHasGivenABlock)
{
    std::atomic<bool> lGiven{false};
    mHost.mReadHook = [&](uint8_t*, uint32_t, uint32_t& aRead)
    {
        aRead = lGiven.exchange(true) ? 0 : 4000000000U;
        return IKySerialBridgeHost::ReadEnd::Bytes;
    };
    Start();
    EXPECT_TRUE(WaitFor([this] { return mBridge.GetFlowToDevice().mTaken == 16384; }));
}

TEST_F(BridgeHostTest, ExceptionsOfTheHostSideEndNothing)
{
    mHost.mThrows = true;
    mHost.mReadHook = [](uint8_t*, uint32_t, uint32_t&) -> IKySerialBridgeHost::ReadEnd
    { throw std::runtime_error("scripted"); };
    Start();
    EXPECT_TRUE(WaitForLog("The host side failed when it was given the settings."));
    SendUpstream(mDevice, "READY");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowFromDevice().mRefused == 5; }));
    mHost.mThrows = false;
    SendUpstream(mDevice, "AGAIN");
    EXPECT_TRUE(WaitFor([&] { return mHost.Text() == "AGAIN"; }));
}

TEST_F(BridgeHostTest, AHostSideThatGivesNothingIsAskedEverMoreSlowly)
{
    mHost.mReadHook = [](uint8_t*, uint32_t, uint32_t&) { return IKySerialBridgeHost::ReadEnd::Nothing; };
    Start();
    EXPECT_TRUE(WaitFor([&] { return mHost.mReads >= 4; }));
    const int lBefore = mHost.mReads;
    JxUtilsLib::Thread::Sleep(
        200); // a pause of 20, 40, 80 and 160 ms; asked without pauses it would be thousands
    EXPECT_LE(mHost.mReads - lBefore, 10);
}

TEST_F(BridgeHostTest, AStopIsQuickWhileTheHostSideGivesAndTakesNothing)
{
    std::optional<ScriptedHost> lHost;
    KySerialBridge lBridge;
    ExpectQuickStop(
        [&]
        {
            lHost.emplace();
            lHost->mBlocks = true;
            ASSERT_THAT(lBridge.Start(*lHost, {}, &mDevice, KyDeviceSerialBulk1), IsOK());
            SendUpstream(mDevice, "WAITS");
            ASSERT_TRUE(WaitFor([&] { return lHost->mWrites == 1; }));
        },
        [&] { EXPECT_THAT(lBridge.Stop(), IsOK()); });
}

TEST_F(BridgeHostTest, WrongArgumentsAreRefused)
{
    EXPECT_THAT(mBridge.Start(mHost, {}, nullptr, KyDeviceSerialBulk1),
                IsResult(KyResult::BAD_PARAMETER, "aDevice pointer cannot be NULL."));
    EXPECT_THAT(mBridge.Start(mHost, {}, &mDevice, KyDeviceSerialInvalid),
                IsResult(KyResult::BAD_PARAMETER, "Invalid device port requested."));
    Start();
    EXPECT_THAT(mBridge.Start(mHost, {}, &mDevice, KyDeviceSerialBulk1),
                IsResult(KyResult::WRONG_STATE, "Bridge already started."));
    EXPECT_EQ(mHost.Settings().size(), 1U);
}

TEST_F(BridgeHostTest, ADeviceThatComesBackGetsWhatTheHostSideAskedFor)
{
    KySerialBridgeOptions lOptions;
    lOptions.mReconnect = true;
    Start({}, lOptions);
    mHost.Ask(Rate(9600));
    EXPECT_TRUE(WaitFor([&] { return mHost.Settings().size() == 2; }));
    mDevice.SetAnswer(Slot::IsConnected, false);
    mHost.Put("LOST");
    EXPECT_TRUE(WaitFor([&] { return mBridge.GetFlowToDevice().mAway == 4; }));
    mDevice.SetText("Bulk1BaudRate", "Baud115200");
    mDevice.SetText("Bulk1Parity", "None");
    mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_TRUE(WaitFor([&] { return mDevice.GetText("Bulk1BaudRate") == "Baud9600"; }));
    EXPECT_TRUE(WaitFor([&] { return mDevice.GetText("Bulk1Parity") == "Even"; }));
}

TEST_F(BridgeHostTest, ABulkPortIsSelectedBeforeItIsAskedAbout)
{
    AddSelectedPorts();
    mDevice.TakeCalls();
    Start();
    EXPECT_TRUE(ComesBefore(mDevice.TakeCalls(), "SetFeatureFromString(BulkSelector, \"Bulk1\")",
                            "IsRegisterFeatureAvailable(Bulk1DownstreamData)"));
}

TEST_F(BridgeHostTest, AStartFailsWhenThePortCannotBeSelected)
{
    AddSelectedPorts();
    const auto lRefuse = [this]
    {
        mDevice.SetText("BulkSelector", "Bulk7");
        mDevice.Fail(Slot::SetFeatureFromString, "BulkSelector");
    };
    // Before the port is opened, and after that.
    for (const bool lAtOnce : {true, false})
    {
        lAtOnce ? lRefuse() : mDevice.OnCall(Slot::RegisterEventSink, lRefuse);
        EXPECT_THAT(mBridge.Start(mHost, {}, &mDevice, KyDeviceSerialBulk1),
                    IsResult(KyResult::UNSUPPORTED, "Error setting Bulk selector."));
        EXPECT_EQ(mDevice.GetCallCount(Slot::RegisterEventSink) == 0, lAtOnce);
        EXPECT_EQ(mDevice.GetText("BulkBaudRate"), "SavedBaudRate");
        EXPECT_TRUE(mHost.Settings().empty());
        mDevice.StopFailing();
    }
}

// The features of all bulk ports are one set, which the selector points to a port.
TEST_F(BridgeHostTest, BridgesOfOneDeviceDoNotTakeEachOthersSelector)
{
    AddSelectedPorts();
    mDevice.SetText("BulkBaudRate", "Baud9600");
    ScriptedHost lOtherHost;
    KySerialBridge lOther;
    ASSERT_THAT(lOther.Start(lOtherHost, {}, &mDevice, KyDeviceSerialBulk2), IsOK());
    Start();
    mDevice.OnCall(Slot::GetFeatureAsString, [] { std::this_thread::yield(); }); // in the middle of a scope
    mDevice.TakeCalls();
    std::string lSelected = mDevice.GetText("BulkSelector");
    for (uint32_t lRound = 0; lRound < 100; ++lRound)
    {
        mHost.Ask(Rate(10000 + lRound % 2));
        lOtherHost.Ask(Rate(20000 + lRound % 2));
    }
    EXPECT_TRUE(
        WaitFor([&] { return mHost.Settings().size() == 101 && lOtherHost.Settings().size() == 101; }));
    int lWrong = 0;
    int lSet = 0;
    for (const std::string& lCall : mDevice.TakeCalls())
    {
        if (lCall.rfind("SetFeatureFromString(BulkSelector, ", 0) == 0)
        {
            lSelected = lCall;
        }
        for (const auto& [lRate, lPort] :
             {std::pair("\"Baud1000", "Bulk1"), std::pair("\"Baud2000", "Bulk2")})
        {
            if (lCall.rfind(std::string("SetFeatureFromString(BulkBaudRate, ") + lRate, 0) == 0)
            {
                ++lSet;
                lWrong += lSelected.find(lPort) != std::string::npos ? 0 : 1;
            }
        }
    }
    EXPECT_GE(lSet, 2);
    EXPECT_EQ(lWrong, 0);
}

// By default that stays with the application.
TEST_F(BridgeHostTest, AStartToClientsSelectsItsPortIfTheOptionsSaySo)
{
    AddSelectedPorts();
    const PrivateSession lSession;
    Start();
    KySerialBridgeOptions lOptions;
    for (const bool lSelects : {false, true})
    {
        lOptions.mSelectsPort = lSelects;
        KySerialBridge lOther;
        mDevice.SetText("BulkSelector", "Bulk1");
        mDevice.TakeCalls();
        ASSERT_THAT(lOther.Start("Server", &mDevice, KyDeviceSerialBulk2, lOptions), IsOK());
        EXPECT_EQ(ComesBefore(mDevice.TakeCalls(), "SetFeatureFromString(BulkSelector, \"Bulk2\")",
                              "IsRegisterFeatureAvailable(Bulk2DownstreamData)"),
                  lSelects);
    }
}

} // namespace
