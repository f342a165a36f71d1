#include "KySerial/Bridge/BridgeCLDLLFixture.h"
#include "Support/Repeater.h"

using namespace KyTest;
using KyPlatform::NamedSemaphore;
using KySerialLib::BridgeCLDLL;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;

namespace
{

constexpr char cOpen[] = "KySerialLib::BridgeCLDLL::OpenSharedMem";
constexpr char cDown[] = "KySerialLib::BridgeCLDLL::DownThread";
constexpr char cUp[] = "KySerialLib::BridgeCLDLL::UpThread";
constexpr char cNoRates[] =
    "Could not retrieve port speeds supported by device. Offering 9600 for the time being.";

TEST_F(BridgeCLDLLTest, ANewOneIsClosed)
{
    EXPECT_STREQ(mBridge->GetName().GetAscii(), "");
    EXPECT_EQ(mBridge->GetHardCodedBaudRate(), 9600U);
    EXPECT_EQ(mBridge->GetBaudRate(), 9600U);
    mBridge->CloseSharedMem();
}

TEST_F(BridgeCLDLLTest, SupportsOnlyTheRatesWithBits)
{
    for (const uint32_t lRate : {9600U, 19200U, 38400U, 57600U, 115200U})
    {
        EXPECT_TRUE(mBridge->IsBaudRateSupported(lRate)) << lRate;
    }
    for (const uint32_t lRate : {0U, 4800U, 14400U, 28800U, 230400U, 0xFFFFFFFFU})
    {
        EXPECT_FALSE(mBridge->IsBaudRateSupported(lRate)) << lRate;
    }
}

TEST_F(BridgeCLDLLTest, ThreadsWithoutFifosEndAtOnce)
{
    KySerialLib::Bridge* const lBridge = &*mBridge;
    EXPECT_EQ(mBridge->GetUpThreadRoutine()(lBridge), 0xFFFFFFFFU);
    EXPECT_EQ(mBridge->GetDownThreadRoutine()(lBridge), 0xFFFFFFFFU);
}

TEST_F(BridgeCLDLLTest, WithoutADevicePortItGivesClientsNothingAndEnds)
{
    ASSERT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    ASSERT_THAT(mBridge->Start(), IsOK());
    SharedFifo lUp("KySerialBridgeUpFifo1", "Local\\", 1024, false);
    char lByte = 0;
    uint32_t lRead = 7;
    EXPECT_FALSE(lUp.Read(&lByte, 1, lRead, 20));
    EXPECT_EQ(lRead, 0U);
    mBridge->StopThreads();
    EXPECT_EQ(mBridge->GetBytesReceivedFromDevice(), 0U);
    EXPECT_EQ(mBridge->GetTransferErrors(), 0U);
}

TEST_F(BridgeCLDLLTest, EntersTheServerWithItsRatesAndConfiguresTheDevice)
{
    for (const char* lEntry : {"Baud19200", "Baud230400", "Baud14400"})
    {
        mDevice.SetEntry("Bulk1BaudRate", lEntry, true);
    }
    OpenPort(*mBridge);
    EXPECT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    EXPECT_EQ(
        mDevice.TakeCalls(),
        (Calls{"IsFeatureReadable(Bulk1BaudRate)", "GetEnumEntries(Bulk1BaudRate)",
               "IsFeatureWritable(Bulk1Parity)", "GetFeatureAsString(Bulk1Parity)",
               "SetFeatureFromString(Bulk1Parity, \"None\")", "IsFeatureWritable(Bulk1NumOfStopBits)",
               "GetFeatureAsString(Bulk1NumOfStopBits)", "SetFeatureFromString(Bulk1NumOfStopBits, \"One\")",
               "GetFeatureAsString(Bulk1BaudRate)", "SetFeatureFromString(Bulk1BaudRate, \"Baud9600\")"}));
    EXPECT_STREQ(mBridge->GetName().GetAscii(), "Server");
    EXPECT_EQ(Entry().mSupportedBaudRates, 0x13U); // 9600, 19200, 115200
    EXPECT_EQ(Entry().mServerActive, 1U);
    EXPECT_EQ(Entry().mServerId, 1U);
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 3U);
    EXPECT_EQ(TakeLog(), Lines());
    KyPlatform::SharedMemory lFifo;
    for (const char* lName : {"Local\\KySerialBridgeDownFifo1Memory", "Local\\KySerialBridgeUpFifo1Memory"})
    {
        EXPECT_TRUE(lFifo.Open(lName)) << lName;
        EXPECT_TRUE(lFifo.HasSizeOf(1024 + 16));
    }
}

