// What a bridge reports to its observer, and how it goes on when its device was away.

#include "KySerial/Bridge/BridgeFixture.h"
#include "Support/Repeater.h"
#include "Support/WaitFor.h"

#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Mutex.h"
#include "JxUtilsLib/Thread.h"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <tuple>

using namespace KyTest;
using KySerialLib::BridgeWay;
using testing::Contains;
using testing::ElementsAre;

namespace
{

using Reports = std::vector<std::string>;

/// Writes down what a bridge reports, a line each.
class ReportRecorder final : public IKySerialBridgeObserver
{
public:
    void NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount) override
    {
        const auto lNow = std::chrono::system_clock::now().time_since_epoch();
        const int64_t lMicroseconds = std::chrono::duration_cast<std::chrono::microseconds>(lNow).count();
        EXPECT_LE(aTime, lMicroseconds);
        EXPECT_GE(aTime, lMicroseconds - 60000000);
        const std::string lText(aBytes, aBytes + aCount);
        Add((aWay == KySerialBridgeWay::ToDevice ? "> " : "< ") +
            (aCount > 20 ? std::to_string(aCount) : lText));
    }
    void NotifyLoss(KySerialBridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes) override
    {
        static const char* const cNames[] = {"overrun", "cleared", "refused", "cut off", "away"};
        Add(std::string(aWay == KySerialBridgeWay::ToDevice ? "> " : "< ") + std::to_string(aBytes) + ' ' +
            cNames[static_cast<int>(aLoss)]);
    }
    void NotifyDeviceGone() override { Add("gone"); }
    void NotifyDeviceBack(uint64_t aLost) override { Add("back " + std::to_string(aLost)); }
    void NotifySettings(const KySerialPortConfiguration& aSettings) override
    {
        Add("settings " + std::to_string(aSettings.mBaudRate) + ' ' + std::to_string(aSettings.mStopBits));
    }

    Reports Get() const
    {
        const JxUtilsLib::LockScope lLock(mLock);
        return mReports;
    }
    bool Has(const std::string& aLine) const { return testing::Value(Get(), Contains(aLine)); }

private:
    void Add(const std::string& aLine)
    {
        const JxUtilsLib::LockScope lLock(mLock);
        mReports.push_back(aLine);
    }

    mutable JxUtilsLib::Mutex mLock;
    Reports mReports JX_GUARDED_BY(mLock);
};

class Connections final : public IKyDeviceGeneration
{
public:
    uint64_t GetGeneration() override { return mNumber; }
    std::atomic<uint64_t> mNumber{1};
};

class BridgeObserverTest : public BridgeFixture
{
protected:
    void SetUp() override
    {
        AddBulkPort(mDevice);
        mOptions.mObserver = &mRecorder;
        mOptions.mGeneration = &mConnections;
    }
    void TearDown() override
    {
        mDevice.OnCall(Slot::WriteRegister, {}); // closing the port writes registers too
        mBridge.reset();                         // before its observer
        BridgeFixture::TearDown();
    }

    void Open(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        mBridge->SetOptions(mOptions);
        BridgeFixture::Open(aPort);
    }
    void Start(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        Open(aPort);
        ASSERT_THAT(mBridge->ConfigurePort(), IsOK());
        ASSERT_THAT(mBridge->Start(), IsOK());
    }
    bool Write(const std::string& aText) { return WriteBlock(*mBridge, Bytes(aText.begin(), aText.end())); }
    bool Read(size_t aSize)
    {
        Bytes lBytes(aSize);
        uint32_t lRead = 0;
        return mBridge->ReadFromDevice(lBytes.data(), static_cast<uint32_t>(aSize), lRead, 0);
    }
    void Vanish() { mDevice.SetAnswer(Slot::IsConnected, false); }
    void VanishAndWait()
    {
        Vanish();
        EXPECT_TRUE(WaitForLine("gone"));
    }
    // The device is back as after its power-up.
    void Return()
    {
        mDevice.SetText("Bulk1BaudRate", "PowerUpRate");
        mDevice.SetText("Bulk1Parity", "PowerUpParity");
        ++mConnections.mNumber;
        mDevice.SetAnswer(Slot::IsConnected, true);
    }
    bool WaitForLine(const std::string& aLine)
    {
        return WaitFor([&] { return mRecorder.Has(aLine); });
    }

    ReportRecorder mRecorder;
    Connections mConnections;
    KySerialBridgeOptions mOptions;
};

