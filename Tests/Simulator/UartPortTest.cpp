#include "Simulator/CameraFixture.h"
#include "Simulator/FakePortHost.h"
#include "Simulator/RecordingPeer.h"

#include <Simulator/Ports/UartPort.h>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr auto cByte9600 = Time(1041666); // ten bits at 9600 bits per second, in nanoseconds

} // namespace

class UartPortTest : public CameraFixture
{
};

TEST_F(UartPortTest, SendsTheLowByteOfAWriteAfterAByteTime)
{
    Make();
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Uart0, lPeer);
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart0), cByte9600);
    Write(cUart0Data, 0xFFFFFF41);
    mClock->Advance(cByte9600 - 1ns);
    EXPECT_THAT(lPeer->GetBytes(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(lPeer->GetBytes(), ElementsAre(0x41));
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), ElementsAre(0x41));
    EXPECT_THAT(mCamera->GetWire(Port::Uart1), IsEmpty());
}

TEST_F(UartPortTest, RaisesTransmitDoneWhenTheByteIsOut)
{
    Make();
    Write(cInterruptEnable, 0xF);
    Write(cUart1Data, 0x55);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(cByte9600);
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(lEvents[0].mId, 0x9000);
    EXPECT_EQ(lEvents[0].mTimestamp, cByte9600);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(0x4, 0, 0, 0));
}

TEST_F(UartPortTest, RaisesNoTransmitDoneWhileItsInterruptIsOff)
{
    Make();
    Write(cInterruptEnable, cUart0Receive | cUart1TransmitDone);
    Write(cUart0Data, 0x55);
    mClock->Advance(1s);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), ElementsAre(0x55));
}

TEST_F(UartPortTest, UnlimitedLinesTakeNoTime)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Write(cInterruptEnable, cUart0TransmitDone);
    Write(cUart0Data, 0x55);
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), ElementsAre(0x55));
    EXPECT_THAT(mListener.TakeEvents(), SizeIs(1));
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart0), Time(0));
}

TEST_F(UartPortTest, BytesWrittenTooFastWaitInTheFifoAndThenAreDropped)
{
    Make();
    Write(cInterruptEnable, cUart0TransmitDone);
    for (uint32_t lByte = 0; lByte < 20; ++lByte)
    {
        Write(cUart0Data, lByte);
    }
    EXPECT_EQ(mCamera->GetCounters(Port::Uart0).mTransmitOverflow, 4U);
    mClock->Advance(1s);
    EXPECT_EQ(mCamera->GetWire(Port::Uart0), Numbers(16));
    EXPECT_THAT(mListener.TakeEvents(), SizeIs(16));
}

TEST_F(UartPortTest, RaisesReceivedBytesAWordEach)
{
    Make();
    Write(cInterruptEnable, cUart0Receive);
    const Bytes lBytes = {0xAA, 0x00, 0xFF};
    mCamera->InjectBytes(Port::Uart0, lBytes.data(), lBytes.size());
    mClock->Advance(cByte9600 * 3);
    EXPECT_THAT(TakeData(0x9000),
                ElementsAre(2, 0, 0, 0, 0xAA, 0, 0, 0, 2, 0, 0, 0, 0x00, 0, 0, 0, 2, 0, 0, 0, 0xFF, 0, 0, 0));
    EXPECT_EQ(mCamera->GetCounters(Port::Uart0).mReported, 3U);
}

TEST_F(UartPortTest, ReceivedBytesArriveAByteTimeApart)
{
    Make();
    Write(cInterruptEnable, cUart1Receive);
    const Bytes lBytes = {1, 2};
    mCamera->InjectBytes(Port::Uart1, lBytes.data(), lBytes.size());
    mClock->Advance(cByte9600 - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(0x9000), ElementsAre(8, 0, 0, 0, 1, 0, 0, 0));
    mClock->Advance(cByte9600);
    EXPECT_THAT(TakeData(0x9000), ElementsAre(8, 0, 0, 0, 2, 0, 0, 0));
}

TEST_F(UartPortTest, BytesThatArriveTogetherShareAnEvent)
{
    mConfiguration.mUnlimitedLineRate = true;
    mConfiguration.mUartReceiveFifo = 1000;
    Make();
    Write(cInterruptEnable, cUart0Receive);
    const Bytes lBytes = Numbers(100);
    mCamera->InjectBytes(Port::Uart0, lBytes.data(), lBytes.size());
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_THAT(lEvents[0].mData, SizeIs(4 + 64 * 4));
    EXPECT_THAT(lEvents[1].mData, SizeIs(4 + 36 * 4));
    EXPECT_EQ(lEvents[1].mData[4], 64);
}

