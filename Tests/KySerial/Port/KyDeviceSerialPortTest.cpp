#include "KySerial/KyDeviceSerialPort.h"

#include "KySerial/FeatureEngineTest.h"
#include "Support/VirtualSlot.h"

#include <map>
#include <memory>
#include <set>
#include <type_traits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cPortOpen[] = "KyDeviceSerialPort::Open";
constexpr char cNotClosed[] = "SerialPort not closed before deleting. Will close";

class KyDeviceSerialPortTest : public EngineTest
{
protected:
    void SetSize(uint32_t aSize) { EXPECT_THAT(mPort->SetRxBufferSize(aSize), IsOK()); }

    // Whether the engine has been replaced since SetSize().
    uint32_t GetSize()
    {
        uint32_t lSize = 0;
        EXPECT_THAT(mPort->GetRxBufferSize(lSize), IsOK());
        return lSize;
    }

    KyResult Open(int aPort) { return mPort->Open(&mDevice, static_cast<KyDeviceSerial>(aPort)); }

    void HideFeatures() { mDevice.SetAvailable(Slot::IsRegisterFeatureAvailable, cDownstream, false); }
    void HideRegisters() { mDevice.SetRegister(0xB8FC, 0); }

    uint32_t mCount = 0xDEAD;
    uint8_t mBytes[16] = {};
    std::unique_ptr<KyDeviceSerialPort> mPort = std::make_unique<KyDeviceSerialPort>();
};

TEST_F(KyDeviceSerialPortTest, HasAVirtualDestructorOnlyAndIsNotCopied)
{
    class Behind : public KyDeviceSerialPort
    {
    public:
        virtual void Last() {}
    };
    EXPECT_TRUE(std::has_virtual_destructor_v<KyDeviceSerialPort>);
    EXPECT_EQ(GetVirtualSlot(&Behind::Last), 2); // the destructor has two entries
    EXPECT_EQ(GetVirtualSlot(&KyDeviceSerialPort::Open), -1);
    EXPECT_EQ(sizeof(KyDeviceSerialPort), 2 * sizeof(void*));
    EXPECT_FALSE(std::is_copy_constructible_v<KyDeviceSerialPort>);
    EXPECT_FALSE(std::is_copy_assignable_v<KyDeviceSerialPort>);
}

