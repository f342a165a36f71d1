#include <Simulator/Ports/LineSettings.h>

#include <gtest/gtest.h>

using namespace KySimulator;
using namespace std::chrono_literals;

namespace
{

TEST(LineSettingsTest, ByteHasBitsForStartStopAndParity)
{
    EXPECT_EQ((FrameSettings{0, 0}).BitsPerByte(), 10U);
    EXPECT_EQ((FrameSettings{1, 0}).BitsPerByte(), 11U);
    EXPECT_EQ((FrameSettings{2, 0}).BitsPerByte(), 11U);
    EXPECT_EQ((FrameSettings{0, 1}).BitsPerByte(), 11U);
    EXPECT_EQ((FrameSettings{2, 1}).BitsPerByte(), 12U);
}

TEST(LineSettingsTest, BitsTakeTheirTimeAtARate)
{
    EXPECT_EQ(TimeOfBits(9600, 9600), Time(1s));
    EXPECT_EQ(TimeOfBits(10, 1000000), Time(10us));
    EXPECT_EQ(TimeOfBits(0, 9600), Time(0));
}

TEST(LineSettingsTest, SpeedIndexesAreRatesAndTheLastOneIsTheDivisors)
{
    const uint32_t lRates[] = {9600, 14400, 19200, 28800, 38400, 57600, 115200};
    for (uint32_t lIndex = 0; lIndex < 7; ++lIndex)
    {
        EXPECT_EQ(UartRate(lIndex, 1), lRates[lIndex]);
    }
    EXPECT_EQ(UartRate(7, 1), 2083333U); // a bit of 480 ns
    EXPECT_EQ(UartRate(7, 0), 2083333U);
    EXPECT_EQ(UartRate(7, 0xFF), 8169U);
    EXPECT_EQ(UartRate(7, 0xABCD0002), 1041666U); // the low byte alone
}

} // namespace
