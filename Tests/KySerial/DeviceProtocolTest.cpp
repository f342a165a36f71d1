#include "KySerial/DeviceProtocol.h"

#include <gtest/gtest.h>

// Every address, bit and name as the devices have them, written a second time by hand. The engines and the
// simulated camera share one header, so that a wrong value there would agree with itself everywhere else.

namespace
{

using namespace KyDeviceProtocol;

TEST(DeviceProtocolTest, RegistersHaveTheirAddresses)
{
    EXPECT_EQ(cInterruptEnable, 0xB838U);
    EXPECT_EQ(cUart0Data, 0xB84CU);
    EXPECT_EQ(cUart1Data, 0xB850U);
    EXPECT_EQ(cBulk0Configuration, 0xB898U);
    EXPECT_EQ(cFunctionCapabilities, 0xB8FCU);
    EXPECT_EQ(cBulk0Rate, 0xB954U);
    EXPECT_EQ(cBulkCapabilities, 0xB95CU);
}

TEST(DeviceProtocolTest, EventsAndInterruptsHaveTheirNumbers)
{
    EXPECT_EQ(cInterruptEvent, 0x9000U);
    EXPECT_EQ(cBulkInterruptEvent, 0x9001U);
    EXPECT_EQ(cUart0TransmitDone, 0x0001U);
    EXPECT_EQ(cUart0Receive, 0x0002U);
    EXPECT_EQ(cUart1TransmitDone, 0x0004U);
    EXPECT_EQ(cUart1Receive, 0x0008U);
    EXPECT_EQ(cBulkReceive, 0x0700U);
    EXPECT_EQ(cBulkTransmitEmpty, 0x0800U);
    EXPECT_EQ(cBulkTransmitPartialEmpty, 0x1000U);
    EXPECT_EQ(cBulkInterrupts, 0x1F00U);
    EXPECT_EQ(1U << cFirstBulkInterruptBit, 0x0100U);
}

TEST(DeviceProtocolTest, WordsOfAnEventAreLittleEndianAndNeedNoAlignment)
{
    const uint8_t lPayload[] = {0, 0x78, 0x56, 0x34, 0x12, 0x01, 0x02, 0x03, 0xF4};
    EXPECT_EQ(EventWord(lPayload + 1, 0), 0x12345678U);
    EXPECT_EQ(EventWord(lPayload + 1, 1), 0xF4030201U);
}

TEST(DeviceProtocolTest, RegistersHaveTheirFields)
{
    EXPECT_EQ(cDataValid, 1U << 16U);
    EXPECT_EQ(cDataMore, 1U << 23U);
    EXPECT_EQ(cImplemented, 1U << 31U);
    EXPECT_EQ(cUartCountMask, 0x7U);
    EXPECT_EQ(cBulkI2C, 0x3U);
    EXPECT_EQ(cThreeBits << cSpeedShift, 0x000000E0U);
    EXPECT_EQ(cDoubleByteTime, 0x00000400U);
    EXPECT_EQ(cResetFifos, 0x00000800U);
    EXPECT_EQ(cThreeBits << cInterfaceShift, 0x00007000U);
    EXPECT_EQ(0xFFU << cThresholdShift, 0xFF000000U);
    EXPECT_EQ(cInterfaceUsrt, 0U);
    EXPECT_EQ(cInterfaceUart, 1U);
    EXPECT_EQ(cInterfaceI2C, 2U);
    EXPECT_EQ(cInterfaceSpi, 3U);
}

TEST(DeviceProtocolTest, RatesAreThoseOfTheDevice)
{
    const std::array<uint32_t, 7> lRates = {9600, 14400, 19200, 28800, 38400, 57600, 115200};
    EXPECT_EQ(cUartRates, lRates);
    EXPECT_EQ(cCustomRateIndex, 7U);
    EXPECT_EQ(cCustomBitNanoseconds, 480U);
    EXPECT_EQ(cSynchronousClock, 16700000U);
}

TEST(DeviceProtocolTest, TransmitWindowAndMessagesCarryTheirFlags)
{
    EXPECT_EQ(cTransmitWindow, 0x80000000U);
    EXPECT_EQ(cWindowFast, 0x0200U);
    EXPECT_EQ(cWindowStop, 0x0400U);
    EXPECT_EQ(cWindowThird, 0x0800U);
    EXPECT_EQ(cWindowTransfer, 0x1000U);
    EXPECT_EQ(cBulkTransmitFifo, 256U);
    EXPECT_EQ(cMessageFast, 0x80000000U);
    EXPECT_EQ(cMessageStop, 0x40000000U);
    EXPECT_EQ(cMessageThird, 0x20000000U);
    EXPECT_EQ(cMessageTransfer, 0x10000000U);
    EXPECT_EQ(cMessageHeader, 8U);
    EXPECT_EQ(cSpiMessageHeader, 12U);
    EXPECT_EQ(cLongestMessage, 520U);
}

TEST(DeviceProtocolTest, FeaturesHaveTheirNames)
{
    EXPECT_STREQ(cMacAddressFeature, "GevMACAddress");
    EXPECT_STREQ(cVendorFeature, "DeviceVendorName");
    EXPECT_STREQ(cSerialNumberFeature, "DeviceSerialNumber");
    EXPECT_STREQ(cBulkSelectorFeature, "BulkSelector");
    EXPECT_STREQ(cBulkModeFeature, "BulkMode");
    EXPECT_STREQ(cEventSelectorFeature, "EventSelector");
    EXPECT_STREQ(cEventNotificationFeature, "EventNotification");
    EXPECT_STREQ(cBulkPrefix, "Bulk");
    EXPECT_STREQ(cBaudRateSuffix, "BaudRate");
    EXPECT_STREQ(cParitySuffix, "Parity");
    EXPECT_STREQ(cStopBitsSuffix, "NumOfStopBits");
    EXPECT_EQ(UartName(1), "Uart1");
    EXPECT_EQ(BulkName(7), "Bulk7");
    EXPECT_EQ(UpstreamEventName(6), "Bulk6UpstreamData");
    EXPECT_EQ(DownstreamFeature(5), "Bulk5DownstreamData");
    EXPECT_EQ(UpstreamBufferFeature(4), "EventBulk4UpstreamDataBuffer");
    EXPECT_EQ(UpstreamLengthFeature(3), "EventBulk3UpstreamDataLength");
}

} // namespace
