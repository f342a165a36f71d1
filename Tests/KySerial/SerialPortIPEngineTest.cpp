#include "KySerial/EngineTest.h"
#include "Support/WaitFor.h"

#include "PortMap.h"
#include "SerialPortIPEngine.h"

#include <atomic>
#include <chrono>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cIsSupported[] = "KySerialLib::SerialPortIPEngine::IsSupported";
constexpr char cOpen[] = "KySerialLib::SerialPortIPEngine::Open";
constexpr char cEnable[] = "KySerialLib::SerialPortIPEngine::EnableInterrupts";
constexpr char cWrite[] = "KySerialLib::SerialPortIPEngine::Write";
constexpr char cNull[] = "Device pointer is NULL.";
constexpr char cDisconnected[] = "The device is not currently connected.";
constexpr char cNotSupported[] = "The specified port is not supported by this device.";
constexpr char cReadEnable[] = "Failed while attempting to read interrupt enable register.";

const Calls cAsk =
    Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify, {"IsGigEVision"}, {"ReadRegister(0xb8fc)"}});

class SerialPortIPEngineTest : public EngineTest
{
protected:
    static Calls OpenCalls(const std::string& aEnable)
    {
        return Join(
            {{"IsConnected"},
             cAsk,
             cIdentify,
             {"RegisterEventSink", "ReadRegister(0xb838)", "WriteRegister(0xb838, " + aEnable + ")"}});
    }

    static Calls CloseCalls(const std::string& aEnable)
    {
        return Join({{"IsConnected", "ReadRegister(0xb838)", "WriteRegister(0xb838, " + aEnable + ")"},
                     cIdentify,
                     {"UnregisterEventSink"}});
    }

    void Open(KyDeviceSerial aPort)
    {
        ASSERT_THAT(mEngine.Open(&mDevice, aPort), IsOK());
        Forget();
    }

    // Whether another engine can have the port now.
    bool IsFree(KyDeviceSerial aPort)
    {
        const bool lFree = PortMap::GetInstance().Lock(&mDevice, aPort);
        if (lFree)
        {
            EXPECT_TRUE(PortMap::GetInstance().Unlock(&mDevice, aPort));
        }
        return lFree;
    }

    // The device confirms every byte, from inside the register write.
    void ConfirmWrites(uint32_t aStatus)
    {
        mDevice.OnCall(Slot::WriteRegister, [this, aStatus] { mDevice.SendEvent(0x9000, Words({aStatus})); });
    }

    KyResult WriteTen()
    {
        const Bytes lBytes = Count(10);
        return mEngine.Write(lBytes.data(), 10, mWritten);
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
        EXPECT_EQ(mDevice.TakeCalls(), cAsk);
        EXPECT_EQ(SerialPortIPEngine::IsSupported(&mDevice, KyDeviceSerialUart1), lCase.mUart1);
        EXPECT_EQ(mDevice.TakeCalls(), cAsk);
        EXPECT_EQ(TakeLog(), Lines());
    }
}

TEST_F(SerialPortIPEngineTest, SupportsNoOtherPort)
{
    for (const int lPort : {-1, 2, 9, 10, -2, 0x7FFFFFFF})
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(SerialPortIPEngine::IsSupported(&mDevice, static_cast<KyDeviceSerial>(lPort)));
        EXPECT_EQ(mDevice.TakeCalls(), cAsk);
        EXPECT_EQ(TakeLog(), (Lines{{PriorityFatal, cIsSupported, "The specified port is not supported"}}));
        EXPECT_EQ(mAsserts.Take().size(), Broken({"one"}).size());
    }
}

TEST_F(SerialPortIPEngineTest, OpensUart0InOrder)
{
    mDevice.SetRegister(0xB838, 0xFFFF0000);
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), OpenCalls("0xffff0003"));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_TRUE(mEngine.IsOpened());
    EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{&mEngine});
    EXPECT_FALSE(IsFree(KyDeviceSerialUart0));
    EXPECT_TRUE(IsFree(KyDeviceSerialUart1));
}

TEST_F(SerialPortIPEngineTest, ClosesUart0InOrder)
{
    Open(KyDeviceSerialUart0);
    mDevice.SetRegister(0xB838, 0xF3);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), CloseCalls("0xf0"));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_TRUE(mDevice.GetSinks().empty());
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
}