TEST_F(KyDeviceSerialPortTest, StartsAsAClosedUart)
{
    EXPECT_FALSE(mPort->IsOpened());
    EXPECT_EQ(GetSize(), 16384U);
    EXPECT_EQ(GetReady(*mPort), 0U);
    EXPECT_THAT(mPort->FlushRxBuffer(), IsOK());
    EXPECT_THAT(mPort->Read(mBytes, 4, mCount, 0), IsResult(KyResult::TIMED_OUT, ""));
    EXPECT_EQ(mCount, 0U);
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_THAT(mPort->Write(mBytes, 4, mCount), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, "KySerialLib::SerialPortIPEngine::Write", cNull}}));
    EXPECT_THAT(mPort->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, "KySerialLib::SerialPortIPEngine::Close", cNull}}));
    mPort.reset();
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, RefusesInvalidAndUnknownPortsAndKeepsItsEngine)
{
    const char* const lText = "The specified port is invalid.";
    SetSize(77);
    EXPECT_THAT(mPort->Open(nullptr, KyDeviceSerialInvalid), IsResult(KyResult::BAD_PARAMETER, lText));
    EXPECT_THAT(Open(-1), IsResult(KyResult::BAD_PARAMETER, lText));
    EXPECT_EQ(TakeLogOf("KyDeviceSerialPort"), Lines(2, LogLine{PriorityError, cPortOpen, lText}));
    for (const int lPort : {10, -2, 0x7FFFFFFF, -0x7FFFFFFF - 1})
    {
        EXPECT_THAT(Open(lPort), IsResult(KyResult::UNSUPPORTED, ""));
        EXPECT_EQ(TakeLogOf("KyDeviceSerialPort"), (Lines{{PriorityFatal, cPortOpen, "Unknown port."}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    }
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_EQ(GetSize(), 77U);
}

TEST_F(KyDeviceSerialPortTest, OpensUartsWithTheRegisterEngine)
{
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialUart1})
    {
        SetSize(77);
        EXPECT_THAT(Open(lPort), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), Join({{"IsConnected"},
                                             cAskRegisters,
                                             cIdentify,
                                             {"RegisterEventSink", "ReadRegister(0xb838)",
                                              lPort == KyDeviceSerialUart0 ? "WriteRegister(0xb838, 0x3)"
                                                                           : "WriteRegister(0xb838, 0xc)"}}));
        EXPECT_TRUE(mPort->IsOpened());
        EXPECT_EQ(GetSize(), 16384U);
        mDevice.SendEvent(0x9000, Words({lPort == KyDeviceSerialUart0 ? 0x2U : 0x8U, 0x41}));
        EXPECT_EQ(ReadAll(*mPort), Bytes{0x41});
        EXPECT_THAT(mPort->Close(), IsOK());
        EXPECT_FALSE(mPort->IsOpened());
        mDevice.TakeCalls();
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, ReplacesItsEngineEvenWhenTheNewOneDoesNotOpen)
{
    for (const int lPort : {0, 1, 3, 9})
    {
        SetSize(77);
        EXPECT_THAT(mPort->Open(nullptr, static_cast<KyDeviceSerial>(lPort)),
                    IsResult(KyResult::NO_CONNECTION, cNull));
        EXPECT_EQ(GetSize(), 16384U);
        const char* const lFunction =
            lPort < 2 ? "KySerialLib::SerialPortIPEngine::Open" : "KySerialLib::IRegisterSerialPort::Open";
        EXPECT_EQ(TakeLog(), (Lines{{PriorityError, lFunction, cNull}}));
    }
}

TEST_F(KyDeviceSerialPortTest, OpensBulk0WithRegistersAfterBothQuestionsWhateverItsFeatures)
{
    EXPECT_THAT(Open(2), IsOK());
    const Calls lCalls = mDevice.TakeCalls();
    const Calls lQuestions = Join({cAskRegisters, AskSupport(0)});
    EXPECT_EQ(First(lCalls, lQuestions.size()), lQuestions);
    EXPECT_EQ(lCalls.back(), "WriteRegister(0xb898, 0x10c0)");
    mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({0x800})); });
    EXPECT_THAT(mPort->Write(mBytes, 3, mCount), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "WriteMemory(0x80000000, [00 00 00])"}));
    EXPECT_THAT(mPort->Close(), IsOK());
    EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
    Forget();
    HideFeatures();
    EXPECT_THAT(Open(2), IsOK());
    EXPECT_EQ(mDevice.TakeCalls().back(), "WriteRegister(0xb898, 0x10c0)");
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, OpensBulk0WithFeaturesOfADeviceWithoutRegisters)
{
    HideRegisters();
    SetSize(77);
    EXPECT_THAT(Open(2), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({cAskRegisters, AskSupport(0), ClaimFeatures(0), SwitchEvent(0, "On")}));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_EQ(GetSize(), 16384U);
    EXPECT_THAT(mPort->Write(mBytes, 4, mCount), IsOK());
    EXPECT_EQ(mDevice.GetContent(cDownstream), (Bytes{0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0})); // not SPI
}

TEST_F(KyDeviceSerialPortTest, KeepsItsEngineOpenOrClosedWhenTheDeviceHasNoBulk0)
{
    HideRegisters();
    HideFeatures();
    SetSize(77);
    EXPECT_THAT(Open(2), IsResult(KyResult::UNSUPPORTED, ""));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_FALSE(mPort->IsOpened());
    EXPECT_THAT(mPort->Open(nullptr, KyDeviceSerialBulk0), IsResult(KyResult::UNSUPPORTED, ""));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, "KySerialLib::BulkIPEngine::IsSupported", cNull},
                                {PriorityError, "KySerialLib::IRegisterSerialPort::IsSupported", cNull}}));
    EXPECT_EQ(GetSize(), 77U);
    mDevice.SetRegister(0xB8FC, 0x80000002);
    ASSERT_THAT(Open(0), IsOK());
    HideRegisters();
    EXPECT_THAT(Open(2), IsResult(KyResult::UNSUPPORTED, ""));
    EXPECT_TRUE(mPort->IsOpened());
    EXPECT_THAT(mPort->Close(), IsOK());
}

TEST_F(KyDeviceSerialPortTest, OpensOtherBulkPortsWithFeaturesWithoutAskingFirst)
{
    for (int lPort = 3; lPort <= 9; ++lPort)
    {
        SCOPED_TRACE(lPort);
        EXPECT_THAT(Open(lPort), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), Join({ClaimFeatures(lPort - 2), SwitchEvent(lPort - 2, "On")}));
        EXPECT_THAT(mPort->Close(), IsOK());
        mDevice.TakeCalls();
    }
    mDevice.SetAvailable(Slot::IsRegisterFeatureAvailable, "Bulk4DownstreamData", false);
    EXPECT_THAT(Open(6), IsResult(KyResult::UNSUPPORTED, cNotSupported));
}

