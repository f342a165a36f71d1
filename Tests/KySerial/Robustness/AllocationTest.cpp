#include "Support/AllocationCounter.h"
#include "Support/ForEachNth.h"

#include "BridgeCLDLL.h"
#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "KySerial/KySerialBridge.h"
#include "Support/PrivateSession.h"
#include "Support/QuietSink.h"
#include "Support/WaitFor.h"
#include "clserzmo/clser.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <functional>
#include <optional>
#include <set>
#include <utility>

using namespace KyTest;

namespace
{

constexpr char cOutOfMemory[] = "Out of memory.";
constexpr char cNoThis[] = "mThis != NULL";
constexpr char cUpstreamBuffer[] = "EventBulk3UpstreamDataBuffer";

class AllocationTest : public testing::Test
{
protected:
    void SetUp() override
    {
        mDevice.SetRecording(false);
        const auto lConfirm = [this] { mDevice.SendEvent(0x9000, mConfirmation); };
        mDevice.OnCall(Slot::WriteRegister, lConfirm);
        mDevice.OnCall(Slot::WriteMemory, lConfirm);
        mDevice.SetContent(cUpstreamBuffer, Count(100));
        mDevice.SetInteger("EventBulk3UpstreamDataLength", 100);
    }

    // What an operation gave back; adds to the failures for want of memory.
    void Note(const KyResult& aResult)
    {
        const AllocationPause lPause;
        if (aResult.GetDescription() == KyString(cOutOfMemory))
        {
            EXPECT_EQ(aResult.GetCode(), KyResult::FAILURE);
            ++mFailures;
        }
    }

    // Receives aTimes events of 100 bytes, and returns how many allocations that took.
    int CountReceiving(KyDeviceSerialPort& aPort, int aTimes)
    {
        const Bytes lUart = Words(std::vector<uint32_t>(101, 0x0A));
        Bytes lBulk(104, 0x01);
        const KyString lName(cUpstreamBuffer);
        uint8_t lBytes[64];
        uint32_t lGot = 0;
        uint32_t lTotal = 0;
        const AllocationCounter lCounter;
        for (int lIndex = 0; lIndex < aTimes; ++lIndex)
        {
            for (IKyDeviceEventSink* lSink : mSinks)
            {
                lSink->NotifyEvent(0x9000, 0, 0, 0, lUart.data(), static_cast<uint32_t>(lUart.size()));
                lSink->NotifyEvent(0x9000, 0, 0, 0, lBulk.data(), static_cast<uint32_t>(lBulk.size()));
                lSink->NotifyFeatureInvalidated(&lName);
            }
            while (aPort.Read(lBytes, sizeof lBytes, lGot, 0).IsOK())
            {
                lTotal += lGot;
            }
        }
        const int lCount = AllocationCounter::GetCount();
        const AllocationPause lPause;
        EXPECT_EQ(lTotal, static_cast<uint32_t>(aTimes) * 100);
        return lCount;
    }

    // A port or bus that found no memory for its engine.
    template<typename Product>
    void MakeWithoutMemory(std::optional<Product>& aProduct)
    {
        aProduct.emplace(); // makes what they all share
        {
            const AllocationCounter lCounter(1);
            aProduct.emplace();
        }
        EXPECT_EQ(mAsserts.Take(), Broken({cNoThis}));
    }

    // The port's claim has been released.
    void ExpectFree(KyDeviceSerial aPort)
    {
        KyDeviceSerialPort lPort;
        EXPECT_THAT(lPort.Open(&mDevice, aPort), IsOK());
        EXPECT_THAT(lPort.Close(), IsOK());
        EXPECT_TRUE(mDevice.GetSinks().empty());
    }

