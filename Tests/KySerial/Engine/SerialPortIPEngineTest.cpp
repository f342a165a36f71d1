// What is the UART engine's own; EngineContractTest and EngineTransferTest have what all engines owe.

#include "KySerial/EngineTest.h"
#include "Support/TimeOf.h"

#include "SerialPortIPEngine.h"

#include <numeric>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cEnable[] = "KySerialLib::SerialPortIPEngine::EnableInterrupts";
constexpr char cWrite[] = "KySerialLib::SerialPortIPEngine::Write";

class SerialPortIPEngineTest : public EngineTest
{
protected:
    void Open(KyDeviceSerial aPort = KyDeviceSerialUart0)
    {
        ASSERT_THAT(mEngine.Open(&mDevice, aPort), IsOK());
        Forget();
    }

    // Opens and closes a port, which calls the device in this order, while the enable register has these values.
    void ExpectOrder(KyDeviceSerial aPort, uint32_t aAtOpen, const std::string& aOpened, uint32_t aAtClose,
                     const std::string& aClosed)
    {
        mDevice.SetRegister(0xB838, aAtOpen);
        EXPECT_THAT(mEngine.Open(&mDevice, aPort), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), Join({{"IsConnected"},
                                             cAskRegisters,
                                             cIdentify,
                                             {"RegisterEventSink", "ReadRegister(0xb838)",
                                              "WriteRegister(0xb838, " + aOpened + ")"}}));
        mDevice.SetRegister(0xB838, aAtClose);
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(),
                  Join({{"IsConnected", "ReadRegister(0xb838)", "WriteRegister(0xb838, " + aClosed + ")"},
                        cIdentify,
                        {"UnregisterEventSink"}}));
        EXPECT_EQ(TakeLog(), Lines());
    }

    // The device confirms every byte, from inside the register write.
    void ConfirmWrites(uint32_t aStatus)
    {
        mDevice.OnCall(Slot::WriteRegister, [this, aStatus] { mDevice.SendEvent(0x9000, Words({aStatus})); });
    }

    KyResult Write(const Bytes& aBytes)
    {
        return mEngine.Write(aBytes.data(), static_cast<uint32_t>(aBytes.size()), mWritten);
    }

    // What one event leaves in the receive buffer.
    Bytes Receive(const std::vector<uint32_t>& aWords)
    {
        mDevice.SendEvent(0x9000, Words(aWords));
        return ReadAll(mEngine);
    }

    // Lets a write fail while the data register has a value; expects that it is read once for that.
    // \return What that leaves in the receive buffer.
    Bytes Drain(uint32_t aRegister, uint32_t aData)
    {
        mDevice.SetRegister(aRegister, aData);
        mDevice.ClearCounts();
        // The look ends when the millisecond count moves on, even before it began: try until it looked.
        for (int lTry = 0; lTry < 100 && mDevice.GetCallCount(Slot::ReadRegister) == 0; ++lTry)
        {
            mDevice.FailCall(Slot::WriteRegister, 1);
            EXPECT_EQ(Write({0}).GetCode(), KyResult::FAILURE);
        }
        EXPECT_EQ(mDevice.GetCallCount(Slot::ReadRegister), 1);
        EXPECT_EQ(mDevice.TakeCalls().back(), "ReadRegister(" + ToHex(aRegister) + ")");
        return ReadAll(mEngine);
    }

    uint32_t mWritten = 0xDEAD;
    SerialPortIPEngine mEngine;
};

TEST_F(SerialPortIPEngineTest, SupportsTheUartsThatTheDeviceCounts)
{
    struct Case
    {
        uint32_t mCapabilities;
        bool mUart0;
        bool mUart1;
    };
    for (const Case& lCase :
         {Case{0x80000001, true, false}, Case{0x80000002, true, true}, Case{0x80000007, true, true},
          Case{0x80000000, false, false}, Case{0x00000007, false, false}, Case{0xFFFFFFF8, false, false},
          Case{0xFFFFFFF9, true, false}, Case{0x7FFFFFFF, false, false}})
    {
        SCOPED_TRACE(ToHex(lCase.mCapabilities));
        mDevice.SetRegister(0xB8FC, lCase.mCapabilities);
        EXPECT_EQ(SerialPortIPEngine::IsSupported(&mDevice, KyDeviceSerialUart0), lCase.mUart0);
        EXPECT_EQ(SerialPortIPEngine::IsSupported(&mDevice, KyDeviceSerialUart1), lCase.mUart1);
        EXPECT_EQ(mDevice.TakeCalls(), Join({cAskRegisters, cAskRegisters}));
        EXPECT_EQ(TakeLog(), Lines());
    }
}

TEST_F(SerialPortIPEngineTest, OpensAndClosesEachUartInOrderWithItsOwnBits)
{
    ExpectOrder(KyDeviceSerialUart0, 0xFFFF0000, "0xffff0003", 0xF3, "0xf0");
    ExpectOrder(KyDeviceSerialUart1, 0, "0xc", 0xFFFFFFFF, "0xfffffff3");
}

