#include "KySerial/Bridge/BridgeFixture.h"

#include <thread>

using namespace KyTest;

namespace
{

constexpr char cFree[] = "KySerialLib::Bridge::~Bridge";
constexpr char cReleasing[] = "Bridge releasing serial port resources.";
constexpr char cStopThreads[] = "KySerialLib::Bridge::StopThreads";

class BridgeTest : public BridgeFixture
{
protected:
    static bool IsStopLine(const LogLine& aLine)
    {
        return aLine.mPriority == PriorityInfo && aLine.mFunction == cStopThreads &&
               aLine.mMessage.starts_with("Bridge threads stop time: ") && aLine.mMessage.ends_with(".");
    }
};

TEST_F(BridgeTest, ANewOneHasNothing)
{
    EXPECT_EQ(mBridge->GetPort(), nullptr);
    EXPECT_EQ(mBridge->GetDevicePortID(), KyDeviceSerialInvalid);
    EXPECT_EQ(mBridge->GetBaudRate(), 0U);
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 0U);
    const KySerialPortConfiguration lConfiguration = mBridge->GetConfiguration();
    EXPECT_EQ(lConfiguration.mBaudRate, 9600U);
    EXPECT_EQ(lConfiguration.mParity, KyParityNone);
    EXPECT_EQ(lConfiguration.mBitsPerByte, 8U);
    EXPECT_EQ(lConfiguration.mStopBits, 1U);
}

TEST_F(BridgeTest, WithoutADevicePortItDoesNothingToADevice)
{
    EXPECT_THAT(mBridge->BackupPortConfig(), IsOK());
    EXPECT_THAT(mBridge->RestorePortConfig(), IsOK());
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    EXPECT_THAT(mBridge->SyncBaudRate(true), IsOK());
    EXPECT_THAT(mBridge->Recover(), IsResult(KyResult::NOT_OPEN, ""));
    mBridge->StopThreads();
    EXPECT_EQ(TakeLog(), Lines());
    End();
    EXPECT_EQ(TakeLogOf("Bridge"), (Lines{{PriorityInfo, cFree, cReleasing}}));
}

TEST_F(BridgeTest, OpensTheDevicePortInThisOrder)
{
    AddSettings(mDevice, "Uart0");
    KyDeviceSerialPort lPort;
    const Calls lAsked = Record(mDevice, [](auto& aDevice)
                                { KyDeviceSerialPort::IsSupported(&aDevice, KyDeviceSerialUart0); });
    const Calls lOpened = Record(mDevice, [&](auto& aDevice)
                                 { EXPECT_THAT(lPort.Open(&aDevice, KyDeviceSerialUart0), IsOK()); });
    EXPECT_THAT(lPort.Close(), IsOK());
    Forget();

    EXPECT_THAT(mBridge->OpenDevicePort(&mDevice, KyDeviceSerialUart0), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Join({lAsked,
                                         {"RegisterEventSink"},
                                         lOpened,
                                         ForSettings("Uart0", cNoteSetting),
                                         ForSettings("Uart0", cReadSetting)}));
    EXPECT_EQ(mBridge->GetDevicePortID(), KyDeviceSerialUart0);
    ASSERT_NE(mBridge->GetPort(), nullptr);
    EXPECT_TRUE(mBridge->GetPort()->IsOpened());
    uint32_t lSize = 0;
    EXPECT_THAT(mBridge->GetPort()->GetRxBufferSize(lSize), IsOK());
    EXPECT_EQ(lSize, 65536U);
    EXPECT_EQ(mDevice.GetSinks().size(), 2U); // the bridge and its port
}

TEST_F(BridgeTest, UnsupportedPortIsRefusedAndLeavesNothing)
{
    const char* const lText = "Requested device port not supported.";
    mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart1, KyDeviceSerialInvalid})
    {
        EXPECT_THAT(mBridge->OpenDevicePort(&mDevice, lPort), IsResult(KyResult::UNSUPPORTED, lText));
        EXPECT_EQ(TakeLog().back(), (LogLine{PriorityError, "KySerialLib::Bridge::OpenDevicePort", lText}));
        EXPECT_EQ(mBridge->GetPort(), nullptr);
        EXPECT_EQ(mBridge->GetDevicePortID(), KyDeviceSerialInvalid);
        EXPECT_TRUE(mDevice.GetSinks().empty());
    }
    mDevice.TakeCalls();
    End();
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_F(BridgeTest, PortInUsePassesThePortsResultOnAndLetsGo)
{
    ASSERT_TRUE(KySerialLib::PortMap::GetInstance().Lock(&mDevice, KyDeviceSerialUart0));
    EXPECT_THAT(mBridge->OpenDevicePort(&mDevice, KyDeviceSerialUart0), IsResult(KyResult::FAILURE, cInUse));
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);
    EXPECT_EQ(mDevice.GetCallCount(Slot::RegisterFeatureInterest), 0);
    End();
    EXPECT_TRUE(mDevice.GetSinks().empty());
    EXPECT_TRUE(KySerialLib::PortMap::GetInstance().Unlock(&mDevice, KyDeviceSerialUart0));
}