TEST_F(BridgeObserverTest, TrafficToTheDeviceIsReportedAsThePortSendsIt)
{
    mDevice.SetRegister(0xB898, 1U << 12); // bulk port 0 is a UART
    mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SendEvent(0x9000, Words({1})); });   // sent
    mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({0x800})); }); // empty
    Reports lExpected;
    const std::tuple<KyDeviceSerial, size_t, Reports> lCases[] = {
        {KyDeviceSerialBulk1, 1300, {"> 512", "> 512", "> 276"}},
        {KyDeviceSerialBulk0, 300, {"> 256", "> 44"}},
        {KyDeviceSerialUart0, 2, {"> x", "> x"}}};
    for (const auto& [lPort, lSize, lReports] : lCases)
    {
        mBridge.emplace();
        Open(lPort);
        EXPECT_TRUE(Write(std::string(lSize, 'x')));
        lExpected.insert(lExpected.end(), lReports.begin(), lReports.end());
        EXPECT_EQ(mRecorder.Get(), lExpected);
    }
}

// Where the threshold leaves no room, the device gets an empty chunk.
TEST_F(BridgeObserverTest, AChunkWithoutBytesIsNoTraffic)
{
    mDevice.SetRegister(0xB898, 1U << 12 | 252U << 24);
    mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({0x800})); }); // empty
    Open(KyDeviceSerialBulk0);
    EXPECT_FALSE(Write(std::string(300, 'x')));
    EXPECT_THAT(mRecorder.Get(), ElementsAre("> 256", "> 44 refused"));
    EXPECT_EQ(mAsserts.Take(), Broken({"lBytesAllowed"}));
}

// An application overrides the reports that it wants.
TEST_F(BridgeObserverTest, AnObserverNeedsToTakeNoReport)
{
    class : public IKySerialBridgeObserver
    {
    } lObserver;
    mOptions.mObserver = &lObserver;
    mOptions.mReconnect = true;
    JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal);
    Start();
    EXPECT_TRUE(Write("there"));
    Vanish();
    EXPECT_TRUE(WaitFor([&] { return Write("l") && mBridge->GetFlow(BridgeWay::ToDevice).mAway > 0; }));
    Return();
    EXPECT_TRUE(WaitFor([&] { return Write("t") && mBridge->GetFlow(BridgeWay::ToDevice).mDelivered > 5; }));
    mBridge.reset(); // before the observer
}

TEST_F(BridgeObserverTest, TrafficFromTheDeviceIsReportedWhenTheBridgeTakesIt)
{
    Open();
    SendUpstream(mDevice, "hello");
    EXPECT_THAT(mRecorder.Get(), ElementsAre());
    EXPECT_TRUE(Read(100));
    EXPECT_THAT(mRecorder.Get(), ElementsAre("< hello"));
}

TEST_F(BridgeObserverTest, LossesAreReportedWithTheirReasons)
{
    Open();
    mDevice.Fail(Slot::SetRegisterData);
    EXPECT_FALSE(Write("no"));
    mDevice.StopFailing();
    SendUpstream(mDevice, std::string(70000, 'd'));
    EXPECT_TRUE(Read(65000));
    EXPECT_EQ(mBridge->CountDelivery(65000, 64000), 0U);
    EXPECT_THAT(mBridge->Recover(), IsOK());
    SendUpstream(mDevice, "late");
    End();
    EXPECT_THAT(mRecorder.Get(), ElementsAre("> 2 refused", "< 4465 overrun", "< 65000", "< 1000 refused",
                                             "< 535 cleared", "< 4 cut off"));
}

TEST_F(BridgeObserverTest, SettingsAreReportedWhenTheyAreApplied)
{
    Open();
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    mBridge->SetConfiguration({115200, KyParityNone, 8, 2});
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    EXPECT_THAT(mRecorder.Get(), ElementsAre("settings 9600 1", "settings 115200 2"));
}

TEST_F(BridgeObserverTest, AnAbsenceIsReportedAndARecoverThatSucceeds)
{
    Start();
    VanishAndWait();
    EXPECT_FALSE(Write("lost"));
    EXPECT_THAT(mBridge->Recover(), IsOK()); // nothing to recover yet
    Return();
    EXPECT_THAT(mBridge->Recover(), IsOK());
    EXPECT_TRUE(WaitForLine("back 4"));
    EXPECT_THAT(mRecorder.Get(), ElementsAre("settings 9600 1", "gone", "> 4 refused", "back 4"));
}

class ThrowingObserver final : public IKySerialBridgeObserver
{
public:
    void NotifyTraffic(KySerialBridgeWay /*aWay*/, int64_t /*aTime*/, const uint8_t* /*aBytes*/,
                       uint32_t /*aCount*/) override
    {
        ++mCalls;
        throw std::runtime_error("not the bridge's business");
    }
    int mCalls = 0;
};