    const Bytes mConfirmation = Words({0x1805});
    QuietSink mSink;
    AssertRecorder mAsserts;
    ScriptedAdapter mDevice;
    std::vector<IKyDeviceEventSink*> mSinks;
    int mFailures = 0;
};

TEST_F(AllocationTest, ReceivingAllocatesNothingOnceTheBufferFits)
{
    for (const KyDeviceSerial lNumber :
         {KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0, KyDeviceSerialBulk3})
    {
        SCOPED_TRACE(lNumber);
        KyDeviceSerialPort lPort;
        ASSERT_THAT(lPort.Open(&mDevice, lNumber), IsOK());
        mSinks = mDevice.GetSinks();
        // A port that is driven through features may make the buffer at its first event.
        const int lFirst = lNumber == KyDeviceSerialBulk3 ? CountReceiving(lPort, 1) : 0;
        EXPECT_LE(lFirst, 1);
        EXPECT_EQ(CountReceiving(lPort, 300), 0);
        EXPECT_THAT(lPort.Close(), IsOK());
    }
}

TEST_F(AllocationTest, KeepsItsBufferWhenThereIsNoMemoryForAnother)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.SetRxBufferSize(100), IsOK());
    ASSERT_THAT(lPort.Open(&mDevice, KyDeviceSerialUart0), IsOK());
    ASSERT_THAT(lPort.SetRxBufferSize(100), IsOK());
    mDevice.SendEvent(0x9000, Words({0x2, 1, 2, 3}));
    std::optional<KyResult> lResult;
    {
        const AllocationCounter lCounter(1);
        lResult = lPort.SetRxBufferSize(5000);
    }
    EXPECT_THAT(*lResult, IsResult(KyResult::FAILURE, cOutOfMemory));
    uint32_t lSize = 0;
    EXPECT_THAT(lPort.GetRxBufferSize(lSize), IsOK());
    EXPECT_EQ(lSize, 100U);
    EXPECT_EQ(ReadAll(lPort), (Bytes{1, 2, 3}));
    EXPECT_EQ(mSink.GetMemoryLines(), 0);
    EXPECT_THAT(lPort.Close(), IsOK());
}

TEST_F(AllocationTest, PortsSurviveEachFailedAllocation)
{
    for (const KyDeviceSerial lNumber : {KyDeviceSerialUart1, KyDeviceSerialBulk0, KyDeviceSerialBulk3})
    {
        const int lRefused = ForEachNth(
            [&](int aNth, int& aCount)
            {
                SCOPED_TRACE(testing::Message() << lNumber << ' ' << aNth);
                std::optional<KyDeviceSerialPort> lPort;
                const Bytes lBytes = Count(3);
                uint32_t lWritten = 0;
                {
                    const AllocationCounter lCounter(aNth);
                    lPort.emplace();
                    Note(lPort->Open(&mDevice, lNumber));
                    Note(lPort->SetRxBufferSize(50));
                    Note(lPort->Write(lBytes.data(), 3, lWritten));
                    Note(lPort->FlushRxBuffer());
                    Note(lPort->Close());
                    static_cast<void>(KyDeviceSerialPort::IsSupported(&mDevice, lNumber)); // must not throw
                    aCount = AllocationCounter::GetCount();
                }
                EXPECT_TRUE(!lPort->IsOpened() || lPort->Close().IsOK());
                ExpectFree(lNumber);
            });
        EXPECT_GT(lRefused, 5);
    }
    EXPECT_GT(mFailures, 3);
    EXPECT_EQ(mSink.GetMemoryLines(), 0);
}

TEST_F(AllocationTest, AnEventWithoutMemoryForItsBytesIsLostAndTheNextIsNot)
{
    if (!AllocationCounter::CountsCalloc())
    {
        GTEST_SKIP() << "calls of calloc() cannot be counted on this system";
    }
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, KyDeviceSerialBulk3), IsOK());
    const KyString lName(cUpstreamBuffer);
    IKyDeviceEventSink* const lSink = mDevice.GetSinks().at(0);
    {
        const AllocationCounter lCounter(1);
        lSink->NotifyFeatureInvalidated(&lName);
    }
    EXPECT_EQ(ReadAll(lPort), Bytes());
    mDevice.Invalidate(cUpstreamBuffer);
    EXPECT_EQ(ReadAll(lPort), Count(100));
    EXPECT_THAT(lPort.Close(), IsOK());
}