TEST_F(BridgeCLDLLTest, OffersOnly9600WhenNothingElseIsKnown)
{
    mDevice.SetEntry("Bulk1BaudRate", "Baud9600", false);
    mDevice.SetEntry("Bulk1BaudRate", "Baud115200", false);
    mDevice.SetEntry("Bulk1BaudRate", "Baud230400", true);
    OpenPort(*mBridge);
    EXPECT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    EXPECT_EQ(Entry().mSupportedBaudRates, 0x01U);
    EXPECT_EQ(mBridge->GetHardCodedBaudRate(), 9600U);
    EXPECT_EQ(TakeLogOf("BridgeCLDLL"), (Lines{{PriorityWarning, cOpen, cNoRates}}));
}

TEST_F(BridgeCLDLLTest, ASecondServerOfTheNameIsRefusedAndLeavesTheFirst)
{
    OpenPort(*mBridge);
    ASSERT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    Forget();
    const char* const lMessage =
        "Unable to create server. A server with the same name is probably already active.";
    {
        BridgeCLDLL lSecond;
        EXPECT_THAT(lSecond.OpenSharedMem("Server"), IsResult(KyResult::FAILURE, lMessage));
        EXPECT_EQ(TakeLogOf("BridgeCLDLL"), (Lines{{PriorityError, cOpen, lMessage}}));
        EXPECT_THAT(lSecond.OpenSharedMem("Other"), IsOK());
        EXPECT_EQ(Entry("Other").mServerId, 2U);
    }
    EXPECT_EQ(Entry().mServerActive, 1U);
    mBridge.reset();
    BridgeCLDLL lThird;
    EXPECT_THAT(lThird.OpenSharedMem("Server"), IsOK());
    EXPECT_EQ(Entry().mServerId, 1U);
}

TEST_F(BridgeCLDLLTest, EndWithdrawsTheServer)
{
    OpenPort(*mBridge);
    ASSERT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    mBridge.reset();
    NamedSemaphore lSemaphore;
    EXPECT_FALSE(lSemaphore.Open("Local\\KySerialBridgeServerSemaphore1"));
    EXPECT_FALSE(lSemaphore.Open("Local\\KySerialBridgeClientSemaphore1"));
    EXPECT_EQ(mRegistry.GetEntries().at(0).mServerActive, 0U);
    KyPlatform::SharedMemory lFifo;
    EXPECT_FALSE(lFifo.Open("Local\\KySerialBridgeDownFifo1Memory"));
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "SavedBaudRate");
}

TEST_F(BridgeCLDLLTest, AFullRegistryRefuses)
{
    for (uint32_t lIndex = 0; lIndex < SharedRegistry::cEntryCount; ++lIndex)
    {
        ASSERT_TRUE(mRegistry.Register("Server" + std::to_string(lIndex)));
    }
    EXPECT_EQ(mBridge->OpenSharedMem("One more").GetCode(), KyResult::FAILURE);
}

TEST_F(BridgeCLDLLTest, HardCodedRateIsTheOnlyOneOffered)
{
    OpenPort(*mBridge);
    ASSERT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
    Forget();
    EXPECT_THAT(mBridge->SetHardCodedBaudRate(57600), IsOK());
    EXPECT_EQ(mBridge->GetHardCodedBaudRate(), 57600U);
    EXPECT_EQ(Entry().mSupportedBaudRates, 0x08U);
    EXPECT_THAT(mBridge->SetHardCodedBaudRate(28800),
                IsResult(KyResult::BAD_PARAMETER, "Invalid or unsupported baud rate."));
    EXPECT_EQ(TakeLogOf("BridgeCLDLL"),
              (Lines{{PriorityError, "KySerialLib::BridgeCLDLL::SetHardCodedBaudRate",
                      "Invalid or unsupported baud rate."}}));
    EXPECT_EQ(Entry().mSupportedBaudRates, 0x08U);
}

TEST_F(BridgeCLDLLTest, HardCodedRateWithoutAServerIsABrokenAssertion)
{
    EXPECT_THAT(mBridge->SetHardCodedBaudRate(57600), IsOK());
    EXPECT_EQ(mAsserts.Take(), Broken({"mSharedRegistryEntry != 0"}));
    EXPECT_EQ(mBridge->GetHardCodedBaudRate(), 9600U);
}