TEST_F(BridgeObserverTest, WhatAnObserverThrowsEndsNothing)
{
    ThrowingObserver lObserver;
    mOptions.mObserver = &lObserver;
    Open();
    EXPECT_TRUE(Write("one"));
    EXPECT_TRUE(Write("two"));
    EXPECT_EQ(lObserver.mCalls, 2);
    EXPECT_EQ(ToDevice(), "6 taken, 6 delivered");
    mBridge.reset();
}

// The third thread costs accesses that a bridge without options does not make.
TEST_F(BridgeObserverTest, WithoutOptionsNobodyLooksForTheDevice)
{
    mOptions = {};
    Start();
    mDevice.ClearCounts();
    JxUtilsLib::Thread::Sleep(200); // four looks
    EXPECT_EQ(mDevice.GetCallCount(), 0);
    EXPECT_EQ(mRecorder.Get().size(), 0U);
}

/// A bridge that waits for its device.
class BridgeReconnectTest : public BridgeObserverTest
{
protected:
    void SetUp() override
    {
        BridgeObserverTest::SetUp();
        mOptions.mReconnect = true;
        JxUtilsLib::Logger::SetPriority(
            JxUtilsLib::PriorityFatal); // the device's absence is logged at length
    }
};

TEST_F(BridgeReconnectTest, BytesThatWereLostBeforeAnAbsenceAreNotThoseOfTheAbsence)
{
    Start();
    mDevice.Fail(Slot::SetRegisterData);
    EXPECT_FALSE(Write("refused"));
    mDevice.StopFailing();
    mDevice.ClearCounts();
    EXPECT_TRUE(
        WaitFor([&] { return mDevice.GetCallCount(Slot::IsConnected) > 3; })); // it has been looked for
    VanishAndWait();
    EXPECT_TRUE(Write("away"));
    Return();
    EXPECT_TRUE(WaitForLine("back 4"));
}

TEST_F(BridgeReconnectTest, ADeviceThatIsBackGetsItsSettingsAndThePortWorks)
{
    Start();
    ASSERT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud9600");
    VanishAndWait();
    EXPECT_TRUE(Write("lost"));
    EXPECT_EQ(ToDevice(), "4 taken, 4 away");
    Return();
    EXPECT_TRUE(WaitForLine("back 4"));
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud9600");
    EXPECT_EQ(mDevice.GetText("Bulk1Parity"), "None");
    uint32_t lRoom = 0;
    EXPECT_THAT(mBridge->GetPort()->GetRxBufferSize(lRoom), IsOK());
    EXPECT_EQ(lRoom, 65536U); // as before
    EXPECT_TRUE(Write("there"));
    EXPECT_THAT(mRecorder.Get(),
                ElementsAre("settings 9600 1", "gone", "> 4 away", "settings 9600 1", "back 4", "> there"));
    EXPECT_EQ(ToDevice(), "9 taken, 5 delivered, 4 away");
}

// A restart that is over before anybody has looked shows in the connection's number alone.
TEST_F(BridgeReconnectTest, ARestartBetweenTwoLooksIsNoticed)
{
    Start();
    Return();
    EXPECT_TRUE(Write("early")); // at once: a device that has not been set up gets nothing
    EXPECT_THAT(ToDevice(), testing::AnyOf("5 taken, 5 away", "5 taken, 5 delivered"));
    EXPECT_TRUE(
        WaitFor([this] { return testing::Value(mRecorder.Get(), Contains(testing::StartsWith("back "))); }));
    EXPECT_TRUE(mRecorder.Has("gone"));
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud9600");
}

TEST_F(BridgeReconnectTest, NothingIsSentToADeviceThatHasNotBeenSetUp)
{
    Open(); // no thread looks
    ++mConnections.mNumber;
    mDevice.ClearCounts();
    EXPECT_TRUE(Write("lost"));
    EXPECT_EQ(mDevice.GetCallCount(Slot::SetRegisterData), 0);
    EXPECT_EQ(ToDevice(), "4 taken, 4 away");
}

// In the middle of a block the pieces that follow stay here.
TEST_F(BridgeReconnectTest, ARestartWithinABlockEndsIt)
{
    Open();
    mDevice.OnCall(Slot::SetRegisterData, [this] { ++mConnections.mNumber; });
    EXPECT_TRUE(Write(std::string(1300, 'x')));
    mDevice.OnCall(Slot::SetRegisterData, {});
    EXPECT_EQ(ToDevice(), "1300 taken, 512 delivered, 788 away");
}