TEST_F(BridgeTest, RefusedSinkDoesNotMatter)
{
    mDevice.FailCall(Slot::RegisterEventSink, 1);
    EXPECT_THAT(mBridge->OpenDevicePort(&mDevice, KyDeviceSerialUart0), IsOK());
}

TEST_F(BridgeTest, IgnoresTheDevicesEvents)
{
    Open(KyDeviceSerialUart0);
    mBridge->NotifyEvent(0x9000, 0, 0, 0, "data", 4);
    const KyString lName("Uart0BaudRate");
    mBridge->NotifyFeatureInvalidated(&lName);
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeTest, EndRestoresThenLetsGoThenCloses)
{
    AddSettings(mDevice, "Uart0");
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(mDevice.GetInterest("Uart0Parity"), 1);
    KyDeviceSerialPort lOther;
    ASSERT_THAT(lOther.Open(&mDevice, KyDeviceSerialUart1), IsOK());
    Calls lClose = Record(mDevice, [&](auto&) { EXPECT_THAT(lOther.Close(), IsOK()); });
    Forget();
    const Calls lClosed = Record(mDevice, [&](auto&) { End(); });
    const Calls lRestored =
        Join({{"IsFeatureWritable(Uart0BaudRate)", "SetFeatureFromString(Uart0BaudRate, \"SavedBaudRate\")",
               "IsFeatureWritable(Uart0Parity)", "SetFeatureFromString(Uart0Parity, \"SavedParity\")",
               "IsFeatureWritable(Uart0NumOfStopBits)",
               "SetFeatureFromString(Uart0NumOfStopBits, \"SavedNumOfStopBits\")", "UnregisterEventSink"},
              ForSettings("Uart0", {"UnregisterFeatureInterest"})});
    EXPECT_EQ(lClosed.size(), lRestored.size() + lClose.size());
    EXPECT_EQ(First(lClosed, lRestored.size()), lRestored);
    EXPECT_EQ(mDevice.GetInterest("Uart0Parity"), 0);
    EXPECT_TRUE(mDevice.GetSinks().empty());
    EXPECT_EQ(TakeLog().front(), (LogLine{PriorityInfo, cFree, cReleasing}));
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
}

TEST_F(BridgeTest, StartsBothThreadsAndEndsThem)
{
    EXPECT_THAT(mBridge->Start(), IsOK());
    while (mBridge->mRunning < 2)
    {
        std::this_thread::yield();
    }
    mBridge->StopThreads();
    EXPECT_EQ(mBridge->mRunning, 0);
    const Lines lLines = TakeLogOf("Bridge");
    ASSERT_EQ(lLines.size(), 2U); // one for each thread
    EXPECT_TRUE(IsStopLine(lLines[0])) << lLines[0];
    EXPECT_TRUE(IsStopLine(lLines[1])) << lLines[1];
    mBridge->StopThreads();
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeTest, ARefusedThreadFailsTheStartAndLeavesTheOthersRunning)
{
    const std::pair<const char*, std::function<void()>> lThreads[] = {
        {"Unable to start bridge upstream thread.", [this] { mBridge->mUpRoutine = nullptr; }},
        {"Unable to start bridge downstream thread.", [this] { mBridge->mDownRoutine = nullptr; }},
        {"Unable to start bridge watch thread.", [this]
         {
             KySerialBridgeOptions lOptions;
             lOptions.mReconnect = true;
             mBridge->mWatch.Begin(lOptions, nullptr);
             // A thread that runs already cannot be started.
             ASSERT_TRUE(mBridge->mWatchThread.Start([](void*) { return 0U; }, nullptr));
         }}};
    size_t lRunning = 0;
    for (const auto& [lText, lRefuse] : lThreads)
    {
        mBridge.emplace();
        Forget();
        lRefuse();
        EXPECT_THAT(mBridge->Start(), IsResult(KyResult::FAILURE, lText));
        EXPECT_EQ(TakeLog(), (Lines{{PriorityError, "KySerialLib::Bridge::Start", lText}}));
        EXPECT_TRUE(mBridge->mStopEvent.IsValid()); // left for the destructor
        mBridge->StopThreads();
        EXPECT_EQ(TakeLog().size(), lRunning++);
    }
}