TEST_F(KyDeviceSerialPortTest, PassesTheEnginesFailureOn)
{
    mDevice.Fail(Slot::ReadRegister, "0xb954", KyResult(0x5555, "rate"));
    EXPECT_THAT(Open(2), IsResult(0x5555, "rate"));
    EXPECT_TRUE(mPort->IsOpened());
    EXPECT_THAT(mPort->Close(), IsOK());
    EXPECT_FALSE(mPort->IsOpened());
    EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
}

TEST_F(KyDeviceSerialPortTest, ClosesWhenDestroyed)
{
    for (int lPort = 0; lPort <= 9; ++lPort)
    {
        SCOPED_TRACE(lPort);
        mPort = std::make_unique<KyDeviceSerialPort>();
        ASSERT_THAT(Open(lPort), IsOK());
        mPort.reset();
        EXPECT_EQ(TakeLogOf("KyDeviceSerialPort"),
                  (Lines{{PriorityWarning, "KyDeviceSerialPort::~KyDeviceSerialPort", cNotClosed}}));
        EXPECT_TRUE(IsFree(lPort));
        EXPECT_TRUE(mDevice.GetSinks().empty());
        TakeLog();
    }
    mPort = std::make_unique<KyDeviceSerialPort>();
    ASSERT_THAT(Open(0), IsOK());
    ASSERT_THAT(mPort->Close(), IsOK());
    mPort.reset();
    EXPECT_EQ(TakeLog(), Lines()); // nothing to warn about
}

TEST_F(KyDeviceSerialPortTest, LeavesASafeSinkWhenDestroyedWithoutItsDevice)
{
    for (const int lPort : {0, 2, 5})
    {
        mPort = std::make_unique<KyDeviceSerialPort>();
        ASSERT_THAT(Open(lPort), IsOK());
        mDevice.SetAnswer(Slot::IsConnected, false);
        mPort.reset();
        mDevice.SetAnswer(Slot::IsConnected, true);
        const Lines lLog = TakeLog();
        ASSERT_EQ(lLog.size(), 2U);
        EXPECT_EQ(lLog[0].mMessage, cNotClosed);
        EXPECT_EQ(lLog[1].mMessage, cDisconnected);
        EXPECT_FALSE(IsFree(lPort));
        // The adapter goes on calling: the memory checker looks.
        mDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1, 2, 3}));
        mDevice.SetInteger("EventBulk3UpstreamDataLength", 3);
        mDevice.Invalidate("EventBulk3UpstreamDataBuffer");
        TakeLog();
    }
    EXPECT_EQ(mDevice.GetSinks().size(), 3U);
}

TEST_F(KyDeviceSerialPortTest, FindsItsOwnPortInUseWhenOpenedTwice)
{
    for (const int lPort : {0, 2, 5})
    {
        mPort = std::make_unique<KyDeviceSerialPort>();
        ASSERT_THAT(Open(lPort), IsOK());
        EXPECT_THAT(Open(lPort), IsResult(KyResult::FAILURE, cInUse));
        EXPECT_FALSE(mPort->IsOpened());
        EXPECT_FALSE(IsFree(lPort));
        mDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1, 2, 3})); // to the engine that was replaced
        EXPECT_EQ(GetReady(*mPort), 0U);
        TakeLog();
    }
    EXPECT_EQ(mDevice.GetSinks().size(), 3U);
}

TEST_F(KyDeviceSerialPortTest, ForgetsTheFirstPortWhenOpenedOnASecond)
{
    ASSERT_THAT(Open(0), IsOK());
    EXPECT_THAT(Open(1), IsOK());
    EXPECT_TRUE(mPort->IsOpened());
    EXPECT_EQ(mDevice.GetSinks().size(), 2U);
    mDevice.SendEvent(0x9000, Words({0xA, 0x55}));
    EXPECT_EQ(ReadAll(*mPort), Bytes{0x55});
    EXPECT_THAT(mPort->Close(), IsOK());
    EXPECT_TRUE(IsFree(KyDeviceSerialUart1));
    EXPECT_FALSE(IsFree(KyDeviceSerialUart0));
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);
    mDevice.SendEvent(0x9000, Words({0xA, 0x55}));
}