TEST_F(AllocationTest, APortWithoutMemoryForItselfSaysSoOfEveryCallButOpen)
{
    std::optional<KyDeviceSerialPort> lPort;
    MakeWithoutMemory(lPort);
    uint8_t lByte = 0;
    uint32_t lCounts[] = {7, 7, 7, 7};
    EXPECT_FALSE(lPort->IsOpened());
    const KyResult lResults[] = {lPort->Close(),
                                 lPort->Write(&lByte, 1, lCounts[0]),
                                 lPort->Read(&lByte, 1, lCounts[1], 0),
                                 lPort->FlushRxBuffer(),
                                 lPort->GetRxBytesReady(lCounts[2]),
                                 lPort->GetRxBufferSize(lCounts[3]),
                                 lPort->SetRxBufferSize(10)};
    EXPECT_THAT(lResults, testing::Each(IsResult(KyResult::FAILURE, cOutOfMemory)));
    EXPECT_THAT(lCounts, testing::Each(0U));
    EXPECT_EQ(mAsserts.Take(), Broken(std::vector<std::string>(8, cNoThis)));
    EXPECT_THAT(lPort->Open(&mDevice, KyDeviceSerialUart0), IsOK()); // makes what was missing
    EXPECT_THAT(lPort->Close(), IsOK());
    MakeWithoutMemory(lPort);
    lPort.reset();
    EXPECT_EQ(mAsserts.Take(), Broken({cNoThis}));
}

TEST_F(AllocationTest, ABusWithoutMemoryForItselfSaysSoOfEveryCallAndSoDoesOneThatSharesIt)
{
    std::optional<KyDeviceI2CBus> lI2C;
    MakeWithoutMemory(lI2C);
    KyDeviceI2CBus lSharing;
    lSharing = *lI2C;
    std::optional<KyDeviceSPIBus> lSPI;
    MakeWithoutMemory(lSPI);
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    EXPECT_FALSE(lI2C->IsOpened());
    EXPECT_FALSE(lSPI->IsOpened());
    const KyResult lResults[] = {lSharing.Open(&mDevice, KyDeviceSerialBulk3),
                                 lSharing.Close(),
                                 lI2C->MasterTransmitter(1, &lByte, 1, true, true),
                                 lI2C->MasterReceiverAfterFirstByte(1, &lByte, 1, lCount, true, true),
                                 lI2C->BurstWrite(1, &lByte, 1, true),
                                 lI2C->BurstRead(1, &lByte, 1, lCount, true),
                                 lI2C->IndirectBurstWrite(1, 2, &lByte, 1, true),
                                 lI2C->IndirectBurstRead(1, 2, &lByte, 1, lCount, true, true),
                                 lSPI->Open(&mDevice, KyDeviceSerialBulk3),
                                 lSPI->Close(),
                                 lSPI->BurstRead(&lByte, 1, lCount, 0),
                                 lSPI->BurstWriteAndRead(&lByte, 1, 1, true, true)};
    EXPECT_THAT(lResults, testing::Each(IsResult(KyResult::FAILURE, cOutOfMemory)));
    EXPECT_EQ(mAsserts.Take(), Broken(std::vector<std::string>(14, cNoThis)));
}

TEST_F(AllocationTest, WithoutMemoryToNoteThatADeviceHasNoRegistersItHasNoI2C)
{
    mDevice.SetAvailable(Slot::IsRegisterFeatureAvailable, "Bulk0DownstreamData", false);
    mDevice.Fail(Slot::ReadRegister);
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            mDevice.SetInteger("GevMACAddress", 0x0A1C0000 + aNth); // one that has not been noted yet
            bool lIsSupported = true;
            {
                const AllocationCounter lCounter(aNth);
                lIsSupported = KyDeviceI2CBus::IsSupported(&mDevice, KyDeviceSerialBulk0);
                aCount = AllocationCounter::GetCount();
            }
            EXPECT_FALSE(lIsSupported) << aNth;
        });
    EXPECT_GT(lRefused, 2);
}