TEST_F(SerialPortIPEngineTest, OpensAndClosesUart1WithItsOwnBits)
{
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart1), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), OpenCalls("0xc"));
    mDevice.SetRegister(0xB838, 0xFFFFFFFF);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), CloseCalls("0xfffffff3"));
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
        ASSERT_THAT(mEngine.Open(&mDevice, lCase.mPort), IsOK());
        EXPECT_EQ(mDevice.GetRegister(0xB838),
                  lCase.mAtOpen | (lCase.mPort == KyDeviceSerialUart0 ? 0x3U : 0xCU));
        ASSERT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.GetRegister(0xB838), lCase.mAfterClose);
    }
}

TEST_F(SerialPortIPEngineTest, DoesNotOpenAPortThatTheDeviceHasNot)
{
    mDevice.SetRegister(0xB8FC, 0x80000001);
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart1), IsResult(KyResult::UNSUPPORTED, cNotSupported));
    EXPECT_EQ(mDevice.TakeCalls(), Join({{"IsConnected"}, cAsk}));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cOpen, cNotSupported}}));
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_TRUE(IsFree(KyDeviceSerialUart1));
}

TEST_F(SerialPortIPEngineTest, OpensBothUartsOfADeviceAtOnce)
{
    Open(KyDeviceSerialUart0);
    SerialPortIPEngine lSecond;
    EXPECT_THAT(lSecond.Open(&mDevice, KyDeviceSerialUart1), IsOK());
    EXPECT_EQ(mDevice.GetRegister(0xB838), 0xFU);
    EXPECT_THAT(lSecond.Close(), IsOK());
    EXPECT_THAT(mEngine.Close(), IsOK());
}

TEST_F(SerialPortIPEngineTest, StaysOpenWhenTheEnableRegisterCannotBeRead)
{
    mDevice.Fail(Slot::ReadRegister, "0xb838");
    EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0), IsResult(KyResult::FAILURE, cReadEnable));
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), (Lines{{PriorityError, cEnable, cReadEnable}}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 0);
    EXPECT_TRUE(mEngine.IsOpened());
    EXPECT_FALSE(IsFree(KyDeviceSerialUart0));
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);

    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, "KySerialLib::PortMap::Lock",
                                 "Could not read MAC address from device node map."},
                                {PriorityError, cEnable, cReadEnable}}));
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

TEST_F(SerialPortIPEngineTest, OpensAgainAfterClose)
{
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialUart0})
    {
        EXPECT_THAT(mEngine.Open(&mDevice, lPort), IsOK());
        EXPECT_THAT(mEngine.Close(), IsOK());
    }
    EXPECT_THAT(mEngine.Close(), IsResult(KyResult::NO_CONNECTION, cNull));
}

TEST_F(SerialPortIPEngineTest, DoesNotWriteWithoutADevice)
{
    const uint8_t lByte = 1;
    EXPECT_THAT(mEngine.Write(&lByte, 1, mWritten), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, cWrite, cNull}}));
}

TEST_F(SerialPortIPEngineTest, DoesNotWriteToADisconnectedDevice)
{
    Open(KyDeviceSerialUart0);
    mDevice.SetAnswer(Slot::IsConnected, false);
    const uint8_t lByte = 1;
    EXPECT_THAT(mEngine.Write(&lByte, 1, mWritten), IsResult(KyResult::NO_CONNECTION, cDisconnected));
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cWrite, cDisconnected}}));
}

TEST_F(SerialPortIPEngineTest, WritesNothingForNoBytes)
{
    Open(KyDeviceSerialUart0);
    EXPECT_THAT(mEngine.Write(nullptr, 0, mWritten), IsOK());
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), (Lines{{PriorityInfo, cWrite, "Writing 0 bytes of data"}}));
}

TEST_F(SerialPortIPEngineTest, RefusesANullBuffer)
{
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(mEngine.Write(nullptr, 3, mWritten).GetCode(), KyResult::BAD_PARAMETER);
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 0);
    EXPECT_EQ(mDevice.GetCallCount(Slot::ReadRegister), 0);
}

TEST_F(SerialPortIPEngineTest, WritesOneRegisterForEachByte)
{
    Open(KyDeviceSerialUart0);
    ConfirmWrites(0x1);
    const uint8_t lBytes[] = {0x41, 0x00, 0xFF};
    EXPECT_THAT(mEngine.Write(lBytes, 3, mWritten), IsOK());
    EXPECT_EQ(mWritten, 3U);
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "WriteRegister(0xb84c, 0x41)",
                                          "WriteRegister(0xb84c, 0x0)", "WriteRegister(0xb84c, 0xff)"}));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, cWrite, "Writing 3 bytes of data"}}));
}

