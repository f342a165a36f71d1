#include "BulkIPEngine.h"
#include "KySerial/DeviceProtocol.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "SerialPortIPEngine.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"
#include "Support/ScriptedAdapter.h"

#include <gtest/gtest.h>

namespace
{

using KySerialLib::BulkIPEngine;
using KySerialLib::SerialPortIPEngine;
using KyTest::Bytes;
using KyTest::IsOK;
using KyTest::RecordingLogSink;
using KyTest::ScriptedAdapter;

// What a caller or a device can do, in a program that has set no handler of broken assertions. A debug build
// must get to the end of each of these tests, which also look at the result.
class ExpectationTest : public testing::Test
{
protected:
    RecordingLogSink mLog; // keeps the error output for what matters
    ScriptedAdapter mDevice;
};

TEST_F(ExpectationTest, I2CBusOpensOnBulkPorts1To7)
{
    for (int lPort = KyDeviceSerialBulk1; lPort <= KyDeviceSerialBulk7; ++lPort)
    {
        KyDeviceI2CBus lBus;
        EXPECT_THAT(lBus.Open(&mDevice, static_cast<KyDeviceSerial>(lPort)), IsOK());
        EXPECT_THAT(lBus.Close(), IsOK());
    }
}

TEST_F(ExpectationTest, UnknownPortIsUnsupported)
{
    KyDeviceSerialPort lPort;
    EXPECT_EQ(lPort.Open(&mDevice, static_cast<KyDeviceSerial>(10)).GetCode(), KyResult::UNSUPPORTED);
}

TEST_F(ExpectationTest, EventLongerThanItsFeatureBringsNothing)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, KyDeviceSerialBulk1), IsOK());
    mDevice.SetContent("EventBulk1UpstreamDataBuffer", {1, 2, 3});
    mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
    mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    uint32_t lReady = 99;
    EXPECT_THAT(lPort.GetRxBytesReady(lReady), IsOK());
    EXPECT_EQ(lReady, 0U);
    EXPECT_THAT(lPort.Close(), IsOK());
}

TEST_F(ExpectationTest, BulkPortOpensWithAnInterfaceThatIsUnknown)
{
    mDevice.SetRegister(KyDeviceProtocol::cBulk0Configuration, 7U << 12U);
    KyDeviceSerialPort lPort;
    EXPECT_THAT(lPort.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
    EXPECT_THAT(lPort.Close(), IsOK());
}

TEST_F(ExpectationTest, EventOfAnEngineThatIsClosedIsTaken)
{
    const Bytes lEvent = {0xFF, 0xFF, 0, 0, 5, 0, 0, 0};
    SerialPortIPEngine lUart;
    lUart.NotifyEvent(KyDeviceProtocol::cInterruptEvent, 0, 0, 0, lEvent.data(),
                      static_cast<uint32_t>(lEvent.size()));
    BulkIPEngine lBulk;
    lBulk.NotifyEvent(KyDeviceProtocol::cInterruptEvent, 0, 0, 0, lEvent.data(),
                      static_cast<uint32_t>(lEvent.size()));
    uint32_t lReady = 99;
    EXPECT_THAT(lBulk.GetRxBytesReady(lReady), IsOK());
    EXPECT_EQ(lReady, 4U);
}

TEST_F(ExpectationTest, I2CReadOfMoreThanTwoBytesCanCountGoesOn)
{
    KyDeviceI2CBus lBus;
    ASSERT_THAT(lBus.Open(&mDevice, KyDeviceSerialBulk1), IsOK());
    Bytes lBuffer(65536);
    uint32_t lRead = 99;
    EXPECT_EQ(lBus.BurstRead(0x50, lBuffer.data(), 65536, lRead, true).GetCode(), KyResult::TIMED_OUT);
    EXPECT_EQ(lRead, 0U);
    EXPECT_THAT(lBus.Close(), IsOK());
}

} // namespace