// The engine that is replaced while it is open is never freed: the device may still call it.
TEST_F(AllocationTest, AnOpenEngineSurvivesItsReplacementWhateverAllocationFailed)
{
    // A leak checker, at the process's very end, finds them here.
    static auto* const cKept = new std::vector<std::vector<IKyDeviceEventSink*>>;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            mDevice.SetInteger("GevMACAddress", 0x0A11C000 + aNth);
            std::optional<KyDeviceSerialPort> lPort(std::in_place);
            ASSERT_THAT(lPort->Open(&mDevice, KyDeviceSerialUart0), IsOK());
            const std::vector<IKyDeviceEventSink*> lSinks = mDevice.GetSinks();
            {
                const AllocationCounter lCounter(aNth);
                EXPECT_EQ(lPort->Open(&mDevice, KyDeviceSerialUart0).GetCode(),
                          KyResult::FAILURE); // it is in use
                aCount = AllocationCounter::GetCount();
            }
            lPort.reset(); // closes what was not replaced
            for (IKyDeviceEventSink* lSink : mDevice.GetSinks())
            {
                EXPECT_EQ(lSink, lSinks.back());
                lSink->NotifyEvent(0x9000, 0, 0, 0, mConfirmation.data(), 4);
                EXPECT_THAT(mDevice.UnregisterEventSink(lSink), IsOK());
            }
            cKept->push_back(lSinks);
        });
    EXPECT_GT(lRefused, 3);
}

TEST_F(AllocationTest, ABridgeToAHostPortThatDoesNotStartLetsGoWhateverAllocationFailed)
{
    const KyString lNoPort("no COM port");
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            KySerialBridge lBridge;
            {
                const AllocationCounter lCounter(aNth);
                const KyResult lResult = lBridge.Start(lNoPort, {}, &mDevice, KyDeviceSerialBulk3);
                aCount = AllocationCounter::GetCount();
                Note(lResult);
                const AllocationPause lPause;
                EXPECT_FALSE(lResult.IsOK());
            }
            EXPECT_EQ(lBridge.GetDevicePort(), KyDeviceSerialInvalid);
            EXPECT_TRUE(mDevice.GetSinks().empty());
            ExpectFree(KyDeviceSerialBulk3);
        });
    EXPECT_GT(lRefused, 10);
    EXPECT_GT(mFailures, 3);
}

TEST_F(AllocationTest, AnI2CBusThatIsOpenedAgainFreesItsFormerEngineOnBulk0Only)
{
    struct Case
    {
        KyDeviceSerial mPort;
        bool mRegisters;
        int mLeast; // allocations that remain after ten openings
    };
    for (const Case& lCase : {Case{KyDeviceSerialBulk0, true, 0}, Case{KyDeviceSerialBulk0, false, 0},
                              Case{KyDeviceSerialBulk3, false, 10}})
    {
        SCOPED_TRACE(testing::Message() << lCase.mPort << ' ' << lCase.mRegisters);
        mDevice.SetRegister(0xB95C, lCase.mRegisters ? 3 : 0);
        KyDeviceI2CBus lBus;
        int lClosed = 0;
        const auto lOpen = [&]
        { lClosed += lBus.Open(&mDevice, lCase.mPort).IsOK() && lBus.Close().IsOK() ? 1 : 0; };
        lOpen(); // makes what stays
        lOpen();
        int lLeft = -1;
        {
            const AllocationCounter lCounter;
            for (int lIndex = 0; lIndex < 10; ++lIndex)
            {
                lOpen();
            }
            lLeft = AllocationCounter::GetLeft();
        }
        EXPECT_EQ(lClosed, 12);
        EXPECT_GE(lLeft, lCase.mLeast);
        EXPECT_TRUE(lCase.mLeast > 0 || lLeft == 0) << lLeft;
        mAsserts.Take(); // of what bulk 3 is not
    }
}

