#include "KySerial/Bus/BusTest.h"
#include "Support/TimeOf.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

LogLine BadPort(int aPort)
{
    return {PriorityFatal, "KySerialLib::BulkIPEngine::IsI2CSupported",
            "Port " + std::to_string(aPort) + " is invalid"};
}

template<typename Bus>
class I2CBusTest : public BusTest<Bus>
{
protected:
    using BusTest<Bus>::mDevice;
    using BusTest<Bus>::mBus;

    void NoRegisters() { mDevice.SetRegister(0xB95C, 0); }
    void NoFeatures() { mDevice.SetEntry("BulkMode", "I2C", false); }

    // Opens bulk port 0 with registers; the device confirms what it gets and answers with bytes.
    void OpenRegisters(const Bytes& aAnswer = {})
    {
        mDevice.OnCall(Slot::WriteMemory,
                       [this, aAnswer]
                       {
                           mDevice.SendEvent(0x9000, Words({0x800}));
                           if (!aAnswer.empty())
                           {
                               mDevice.SendEvent(0x9000, Together({Words({0x100}), aAnswer}));
                           }
                       });
        ASSERT_THAT(this->Open(2), IsOK());
        this->Forget();
    }

    // An operation went well, and the device got this from it.
    void ExpectSent(const KyResult& aResult, const std::string& aWritten)
    {
        EXPECT_THAT(aResult, IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "WriteMemory(" + aWritten + ")"}));
    }
};

using I2CBuses = testing::Types<DeviceI2CBus, KyDeviceI2CBus>;
TYPED_TEST_SUITE(I2CBusTest, I2CBuses, BusNames);

TYPED_TEST(I2CBusTest, OperationsBeforeOpenAreRefused)
{
    auto& lBus = *this->mBus;
    constexpr char cSender[] = "MasterTransmitter";
    constexpr char cReceiver[] = "MasterReceiverAfterFirstByte";
    for (uint8_t* const lBytes : {this->mBytes, static_cast<uint8_t*>(nullptr)})
    {
        this->ExpectNotOpen(lBus.MasterTransmitter(1, lBytes, 1, false, false), cSender);
        this->ExpectNotOpen(lBus.MasterReceiverAfterFirstByte(1, lBytes, 1, this->mGot, false, false),
                            cReceiver);
        this->ExpectNotOpen(lBus.BurstWrite(1, lBytes, 1, false), cSender);
        this->ExpectNotOpen(lBus.BurstRead(1, lBytes, 1, this->mGot, false), cReceiver);
        this->ExpectNotOpen(lBus.IndirectBurstWrite(1, 2, lBytes, 1, false), cSender);
        this->ExpectNotOpen(lBus.IndirectBurstRead(1, 2, lBytes, 1, this->mGot, false, false), cSender);
    }
}

TYPED_TEST(I2CBusTest, OpensBulk0WithRegistersAfterBothQuestionsWhateverItsFeatures)
{
    EXPECT_THAT(this->Open(2), IsOK());
    const Calls lCalls = this->mDevice.TakeCalls();
    const Calls lQuestions = Join({cAskI2CRegisters, AskProtocol(0, "I2C")});
    EXPECT_EQ(First(lCalls, lQuestions.size()), lQuestions);
    EXPECT_EQ(lCalls.back(), "WriteRegister(0xb898, 0x10c0)");
    EXPECT_EQ(this->TakeLog(), Lines());
    EXPECT_TRUE(this->mBus->IsOpened());
    EXPECT_FALSE(this->IsFree(2));
    EXPECT_THAT(this->mBus->Close(), IsOK());
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_TRUE(this->IsFree(2));
    this->NoFeatures();
    EXPECT_THAT(this->Open(2), IsOK());
    EXPECT_EQ(this->mDevice.TakeCalls().back(), "WriteRegister(0xb898, 0x10c0)");
}

TYPED_TEST(I2CBusTest, OpensBulk0WithFeaturesOfADeviceWithoutRegisters)
{
    this->NoRegisters();
    EXPECT_THAT(this->Open(2), IsOK());
    EXPECT_EQ(this->mDevice.TakeCalls(),
              Join({cAskI2CRegisters, AskProtocol(0, "I2C"), ClaimFeatures(0), SwitchEvent(0, "On")}));
    EXPECT_EQ(this->TakeLog(), Lines());
}