TEST_F(KyDeviceSerialPortTest, ForwardsTheReceiveSide)
{
    ASSERT_THAT(Open(2), IsOK());
    SetSize(10);
    EXPECT_EQ(GetSize(), 10U);
    mDevice.SendEvent(0x9000, Words({0x100, 0x04030201}));
    EXPECT_EQ(GetReady(*mPort), 4U);
    EXPECT_THAT(mPort->Read(mBytes, 2, mCount, 0), IsOK());
    EXPECT_EQ(Bytes(mBytes, mBytes + mCount), (Bytes{1, 2}));
    EXPECT_THAT(mPort->FlushRxBuffer(), IsOK());
    EXPECT_EQ(GetReady(*mPort), 0U);
    EXPECT_THAT(mPort->Close(), IsOK());
    EXPECT_EQ(GetSize(), 10U);
    ASSERT_THAT(Open(2), IsOK());
    EXPECT_EQ(mPort->Read(nullptr, 1, mCount, 0).GetCode(), KyResult::BAD_PARAMETER);
    EXPECT_EQ(mPort->Write(nullptr, 1, mCount).GetCode(), KyResult::BAD_PARAMETER);
}

TEST_F(KyDeviceSerialPortTest, ReportsWhichPortsADeviceHas)
{
    for (int lPort = -3; lPort <= 12; ++lPort)
    {
        SCOPED_TRACE(lPort);
        const bool lExpected = lPort >= 0 && lPort <= 9;
        EXPECT_EQ(KyDeviceSerialPort::IsSupported(&mDevice, static_cast<KyDeviceSerial>(lPort)), lExpected);
        Calls lCalls;
        if (lExpected)
        {
            lCalls = lPort < 2 ? cAskRegisters : AskSupport(lPort - 2);
        }
        EXPECT_EQ(mDevice.TakeCalls(), lCalls);
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, AsksForTheFeaturesOfBulk0BeforeItsRegisters)
{
    HideFeatures();
    EXPECT_TRUE(KyDeviceSerialPort::IsSupported(&mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(mDevice.TakeCalls(), Join({{"IsConnected", "IsKorvoVideoInterface"},
                                         {"IsRegisterFeatureAvailable(Bulk0DownstreamData)"},
                                         cAskRegisters}));
    HideRegisters();
    EXPECT_FALSE(KyDeviceSerialPort::IsSupported(&mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, FailsTheSameWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    EXPECT_THAT(Open(-1), IsResult(KyResult::BAD_PARAMETER, "The specified port is invalid."));
    EXPECT_THAT(Open(10), IsResult(KyResult::UNSUPPORTED, ""));
    EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    ASSERT_THAT(Open(0), IsOK());
    mPort.reset();
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KyDeviceSerialPortTest, EachFailureOfOpenHasALineOfItsOwn)
{
    for (const KyDeviceSerial lSerial : {KyDeviceSerialUart0, KyDeviceSerialBulk1})
    {
        EXPECT_THAT(mPort->Open(nullptr, lSerial), IsResult(KyResult::NO_CONNECTION, cNull));
        mDevice.SetAnswer(Slot::IsConnected, false);
        EXPECT_EQ(mPort->Open(&mDevice, lSerial).GetDescription(), cDisconnected);
        mDevice.SetAnswer(Slot::IsConnected, true);
        KyDeviceSerialPort lOther;
        ASSERT_THAT(lOther.Open(&mDevice, lSerial), IsOK());
        EXPECT_EQ(mPort->Open(&mDevice, lSerial).GetDescription(), cInUse);
        EXPECT_THAT(lOther.Close(), IsOK());
        mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
        EXPECT_EQ(mPort->Open(&mDevice, lSerial).GetDescription(), cNotSupported);
        mDevice.SetAnswer(Slot::IsKorvoVideoInterface, true);
    }
    const std::vector<std::string> lAll = mLog.GetPlaces();
    const Lines lLines = mLog.Take();
    std::map<std::string, std::set<std::string>> lTexts; // by place
    ASSERT_EQ(lAll.size(), lLines.size());
    for (size_t lIndex = 0; lIndex < lAll.size(); ++lIndex)
    {
        lTexts[lAll[lIndex]].insert(lLines[lIndex].mMessage);
    }
    for (const auto& [lPlace, lMessages] : lTexts)
    {
        EXPECT_EQ(lMessages.size(), 1U) << lPlace << " has " << *lMessages.begin() << " and others";
    }
    EXPECT_GE(lTexts.size(), 4U);
}

} // namespace