TEST_F(AllocationTest, BusesSurviveEachFailedAllocation)
{
    uint8_t lByte = 0;
    uint32_t lGot = 0;
    const auto lUseI2C = [&]
    {
        KyDeviceI2CBus lBus;
        Note(lBus.Open(&mDevice, KyDeviceSerialBulk0));
        Note(lBus.BurstWrite(1, &lByte, 1, true));
        Note(lBus.BurstRead(1, &lByte, 0, lGot, true));
        Note(lBus.IndirectBurstWrite(1, 2, &lByte, 1, true));
        Note(lBus.IndirectBurstRead(1, 2, &lByte, 0, lGot, true, true));
        static_cast<void>(lBus.IsOpened());
        static_cast<void>(KyDeviceI2CBus::IsSupported(&mDevice, KyDeviceSerialBulk0)); // must not throw
        Note(lBus.Close());
    };
    const auto lUseSPI = [&]
    {
        KyDeviceSPIBus lBus;
        Note(lBus.Open(&mDevice, KyDeviceSerialBulk3));
        Note(lBus.BurstWriteAndRead(&lByte, 1, 1, true, true));
        Note(lBus.BurstRead(&lByte, 1, lGot, 0));
        static_cast<void>(KyDeviceSPIBus::IsSupported(&mDevice, KyDeviceSerialBulk3)); // must not throw
        Note(lBus.Close());
    };
    for (const std::function<void()>& lUse : {std::function<void()>(lUseI2C), std::function<void()>(lUseSPI)})
    {
        mFailures = 0;
        const int lRefused = ForEachNth(
            [&](int aNth, int& aCount)
            {
                const AllocationCounter lCounter(aNth);
                lUse();
                aCount = AllocationCounter::GetCount();
            });
        EXPECT_GT(lRefused, 10);
        EXPECT_GT(mFailures, 3);
    }
    EXPECT_EQ(mSink.GetMemoryLines(), 0);
}

// In four parts, which may run at the same time: each stop waits for a thread to look up.
class BridgeAllocationTest : public AllocationTest, public testing::WithParamInterface<int>
{
protected:
    // What a start gives when an allocation failed in it, and what it has logged of memory: the reason, in one
    // line, when the result names another one.
    void CheckStart(const KyResult& aResult)
    {
        const AllocationPause lPause;
        const std::string lText = aResult.GetDescription().GetAscii();
        const int lLines = mSink.GetMemoryLines();
        const std::string lLine = mSink.TakeMemoryLine();
        if (mNoServer.count(lText) > 0)
        {
            EXPECT_EQ(aResult.GetCode(), KyResult::FAILURE) << lText;
            EXPECT_EQ(lLines, 1) << lText;
            EXPECT_THAT(lLine,
                        testing::MatchesRegex("The registry of servers cannot be used: .*: there is no "
                                              "memory: Cannot allocate memory\\."));
        }
        else
        {
            EXPECT_EQ(mOtherResults.count({aResult.GetCode(), lText}), 1U) << lText;
            EXPECT_EQ(lLines, 0) << lText << ": " << lLine;
        }
    }

    // Objects of the system could not be made. Where they need no memory of this process, none of these comes.
    const std::set<std::string> mNoServer = {
        "Unable to create server. A server with the same name is probably already active.",
        "Could not create downstream FIFO.", "Could not create upstream FIFO."};
    const std::set<std::pair<uint32_t, std::string>> mOtherResults = {
        {KyResult::OK, ""},
        {KyResult::FAILURE, ""}, // whose text found no memory
        {KyResult::FAILURE, cOutOfMemory},
        {KyResult::UNSUPPORTED, "Requested device port not supported."},
        {KyResult::UNSUPPORTED, "The specified port is not supported by this device."},
        {KyResult::FAILURE, "Unable to start bridge upstream thread."},
        {KyResult::FAILURE, "Unable to start bridge downstream thread."}};
};

TEST_P(BridgeAllocationTest, NameAndPortAreFreeWhateverAllocationFailed)
{
    const PrivateSession lSession;
    int lServed = 0;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            const KyString lName("Server");
            {
                const AllocationCounter lCounter(aNth);
                KySerialBridge lBridge;
                const KyResult lResult = lBridge.Start(lName, &mDevice, KyDeviceSerialBulk3);
                lServed += lResult.IsOK() ? 1 : 0;
                Note(lResult);
                CheckStart(lResult);
                Note(lBridge.SetHardCodedBaudRate(19200));
                Note(lBridge.Recover());
                static_cast<void>(lBridge.GetSupportedBaudRateCount()); // must not throw
                Note(lBridge.Stop());
                aCount = AllocationCounter::GetCount();
            }
            EXPECT_TRUE(mDevice.GetSinks().empty());
            ExpectFree(KyDeviceSerialBulk3);
        },
        GetParam(), 4);
    EXPECT_GT(lRefused, 20);
    EXPECT_GT(lServed, 1);
    EXPECT_GT(mFailures, 3);
    EXPECT_EQ(mSink.GetMemoryLines(), 0); // of what comes after a start
    KySerialBridge lBridge;
    EXPECT_THAT(lBridge.Start("Server", &mDevice, KyDeviceSerialBulk3), IsOK());
    EXPECT_THAT(lBridge.Stop(), IsOK());
}