TEST_F(SerialPortIPEngineTest, PutsTheEnableBitsBackToThoseOfUart0ForEitherPort)
{
    struct Case
    {
        KyDeviceSerial mPort;
        uint32_t mAtOpen;
        uint32_t mAfterClose;
    };
    // Bits 2 and 3 are UART 1's own, but what comes back there is what UART 0 had.
    for (const Case& lCase : {Case{KyDeviceSerialUart0, 0x0, 0x0}, Case{KyDeviceSerialUart0, 0x1, 0x1},
                              Case{KyDeviceSerialUart0, 0x2, 0x2}, Case{KyDeviceSerialUart0, 0x3, 0x3},
                              Case{KyDeviceSerialUart0, 0xC, 0xC}, Case{KyDeviceSerialUart1, 0x0, 0x0},
                              Case{KyDeviceSerialUart1, 0x1, 0x5}, Case{KyDeviceSerialUart1, 0x2, 0xA},
                              Case{KyDeviceSerialUart1, 0x3, 0xF}, Case{KyDeviceSerialUart1, 0xC, 0x0},
                              Case{KyDeviceSerialUart1, 0xFFFFFFFC, 0xFFFFFFF0}})
    {
        SCOPED_TRACE(testing::Message() << lCase.mPort << ' ' << ToHex(lCase.mAtOpen));
        mDevice.SetRegister(0xB838, lCase.mAtOpen);
        Open(lCase.mPort);
        EXPECT_EQ(mDevice.GetRegister(0xB838),
                  lCase.mAtOpen | (lCase.mPort == KyDeviceSerialUart0 ? 0x3U : 0xCU));
        ASSERT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.GetRegister(0xB838), lCase.mAfterClose);
    }
}

TEST_F(SerialPortIPEngineTest, OpensBothUartsOfADeviceAtOnce)
{
    Open();
    EXPECT_TRUE(IsFree(KyDeviceSerialUart1));
    SerialPortIPEngine lSecond;
    EXPECT_THAT(lSecond.Open(&mDevice, KyDeviceSerialUart1), IsOK());
    EXPECT_EQ(mDevice.GetRegister(0xB838), 0xFU);
    EXPECT_THAT(lSecond.Close(), IsOK());
    EXPECT_THAT(mEngine.Close(), IsOK());
}

TEST_F(SerialPortIPEngineTest, StaysOpenWhenTheEnableRegisterCannotBeRead)
{
    const LogLine lFailure{PriorityError, cEnable,
                           "Failed while attempting to read interrupt enable register."};
    mDevice.Fail(Slot::ReadRegister, "0xb838");
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0),
                IsResult(KyResult::FAILURE, lFailure.mMessage.c_str()));
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), Lines{lFailure});
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 0);
    EXPECT_TRUE(mEngine.IsOpened());
    EXPECT_FALSE(IsFree(KyDeviceSerialUart0));
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(TakeLog(), (Lines{cClaimed, lFailure}));
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

TEST_F(SerialPortIPEngineTest, StaysOpenWhenTheEnableRegisterCannotBeWritten)
{
    mDevice.SetRegister(0xB838, 0xAB00);
    mDevice.Fail(Slot::WriteRegister);
    const char* const lText = "Failed while attempting to write value ab03 to interrupt enable register.";
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0), IsResult(KyResult::FAILURE, lText));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cEnable, lText}}));
    EXPECT_TRUE(mEngine.IsOpened());
    mDevice.SetRegister(0xB838, 0xAB03);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityError, cEnable,
                      "Failed while attempting to write value ab00 to interrupt enable register."}}));
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
}

TEST_F(SerialPortIPEngineTest, WritesNothingForNoBytes)
{
    Open();
    EXPECT_THAT(mEngine.Write(nullptr, 0, mWritten), IsOK());
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), (Lines{{PriorityInfo, cWrite, "Writing 0 bytes of data"}}));
}

TEST_F(SerialPortIPEngineTest, WritesTheRegisterOfItsUartForEachByte)
{
    ConfirmWrites(0x5); // of either UART
    for (const auto& [lPort, lRegister] :
         {std::pair(KyDeviceSerialUart0, "0xb84c"), std::pair(KyDeviceSerialUart1, "0xb850")})
    {
        const std::string lWrite = std::string("WriteRegister(") + lRegister;
        Open(lPort);
        EXPECT_THAT(Write({0x41, 0x00, 0xFF}), IsOK());
        EXPECT_EQ(mWritten, 3U);
        EXPECT_EQ(mDevice.TakeCalls(),
                  (Calls{"IsConnected", lWrite + ", 0x41)", lWrite + ", 0x0)", lWrite + ", 0xff)"}));
        EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, cWrite, "Writing 3 bytes of data"}}));
        EXPECT_THAT(mEngine.Close(), IsOK());
    }
}