TEST_F(UartPortTest, BytesWaitForTheReceiveInterrupt)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    const Bytes lBytes = {7, 8};
    mCamera->InjectBytes(Port::Uart0, lBytes.data(), lBytes.size());
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    Write(cInterruptEnable, cUart0Receive);
    EXPECT_THAT(TakeData(0x9000), ElementsAre(2, 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0));
    Write(cInterruptEnable, 0);
    Write(cInterruptEnable, cUart0Receive);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
}

TEST_F(UartPortTest, TheDataRegisterGivesWaitingBytesOneByOne)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    EXPECT_EQ(Read(cUart0Data), 0U);
    const Bytes lBytes = {7, 8};
    mCamera->InjectBytes(Port::Uart0, lBytes.data(), lBytes.size());
    EXPECT_EQ(Read(cUart0Data), 7U | cDataValid | cDataMore);
    EXPECT_EQ(Read(cUart0Data), 8U | cDataValid);
    EXPECT_EQ(Read(cUart0Data), 0U);
}

TEST_F(UartPortTest, TheReceiveFifoKeepsTheOldestBytes)
{
    mConfiguration.mUnlimitedLineRate = true;
    mConfiguration.mUartReceiveFifo = 4;
    Make();
    const Bytes lBytes = Numbers(10);
    mCamera->InjectBytes(Port::Uart1, lBytes.data(), lBytes.size());
    EXPECT_EQ(mCamera->GetCounters(Port::Uart1).mReceiveOverflow, 6U);
    EXPECT_EQ(mCamera->GetCounters(Port::Uart1).mReceived, 10U);
    Write(cInterruptEnable, cUart1Receive);
    EXPECT_THAT(TakeData(0x9000), ElementsAre(8, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0));
}

TEST_F(UartPortTest, LineSettingsDecideTheByteTime)
{
    Make();
    Set("Uart1BaudRate", "Baud115200");
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart1), Time(86805));
    Set("Uart1Parity", "Even");
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart1), Time(95486));
    Set("Uart1NumOfStopBits", "Two");
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart1), Time(104166));
    EXPECT_EQ(mCamera->GetByteTime(Port::Uart0), cByte9600);
}

TEST_F(UartPortTest, ACameraWithOneUartRefusesTheOther)
{
    mConfiguration.mUartCount = 1;
    Make();
    EXPECT_EQ(Read(cFunctionCapabilities), 0x80000001U);
    Write(cUart0Data, 1);
    EXPECT_EQ(mCamera->WriteRegister(cUart1Data, 1).mStatus, Status::InvalidAddress);
    EXPECT_EQ(mCamera->GetFeatureKind("Uart1BaudRate"), FeatureKind::None);
    EXPECT_EQ(mCamera->GetFeatureKind("Uart0BaudRate"), FeatureKind::Enumeration);
}

TEST(UartPortAloneTest, ThePeerHasAByteBeforeItsInterruptIsRaised)
{
    FakePortHost lHost;
    lHost.mEnabled = cUart0TransmitDone;
    UartPort lPort(lHost, 0, {16, 16}, true);
    lPort.WriteData(0x141);
    lPort.WriteData(0x42);
    lPort.Step();
    EXPECT_THAT(lHost.TakeLog(), ElementsAre("peer 41", "interrupt 9000 1", "peer 42", "interrupt 9000 1"));
    EXPECT_EQ(lPort.GetCounters().mInterrupts, 2U);
}

TEST(UartPortAloneTest, EachUartHasInterruptsOfItsOwn)
{
    const std::vector<std::pair<size_t, std::vector<std::string>>> lCases = {
        {0, {"interrupt 9000 1", "interrupt 9000 2 7 0 0 0"}},
        {1, {"interrupt 9000 4", "interrupt 9000 8 7 0 0 0"}}};
    for (const auto& [lIndex, lInterrupts] : lCases)
    {
        FakePortHost lHost;
        lHost.mEnabled =
            lIndex == 0 ? cUart0TransmitDone | cUart0Receive : cUart1TransmitDone | cUart1Receive;
        UartPort lPort(lHost, lIndex, {16, 16}, true);
        const uint8_t lByte = 7;
        lPort.Inject(&lByte, 1, Time(0));
        lPort.WriteData(1);
        lPort.Step();
        EXPECT_THAT(lHost.TakeLog(), ElementsAre("peer 1", lInterrupts[0], lInterrupts[1])) << lIndex;
    }
}

TEST(UartPortAloneTest, BytesThatTheDataRegisterGivesAreCountedOnce)
{
    FakePortHost lHost;
    UartPort lPort(lHost, 0, {16, 16}, true);
    const uint8_t lByte = 7;
    lPort.Inject(&lByte, 1, Time(0));
    lPort.Step();
    EXPECT_EQ(lPort.ReadData(), 7U | cDataValid);
    EXPECT_EQ(lPort.ReadData(), 0U) << "nothing is no byte of the value 0";
    EXPECT_EQ(lPort.GetCounters().mReported, 1U);
    EXPECT_EQ(lPort.GetCounters().mInterrupts, 0U);
}