TEST_F(AllocationTest, ABridgeToClientsRelaysOnWhateverAllocationOfItsThreadsFailed)
{
    const PrivateSession lSession;
    AddBulkPort(mDevice);
    const KySerialLib::SharedRegistry lHolder(true);
    KySerialLib::SharedFifo lDown("KySerialBridgeDownFifo1", "Local\\", 1024, true);
    KySerialLib::SharedFifo lUp("KySerialBridgeUpFifo1", "Local\\", 1024, true);
    uint8_t lBytes[4] = {};
    uint32_t lMoved = 0;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            KySerialBridge lBridge;
            ASSERT_THAT(lBridge.Start("Server", &mDevice, KyDeviceSerialBulk1), IsOK());
            const OtherThreadsAllocations lCounter(aNth);
            SendUpstream(mDevice, "up");
            EXPECT_TRUE(lUp.Read(lBytes, 4, lMoved, 60000));
            const int lErrors = mSink.GetErrors();
            mDevice.SetAnswer(Slot::IsConnected, false);
            EXPECT_TRUE(lDown.Write(lBytes, 4, lMoved, 0));
            EXPECT_TRUE(WaitFor([&] { return mSink.GetErrors() > lErrors; }));
            mDevice.SetAnswer(Slot::IsConnected, true);
            aCount = OtherThreadsAllocations::GetCount();
            EXPECT_TRUE(lDown.Write(lBytes, 4, lMoved, 0));
            EXPECT_TRUE(WaitFor([&] { return lBridge.GetBytesSentToDevice() == 4; }));
            EXPECT_THAT(lBridge.Stop(), IsOK());
        });
    EXPECT_GT(lRefused, 2); // what is refused makes texts
}

INSTANTIATE_TEST_SUITE_P(Parts, BridgeAllocationTest, testing::Range(1, 5));

// A client of the serial library's interface gets a code, whatever allocation failed, and can go on.
TEST(ClientAllocationTest, ClientWithoutMemoryGetsTheCodeForThat)
{
    const PrivateSession lSession;
    RecordingLogSink lSink(PriorityFatal);
    ScriptedAdapter lDevice;
    lDevice.SetRecording(false);
    AddSettings(lDevice, "Bulk1");
    KySerialLib::BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&lDevice, KyDeviceSerialBulk1), IsOK());
    ASSERT_THAT(lBridge.OpenSharedMem("Server"), IsOK());
    KySerialLib::SharedRegistry lRegistry(true);
    int lRefused = 0;
    const auto lUse = [&](int aNth, int& aCount)
    {
        // A client without memory to look for a server takes it for gone.
        ASSERT_TRUE(lRegistry.SetServerActive("Server", true));
        CLUINT32 lCount = 0;
        hSerRef lPort = nullptr;
        char lByte = 'x';
        bool lIsRefused = false;
        {
            const AllocationCounter lNoMemory(aNth);
            const auto lNote = [&](CLINT32 aCode)
            { lIsRefused = lIsRefused || aCode == CL_ERR_OUT_OF_MEMORY; };
            lNote(clGetNumSerialPorts(&lCount));
            lNote(clSerialInit(0, &lPort));
            lCount = 1;
            lNote(clSerialWrite(lPort, &lByte, &lCount, 0));
            aCount = AllocationCounter::GetCount();
        }
        clSerialClose(lPort);
        lRefused += lIsRefused ? 1 : 0;
        EXPECT_TRUE(aCount >= aNth || lCount == 1);
    };
    ForEachNth(lUse, 1, 7);
    EXPECT_GT(lRefused, 2);
}

} // namespace