TEST_F(SerialPortIPEngineTest, WritesToTheRegisterOfUart1)
{
    Open(KyDeviceSerialUart1);
    ConfirmWrites(0x4);
    const uint8_t lByte = 0x80;
    EXPECT_THAT(mEngine.Write(&lByte, 1, mWritten), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "WriteRegister(0xb850, 0x80)"}));
}

TEST_F(SerialPortIPEngineTest, WaitsForAnInterruptFromTheEventThread)
{
    Open(KyDeviceSerialUart0);
    std::thread lEvents;
    mDevice.OnCall(Slot::WriteRegister,
                   [&]
                   {
                       lEvents = std::thread(
                           [this]
                           {
                               std::this_thread::sleep_for(std::chrono::milliseconds(30));
                               mDevice.SendEvent(0x9000, Words({0x1}));
                           });
                   });
    const uint8_t lByte = 5;
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_THAT(mEngine.Write(&lByte, 1, mWritten), IsOK());
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(29));
    lEvents.join();
}

TEST_F(SerialPortIPEngineTest, EndsAWriteBetweenTwoBytesWithoutAFailure)
{
    Open(KyDeviceSerialUart0);
    int lBytes = 0;
    mDevice.OnCall(Slot::WriteRegister,
                   [&]
                   {
                       mEngine.EndWrites(++lBytes == 3);
                       mDevice.SendEvent(0x9000, Words({1}));
                   });
    EXPECT_THAT(WriteTen(), IsOK());
    EXPECT_EQ(mWritten, 3U);
    EXPECT_THAT(WriteTen(), IsOK()); // still in force
    EXPECT_EQ(mWritten, 0U);
    mEngine.EndWrites(false);
    EXPECT_THAT(WriteTen(), IsOK());
    EXPECT_EQ(mWritten, 10U);
    mDevice.OnCall(Slot::WriteRegister, {});
}

// The interrupt never comes; the byte counts, as the device has it.
TEST_F(SerialPortIPEngineTest, EndsAWriteThatWaitsForAnInterrupt)
{
    Open(KyDeviceSerialUart0);
    std::atomic<bool> lSent{false};
    mDevice.OnCall(Slot::WriteRegister, [&] { lSent = true; });
    std::thread lEnd(
        [&]
        {
            EXPECT_TRUE(WaitFor([&] { return lSent.load(); }));
            mEngine.EndWrites(true);
        });
    EXPECT_THAT(WriteTen(), IsOK());
    lEnd.join();
    EXPECT_EQ(mWritten, 1U);
    mDevice.OnCall(Slot::WriteRegister, {});
}

TEST_F(SerialPortIPEngineTest, StopsAtAByteThatTheDeviceRefuses)
{
    Open(KyDeviceSerialUart0);
    ConfirmWrites(0x1);
    mDevice.FailCall(Slot::WriteRegister, 3);
    EXPECT_THAT(mEngine.Write(Count(5).data(), 5, mWritten),
                IsResult(KyResult::FAILURE, "Failed to write byte 2."));
    EXPECT_EQ(mWritten, 2U);
    EXPECT_EQ(TakeLogOf("SerialPortIPEngine"), (Lines{{PriorityInfo, cWrite, "Writing 5 bytes of data"},
                                                      {PriorityError, cWrite, "Failed to write byte 2."}}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 3);
}

TEST_F(SerialPortIPEngineTest, StopsAtAByteThatTheDeviceDoesNotConfirm)
{
    Open(KyDeviceSerialUart0);
    // An interrupt from before the byte was written must not count.
    mDevice.SendEvent(0x9000, Words({0x1}));
    const auto lStart = std::chrono::steady_clock::now();
    const char* const lText = "Failed while waiting for the event from the device after writing byte 0.";
    EXPECT_THAT(mEngine.Write(Count(2).data(), 2, mWritten), IsResult(KyResult::FAILURE, lText));
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(1019));
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

TEST_F(SerialPortIPEngineTest, FailsTheSameWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    EXPECT_THAT(mEngine.Write(nullptr, 0, mWritten), IsResult(KyResult::NO_CONNECTION, cNull));
    ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0), IsOK());
    mDevice.Fail(Slot::WriteRegister);
    const uint8_t lByte = 1;
    EXPECT_THAT(mEngine.Write(&lByte, 1, mWritten), IsResult(KyResult::FAILURE, "Failed to write byte 0."));
    EXPECT_EQ(TakeLog(), Lines());
}

} // namespace