// The wait for a UART's interrupt would take 1020 ms, and fail.
TEST_F(BridgeReconnectTest, AWriterDoesNotWaitForADeviceThatIsGone)
{
    JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityError);
    Start(KyDeviceSerialUart0);
    mDevice.OnCall(Slot::WriteRegister, [this] { Vanish(); }); // with the first byte
    EXPECT_TRUE(Write(std::string(100, 'x')));
    mDevice.OnCall(Slot::WriteRegister, {});
    EXPECT_EQ(ToDevice(), "100 taken, 1 delivered, 99 away"); // the device had one when it went
    for (const LogLine& lLine : TakeLog())
    {
        EXPECT_THAT(lLine.mMessage, testing::Not(testing::StartsWith("Failed while waiting")));
    }
    JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal);
}

TEST_F(BridgeReconnectTest, RefusalsOfADeviceThatIsThereStayRefusals)
{
    Start();
    mDevice.Fail(Slot::SetRegisterData);
    EXPECT_FALSE(Write("no"));
    EXPECT_EQ(ToDevice(), "2 taken, 2 refused");
    EXPECT_FALSE(mRecorder.Has("gone"));
}

TEST_F(BridgeReconnectTest, ASettingThatTheDeviceTookBeforeIsTriedUntilItTakesItAgain)
{
    Start();
    VanishAndWait();
    mDevice.Fail(Slot::SetFeatureFromString, "Bulk1Parity");
    Return();
    mDevice.ClearCounts();
    EXPECT_TRUE(WaitFor([&] { return mDevice.GetCallCount(Slot::SetFeatureFromString) > 0; }));
    EXPECT_TRUE(Write("lost"));
    EXPECT_EQ(ToDevice(), "4 taken, 4 away");
    mDevice.StopFailing();
    EXPECT_TRUE(WaitForLine("back 4"));
}

TEST_F(BridgeReconnectTest, ADeviceWhosePortCannotBeSelectedIsTriedUntilItCan)
{
    AddSettings(mDevice, "Bulk");
    AddSelector(mDevice);
    mOptions.mSelectsPort = true;
    // Settings that it has never taken hold nothing up.
    for (const char* lSetting : {"BulkBaudRate", "BulkParity", "BulkNumOfStopBits"})
    {
        mDevice.Fail(Slot::SetFeatureFromString, lSetting);
    }
    Start();
    VanishAndWait();
    mDevice.SetText("BulkSelector", "Bulk7");
    mDevice.Fail(Slot::SetFeatureFromString, "BulkSelector");
    mDevice.ClearCounts();
    Return();
    EXPECT_TRUE(WaitFor([&] { return mDevice.GetCallCount(Slot::SetFeatureFromString) > 1; }));
    EXPECT_FALSE(mRecorder.Has("back 0"));
    mDevice.StopFailing();
    EXPECT_TRUE(WaitForLine("back 0"));
    EXPECT_EQ(mDevice.GetText("BulkSelector"), "Bulk1");
}

TEST_F(BridgeReconnectTest, ASettingThatTheDeviceHasNeverTakenHoldsNothingUp)
{
    mDevice.Fail(Slot::SetFeatureFromString, "Bulk1Parity");
    Start();
    VanishAndWait();
    Return();
    EXPECT_TRUE(WaitForLine("back 0"));
}

// While it is away, while it comes back, and in the middle of the attempt to set it up.
TEST_F(BridgeReconnectTest, AStopDoesNotWaitForTheDevice)
{
    Start();
    VanishAndWait();
    mBridge->StopThreads();
    EXPECT_EQ(mBridge->mRunning, 0);
}

// An adapter may go and come any number of times; the sanitizers see the threads meet.
TEST_F(BridgeReconnectTest, AbsencesMeetTraffic)
{
    mDevice.SetRecording(false);
    Start();
    const auto lFlow = [this] { return mBridge->GetFlow(BridgeWay::ToDevice); };
    std::optional<Repeater> lWriter([this] { EXPECT_TRUE(Write("0123456789")); });
    for (int lTurn = 0; lTurn < 5; ++lTurn)
    {
        Vanish();
        EXPECT_TRUE(WaitFor([&] { return lFlow().mAway > 0; }));
        Return();
        const uint64_t lBefore = lFlow().mDelivered;
        EXPECT_TRUE(WaitFor([&] { return lFlow().mDelivered > lBefore; }));
    }
    lWriter.reset();
    EXPECT_EQ(lFlow().mTaken, lFlow().mDelivered + lFlow().mAway);
}

} // namespace