TEST_F(BridgeCLDLLTest, TheDeviceIsSetToTheClientsRateBeforeEachBlock)
{
    Start();
    Entry().mRequestedBaudRate = 0x04;
    EXPECT_TRUE(Send("a"));
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 1; }));
    Calls lCalls = mDevice.TakeCalls();
    ASSERT_GE(lCalls.size(), 3U);
    EXPECT_EQ(lCalls[0], "GetFeatureAsString(Bulk1BaudRate)");
    EXPECT_EQ(lCalls[1], "SetFeatureFromString(Bulk1BaudRate, \"Baud38400\")");
    EXPECT_EQ(mBridge->GetBaudRate(), 38400U);
    EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 38400U);
    EXPECT_TRUE(Send("b"));
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 2; }));
    lCalls = mDevice.TakeCalls();
    EXPECT_EQ(lCalls.at(0), "GetFeatureAsString(Bulk1BaudRate)");
    EXPECT_NE(lCalls.at(1), "SetFeatureFromString(Bulk1BaudRate, \"Baud38400\")"); // it has that already
}

TEST_F(BridgeCLDLLTest, ARequestThatNamesNoRateBecomesZero)
{
    Start();
    for (const uint32_t lRequest : {0U, 0x03U, 0x20U, 0xFFFFFFFFU})
    {
        mBridge->ResetStatistics();
        Entry().mRequestedBaudRate = lRequest;
        EXPECT_TRUE(Send("a"));
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 1; }));
        EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 0U) << lRequest;
        EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud0");
    }
}

TEST_F(BridgeCLDLLTest, ADeviceThatRefusesAndADamagedFifoAreCountedAndLoggedAndTheBridgeGoesOn)
{
    for (const bool lIsLogged : {true, false})
    {
        mDown = nullptr;
        mUp = nullptr;
        mBridge.emplace();
        mDevice.Fail(Slot::GetEnumEntries); // offers 9600 alone
        Start();
        EXPECT_EQ(Entry().mSupportedBaudRates, 0x01U);
        mDevice.Fail(Slot::SetRegisterData);
        EXPECT_TRUE(Send("lost"));
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetTransferErrors() == 1; }));
        ExpectLogged(
            {PriorityError, cDown, "Error writting data from the shared memory FIFO To the KyDevice."},
            lIsLogged);
        mDevice.StopFailing();
        EXPECT_TRUE(Send("kept"));
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 4; }));
        SpoilFifo("Up");
        SendFromDevice("lost");
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetTransferErrors() == 2; }));
        ExpectLogged({PriorityError, cUp, "Error writting data from KyDevice to shared memory FIFO."},
                     lIsLogged);
        mBridge.reset();
        DisableEveryPriority();
        mLog.Take();
    }
}

TEST_F(BridgeCLDLLTest, AClientThatDoesNotReadCanWrite)
{
    Start();
    FillUp();
    for (uint64_t lDone = 0; lDone < 5000; lDone += 500)
    {
        ASSERT_TRUE(Send(std::string(500, 'c')));
    }
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 5000; }));
    EXPECT_EQ(Receive(5120), std::string(5120, 'x')); // once it reads, nothing has been lost
}

// Opening a port replaces its engine: the sanitizers see whether a thread is still inside the old one.
TEST_F(BridgeCLDLLTest, RecoversWhileItRelays)
{
    mDevice.SetRecording(false);
    Start();
    std::optional<Repeater> lTraffic(
        [this]
        {
            char lPart[1024];
            uint32_t lCount = 0;
            SendFromDevice("0123456789");
            static_cast<void>(mDown->Write("0123456789", 10, lCount, 10));
            static_cast<void>(mUp->Read(lPart, sizeof lPart, lCount, 1));
        });
    for (int lIndex = 0; lIndex < 200; ++lIndex)
    {
        EXPECT_THAT(mBridge->Recover(), IsOK());
    }
    lTraffic.reset();
    const uint64_t lBefore = mBridge->GetBytesSentToDevice();
    EXPECT_TRUE(Send("down"));
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() >= lBefore + 4; }));
    SendFromDevice("up!");
    std::string lCame;
    while (!lCame.ends_with("up!"))
    {
        const std::string lMore = Receive(1); // and what the traffic has left
        ASSERT_FALSE(lMore.empty());
        lCame += lMore;
    }
}

} // namespace