TEST_F(BridgeTest, ResetsAllStatistics)
{
    mBridge->mStatistics.mBytesSentToDevice = 1;
    mBridge->mStatistics.mBytesReceivedFromDevice = 2;
    mBridge->mStatistics.mTransferErrors = 3;
    for (const uint64_t lTimes : {uint64_t{1}, uint64_t{0}})
    {
        EXPECT_EQ(mBridge->GetBytesSentToDevice(), lTimes);
        EXPECT_EQ(mBridge->GetBytesReceivedFromDevice(), 2 * lTimes);
        EXPECT_EQ(mBridge->GetTransferErrors(), 3 * lTimes);
        mBridge->ResetStatistics();
    }
}

TEST_F(BridgeTest, RecoverClosesAndOpensTheSamePort)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, KyDeviceSerialUart1), IsOK());
    const Calls lClosed = Record(mDevice, [&](auto&) { EXPECT_THAT(lPort.Close(), IsOK()); });
    const Calls lOpened = Record(mDevice, [&](auto& aDevice)
                                 { EXPECT_THAT(lPort.Open(&aDevice, KyDeviceSerialUart1), IsOK()); });
    EXPECT_THAT(lPort.Close(), IsOK());
    Open(KyDeviceSerialUart1);
    EXPECT_THAT(mBridge->Recover(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Join({lClosed, lOpened}));
    EXPECT_TRUE(mBridge->GetPort()->IsOpened());
    // The port that is opened again has the buffer that every port starts with.
    uint32_t lSize = 0;
    EXPECT_THAT(mBridge->GetPort()->GetRxBufferSize(lSize), IsOK());
    EXPECT_EQ(lSize, 16384U);
}

TEST_F(BridgeTest, RecoverSucceedsWithoutTheDeviceAndMakesItWorkWhenItIsBack)
{
    Open(KyDeviceSerialBulk1);
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_FALSE(WriteBlock(*mBridge, {0x41}));
    EXPECT_THAT(mBridge->Recover(), IsOK());
    mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_THAT(mBridge->Recover(), IsOK());
    EXPECT_TRUE(mBridge->GetPort()->IsOpened());
    EXPECT_TRUE(WriteBlock(*mBridge, {0x41}));
    EXPECT_EQ(mDevice.GetSinks().size(), 2U);
}

// Without time-out, so that nothing but the call under test ends the read.
uint32_t ReadForEver(void* aBridge)
{
    auto* const lThis = static_cast<ScriptedBridge*>(static_cast<KySerialLib::Bridge*>(aBridge));
    uint8_t lByte = 0;
    uint32_t lRead = 0;
    while (!lThis->mStop)
    {
        ++lThis->mRunning;
        static_cast<void>(lThis->ReadFromDevice(&lByte, 1, lRead, 0xFFFFFFFF));
    }
    return 0;
}

TEST_F(BridgeTest, RecoverAndStopDoNotWaitForAReadOfTheDevicePort)
{
    Open(KyDeviceSerialBulk1);
    mBridge->mUpRoutine = &ReadForEver;
    ASSERT_THAT(mBridge->Start(), IsOK());
    while (mBridge->mRunning < 2) // the other thread counts once
    {
        std::this_thread::yield();
    }
    EXPECT_THAT(mBridge->Recover(), IsOK());
    EXPECT_TRUE(mBridge->GetPort()->IsOpened());
    // The reader waits again, in the new port, and does not turn in circles.
    const int lBefore = mBridge->mRunning;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_LE(mBridge->mRunning, lBefore + 2);
    mBridge->StopThreads();
    EXPECT_FALSE(mBridge->mUpThread.IsRunning());
}

TEST_F(BridgeTest, PastTheEndOfTheRatesIsABrokenAssertionAndZero)
{
    AddSettings(mDevice, "Uart0");
    Open(KyDeviceSerialUart0);
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(), IsOK());
    ASSERT_EQ(mBridge->GetSupportedBaudRateCount(), 2U);
    EXPECT_EQ(mBridge->GetSupportedBaudRate(1), 115200U);
    EXPECT_EQ(mBridge->GetSupportedBaudRate(2), 0U);
    EXPECT_EQ(mAsserts.Take(), Broken({"aIndex < mSupportedBaudRates.size()"}));
}

} // namespace