TYPED_TEST(I2CBusTest, OpensOtherBulkPortsWithFeatures)
{
    for (int lPort = 3; lPort <= 9; ++lPort)
    {
        SCOPED_TRACE(lPort);
        EXPECT_THAT(this->Open(lPort), IsOK());
        EXPECT_EQ(this->mDevice.TakeCalls(),
                  Join({{"IsConnected", "IsKorvoVideoInterface", "IsGigEVision", "ReadRegister(0xb8fc)"},
                        AskProtocol(lPort - 2, "I2C"),
                        ClaimFeatures(lPort - 2),
                        SwitchEvent(lPort - 2, "On")}));
        EXPECT_EQ(this->TakeLog(), Lines{BadPort(lPort)});
        EXPECT_EQ(this->mAsserts.Take(), Broken({"false"}));
        EXPECT_THAT(this->mBus->Close(), IsOK());
        this->mDevice.TakeCalls();
    }
}

TYPED_TEST(I2CBusTest, DoesNotOpenWithoutI2C)
{
    this->NoRegisters();
    this->NoFeatures();
    EXPECT_THAT(this->Open(2), IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
    EXPECT_EQ(this->mDevice.TakeCalls(), Join({cAskI2CRegisters, AskProtocol(0, "I2C")}));
    EXPECT_EQ(this->TakeLogOf("DeviceI2CBus"), (Lines{this->Failure("Open", this->cUnsupported)}));
    this->ExpectNotOpen(this->mBus->Close(), "Close"); // no engine was chosen
    EXPECT_THAT(this->Open(3), IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
    EXPECT_EQ(this->TakeLog(), (Lines{BadPort(3), this->Failure("Open", this->cUnsupported)}));
    EXPECT_EQ(this->mAsserts.Take(), Broken({"false"}));
}

TYPED_TEST(I2CBusTest, KeepsEarlierPortsWhenOpenedOnAnother)
{
    ASSERT_THAT(this->Open(3), IsOK());
    ASSERT_THAT(this->Open(4), IsOK());
    EXPECT_THAT(this->mBus->Close(), IsOK());
    EXPECT_TRUE(this->IsFree(4));
    EXPECT_FALSE(this->IsFree(3));
    EXPECT_EQ(this->mDevice.GetSinks().size(), 1U);
    this->mBus.reset();
    this->mDevice.SetInteger("EventBulk1UpstreamDataLength", 3);
    this->mDevice.Invalidate("EventBulk1UpstreamDataBuffer"); // still safe: the memory checker looks
    this->mAsserts.Take();
}

TYPED_TEST(I2CBusTest, ReportsWhetherADeviceHasABus)
{
    EXPECT_TRUE(TypeParam::IsSupported(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(this->mDevice.TakeCalls(), AskProtocol(0, "I2C"));
    this->NoFeatures();
    EXPECT_TRUE(TypeParam::IsSupported(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(this->mDevice.TakeCalls(), Join({AskProtocol(0, "I2C"), cAskI2CRegisters}));
    this->NoRegisters();
    EXPECT_FALSE(TypeParam::IsSupported(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(this->TakeLog(), Lines());
    EXPECT_FALSE(TypeParam::IsSupported(nullptr, KyDeviceSerialBulk0));
    EXPECT_FALSE(TypeParam::IsSupported(&this->mDevice, KyDeviceSerialUart0));
    EXPECT_EQ(this->mAsserts.Take(), Broken({"false"}));
}

TYPED_TEST(I2CBusTest, WritesAddressAndData)
{
    this->OpenRegisters();
    auto& lBus = *this->mBus;
    const uint8_t lData[] = {0x11, 0x22};
    this->ExpectSent(lBus.BurstWrite(0x50, lData, 2, false), "0x80001c00, [a0 11 22]");
    this->ExpectSent(lBus.BurstWrite(0x51, lData, 1, true), "0x80001e00, [a2 11]");
    this->ExpectSent(lBus.MasterTransmitter(0x7F, lData, 2, false, false), "0x80001800, [fe 11 22]");
    this->ExpectSent(lBus.MasterTransmitter(0x80, lData, 2, true, true), "0x80001e00, [00 11 22]");
    this->ExpectSent(lBus.IndirectBurstWrite(0x50, 0x10, lData, 2, true), "0x80001e00, [a0 10 11 22]");
    // The address alone.
    this->ExpectSent(lBus.MasterTransmitter(0x50, nullptr, 0, false, true), "0x80001c00, [a0]");
    this->ExpectSent(lBus.IndirectBurstWrite(0x50, 0x10, nullptr, 0, false), "0x80001c00, [a0 10]");
}

TYPED_TEST(I2CBusTest, WritesThroughFeatures)
{
    this->NoRegisters();
    ASSERT_THAT(this->Open(2), IsOK());
    this->Forget();
    const uint8_t lData[] = {0x11, 0x22, 0x33};
    EXPECT_THAT(this->mBus->BurstWrite(0x50, lData, 3, false), IsOK());
    // Stop, third flag and transfer in the upper bits of the header; no SPI message.
    EXPECT_EQ(this->mDevice.GetContent(cDownstream),
              (Bytes{0x70, 0, 0, 0, 0, 0, 0, 4, 0xA0, 0x11, 0x22, 0x33}));
    EXPECT_THAT(this->mBus->MasterTransmitter(0x50, lData, 3, true, false), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream)[0], 0xB0);
}

TYPED_TEST(I2CBusTest, RefusesNullBuffersBeforeTheBusIsTouched)
{
    this->OpenRegisters();
    this->Forget();
    auto& lBus = *this->mBus;
    this->mGot = 99;
    const auto lExpectRefusal = [this](const KyResult& aResult, const char* aFunction)
    {
        EXPECT_THAT(aResult, IsResult(KyResult::BAD_PARAMETER, cNullBuffer)) << aFunction;
        EXPECT_EQ(this->TakeLogOf("DeviceI2CBus"), (Lines{this->Failure(aFunction, cNullBuffer)}));
    };
    constexpr char cSender[] = "MasterTransmitter";
    constexpr char cReceiver[] = "MasterReceiverAfterFirstByte";
    lExpectRefusal(lBus.MasterTransmitter(1, nullptr, 2, false, true), cSender);
    lExpectRefusal(lBus.BurstWrite(1, nullptr, 2, false), cSender);
    lExpectRefusal(lBus.IndirectBurstWrite(1, 2, nullptr, 2, false), cSender);
    lExpectRefusal(lBus.MasterReceiverAfterFirstByte(1, nullptr, 2, this->mGot, false, true), cReceiver);
    lExpectRefusal(lBus.BurstRead(1, nullptr, 2, this->mGot, false), cReceiver);
    lExpectRefusal(lBus.IndirectBurstRead(1, 2, nullptr, 2, this->mGot, false, false), cReceiver);
    lExpectRefusal(lBus.IndirectBurstRead(1, 2, nullptr, 2, this->mGot, false, true), cReceiver);
    EXPECT_EQ(this->mGot, 99U);
    EXPECT_EQ(this->mDevice.TakeCalls(), Calls());
}

TYPED_TEST(I2CBusTest, RefusesSizesThatDoNotFitWithTheAddress)
{
    // One byte more than a size can say; with an offset, two.
    this->OpenRegisters();
    EXPECT_FALSE(this->mBus->BurstWrite(1, nullptr, 0xFFFFFFFF, false).IsOK());
    EXPECT_FALSE(this->mBus->IndirectBurstWrite(1, 2, nullptr, 0xFFFFFFFF, false).IsOK());
    EXPECT_FALSE(this->mBus->IndirectBurstWrite(1, 2, nullptr, 0xFFFFFFFE, false).IsOK());
    EXPECT_EQ(this->mDevice.GetCallCount(Slot::WriteMemory), 0);
}

TYPED_TEST(I2CBusTest, ReadsWhatTheDeviceAnswers)
{
    this->OpenRegisters({0x31, 0x32, 0x33, 0x34});
    auto& lBus = *this->mBus;
    this->mDevice.SendEvent(0x9000, Words({0x100, 0xEEEEEEEE})); // of earlier: gets flushed
    this->ExpectSent(lBus.BurstRead(0x50, this->mBytes, 4, this->mGot, true), "0x80001e00, [a1 04 00]");
    EXPECT_EQ(Bytes(this->mBytes, this->mBytes + this->mGot), (Bytes{0x31, 0x32, 0x33, 0x34}));
    this->ExpectSent(lBus.MasterReceiverAfterFirstByte(0x50, this->mBytes, 2, this->mGot, false, false),
                     "0x80001800, [a1 02 00]");
    EXPECT_EQ(this->mGot, 2U);
    this->ExpectSent(lBus.BurstRead(0x50, nullptr, 0, this->mGot, true), "0x80001e00, [a1 00 00]");
    EXPECT_EQ(this->mGot, 0U);
}

TYPED_TEST(I2CBusTest, AsksForLongReadsWithALittleEndianCount)
{
    this->OpenRegisters(Count(300));
    this->ExpectSent(this->mBus->BurstRead(0x50, this->mBytes, 300, this->mGot, true),
                     "0x80001e00, [a1 2c 01]");
    EXPECT_EQ(Bytes(this->mBytes, this->mBytes + this->mGot), Count(300));
}

TYPED_TEST(I2CBusTest, ReportsHowManyBytesCameBeforeTheDeviceStoppedAnswering)
{
    this->OpenRegisters({0x31, 0x32});
    const auto lRead = [this] { return this->mBus->BurstRead(0x50, this->mBytes, 4, this->mGot, false); };
    EXPECT_GE(TimeOf([&] { EXPECT_THAT(lRead(), IsResult(KyResult::TIMED_OUT, "")); }),
              std::chrono::milliseconds(49));
    EXPECT_EQ(this->mGot, 2U);
    EXPECT_EQ(this->mBytes[1], 0x32);
}

TYPED_TEST(I2CBusTest, WaitsASecondMoreOnlyForReadsOfASecond)
{
    this->OpenRegisters();
    Bytes lBytes(44445);
    struct Case
    {
        uint32_t mSize;
        bool mFast;
        int mLeast;
    };
    for (const Case& lCase :
         {Case{11112, false, 1050}, Case{44445, true, 1050}, Case{11111, false, 50}, Case{44444, true, 50}})
    {
        const auto lRead = [&]
        { return this->mBus->BurstRead(0x50, lBytes.data(), lCase.mSize, this->mGot, lCase.mFast); };
        const auto lTook = TimeOf([&] { EXPECT_THAT(lRead(), IsResult(KyResult::TIMED_OUT, "")); });
        EXPECT_GE(lTook, std::chrono::milliseconds(lCase.mLeast - 1));
        EXPECT_TRUE(lCase.mLeast > 50 || lTook < std::chrono::milliseconds(1000)); // twenty times as long
        EXPECT_EQ(this->mGot, 0U);
    }
}

TYPED_TEST(I2CBusTest, ChecksThatTheCountFitsInTwoBytes)
{
    this->OpenRegisters();
    Bytes lBytes(65537);
    EXPECT_EQ(this->mBus->BurstRead(0x50, lBytes.data(), 65537, this->mGot, true).GetCode(),
              KyResult::TIMED_OUT);
    EXPECT_EQ(this->mAsserts.Take(), Broken({"aBufferSize < 65536"}));
    EXPECT_EQ(this->mDevice.TakeCalls()[1], "WriteMemory(0x80001e00, [a1 01 00])");
}

TYPED_TEST(I2CBusTest, PassesAFailedWriteOnAndReadsNothing)
{
    this->OpenRegisters({1, 2, 3, 4});
    this->mDevice.Fail(Slot::WriteMemory, KyResult(0x3333, "bus"));
    EXPECT_THAT(this->mBus->BurstWrite(1, this->mBytes, 1, false), IsResult(0x3333, "bus"));
    EXPECT_THAT(this->mBus->BurstRead(1, this->mBytes, 1, this->mGot, false), IsResult(0x3333, "bus"));
    EXPECT_THAT(this->mBus->IndirectBurstRead(1, 2, this->mBytes, 1, this->mGot, false, true),
                IsResult(0x3333, "bus"));
    EXPECT_EQ(this->mDevice.GetCallCount(Slot::WriteMemory), 3);
    EXPECT_EQ(this->mGot, 0xDEADU); // untouched
    this->mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(this->mBus->BurstRead(1, this->mBytes, 1, this->mGot, false),
                IsResult(KyResult::NO_CONNECTION, "The device is not currently connected."));
}

TYPED_TEST(I2CBusTest, ReadsFromARegisterOfTheSlave)
{
    this->OpenRegisters({0x31, 0x32, 0x33, 0x34});
    EXPECT_THAT(this->mBus->IndirectBurstRead(0x50, 0x10, this->mBytes, 4, this->mGot, false, true), IsOK());
    EXPECT_EQ(this->mGot, 4U);
    EXPECT_EQ(this->mDevice.TakeCalls(), (Calls{"IsConnected", "WriteMemory(0x80001800, [a0 10])", // no stop
                                                "IsConnected", "WriteMemory(0x80001c00, [a1 04 00])"}));
    EXPECT_THAT(this->mBus->IndirectBurstRead(0x50, 0x10, this->mBytes, 4, this->mGot, true, false), IsOK());
    EXPECT_EQ(this->mDevice.TakeCalls(), (Calls{"IsConnected", "WriteMemory(0x80001e00, [a0 10])",
                                                "IsConnected", "WriteMemory(0x80001e00, [a1 04 00])"}));
}

TYPED_TEST(I2CBusTest, PassesAFailureOfTheSecondTransferOn)
{
    this->OpenRegisters({1});
    this->mDevice.FailCall(Slot::WriteMemory, 2, KyResult(0x3334, "second"));
    EXPECT_THAT(this->mBus->IndirectBurstRead(0x50, 0x10, this->mBytes, 4, this->mGot, false, true),
                IsResult(0x3334, "second"));
    EXPECT_EQ(this->mGot, 0xDEADU);
}

} // namespace