TEST_F(SerialPortIPEngineTest, StopsAtAByteThatTheDeviceRefuses)
{
    Open();
    ConfirmWrites(0x1);
    mDevice.FailCall(Slot::WriteRegister, 3);
    EXPECT_THAT(Write(Count(5)), IsResult(KyResult::FAILURE, "Failed to write byte 2."));
    EXPECT_EQ(mWritten, 2U);
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), (Lines{{PriorityInfo, cWrite, "Writing 5 bytes of data"},
                                                      {PriorityError, cWrite, "Failed to write byte 2."}}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 3);
    DisableEveryPriority();
    mDevice.Fail(Slot::WriteRegister);
    EXPECT_THAT(Write({1}), IsResult(KyResult::FAILURE, "Failed to write byte 0."));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(SerialPortIPEngineTest, StopsAtAByteThatTheDeviceDoesNotConfirm)
{
    Open();
    // An interrupt from before the byte was written must not count.
    mDevice.SendEvent(0x9000, Words({0x1}));
    const char* const lText = "Failed while waiting for the event from the device after writing byte 0.";
    EXPECT_GE(TimeOf([&] { EXPECT_THAT(Write(Count(2)), IsResult(KyResult::FAILURE, lText)); }),
              std::chrono::milliseconds(1019));
    EXPECT_TRUE(TakesLessThan(std::chrono::milliseconds(1700),
                              [&] { EXPECT_EQ(Write(Count(1)).GetCode(), KyResult::FAILURE); }));
    Forget();
    EXPECT_EQ(Write(Count(2)).GetDescription(), lText);
    EXPECT_EQ(mWritten, 1U); // the byte is in the device's hands
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityInfo, cWrite, "Writing 2 bytes of data"}, {PriorityError, cWrite, lText}}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 1);
}

// Each byte is written once, whatever its interrupts do.
TEST_F(SerialPortIPEngineTest, AnInterruptThatComesTwiceDoesNotConfirmTheNextByte)
{
    Open(KyDeviceSerialUart0);
    int lBytes = 0;
    mDevice.OnCall(Slot::WriteRegister,
                   [&]
                   {
                       for (int lTimes = ++lBytes == 3 ? 0 : 2; lTimes > 0; --lTimes)
                       {
                           mDevice.SendEvent(0x9000, Words({0x1}));
                       }
                   });
    const char* const lText = "Failed while waiting for the event from the device after writing byte 2.";
    const uint8_t lData[] = {0x61, 0x62, 0x63, 0x64};
    EXPECT_THAT(mEngine.Write(lData, 4, mWritten), IsResult(KyResult::FAILURE, lText));
    EXPECT_EQ(mWritten, 3U);
    const Calls lCalls = mDevice.TakeCalls();
    ASSERT_GE(lCalls.size(), 4U);
    EXPECT_EQ(Calls(lCalls.begin(), lCalls.begin() + 4),
              (Calls{"IsConnected", "WriteRegister(0xb84c, 0x61)", "WriteRegister(0xb84c, 0x62)",
                     "WriteRegister(0xb84c, 0x63)"}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 3);
    mDevice.OnCall(Slot::WriteRegister, {});
}

TEST_F(SerialPortIPEngineTest, TakesOnlyEventsOfItsUart)
{
    Open(KyDeviceSerialUart1);
    EXPECT_EQ(Receive({0x2, 0x41, 0x42}), Bytes());
    EXPECT_EQ(Receive({0x8, 0x41, 0x42}), (Bytes{0x41, 0x42}));
    EXPECT_THAT(mEngine.Close(), IsOK());
    Open();
    EXPECT_EQ(Receive({0x8, 0x41, 0x42}), Bytes());
    EXPECT_EQ(Receive({0xFFFFFFFD, 0x41}), Bytes());
    EXPECT_EQ(Receive({0xF, 0x41}), Bytes{0x41});
}

TEST_F(SerialPortIPEngineTest, TakesTheLowByteOfEachWordOfALongEvent)
{
    Open();
    EXPECT_THAT(mEngine.SetRxBufferSize(1000), IsOK());
    std::vector<uint32_t> lWords(701);
    lWords.front() = 0x2;
    std::iota(lWords.begin() + 1, lWords.end(), 0U);
    EXPECT_EQ(Receive(lWords), Count(700));
}

TEST_F(SerialPortIPEngineTest, CollectsOneValidByteThatTheDeviceStillHoldsAfterAFailedWrite)
{
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialUart1})
    {
        Open(lPort);
        const uint32_t lRegister = lPort == KyDeviceSerialUart0 ? 0xB84C : 0xB850;
        EXPECT_EQ(Drain(lRegister, 0x00010042), Bytes{0x42});
        EXPECT_EQ(Drain(lRegister, 0x00810043), Bytes{0x43}); // although more waits
        EXPECT_EQ(Drain(lRegister, 0xFF7EFFFF), Bytes());     // not valid
        EXPECT_EQ(Drain(lRegister, 0xFFFEFFFF), Bytes());
        mDevice.Fail(Slot::ReadRegister);
        EXPECT_EQ(Drain(lRegister, 0x00810043), Bytes());
        mDevice.StopFailing();
        EXPECT_THAT(mEngine.Close(), IsOK());
    }
}

} // namespace
