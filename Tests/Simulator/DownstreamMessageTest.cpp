#include <Simulator/Ports/DownstreamMessage.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace KySimulator;

namespace
{

using Bytes = std::vector<uint8_t>;

std::optional<SerialMessage> ParseSerial(const Bytes& aBytes, bool aBigEndian = true)
{
    return ParseSerialMessage(aBytes.data(), aBytes.size(), aBigEndian);
}

std::optional<SpiMessage> ParseSpi(const Bytes& aBytes)
{
    return ParseSpiMessage(aBytes.data(), aBytes.size(), true);
}

TEST(DownstreamMessageTest, SerialMessageHasItsDataWithoutThePadding)
{
    const auto lBig = ParseSerial({0, 0, 0, 0, 0, 0, 0, 3, 'a', 'b', 'c', 9});
    ASSERT_TRUE(lBig.has_value());
    EXPECT_EQ(lBig->mData, (Bytes{'a', 'b', 'c'}));
    const auto lLittle = ParseSerial({0, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c', 9}, false);
    ASSERT_TRUE(lLittle.has_value());
    EXPECT_EQ(lLittle->mData, lBig->mData);
    EXPECT_TRUE(ParseSerial({0, 0, 0, 0, 0, 0, 0, 0})->mData.empty());
}

TEST(DownstreamMessageTest, EachFlagHasItsBit)
{
    for (unsigned lBits = 0; lBits < 16; ++lBits)
    {
        const auto lMessage = ParseSerial({static_cast<uint8_t>(lBits << 4U), 0, 0, 0, 0, 0, 0, 0});
        ASSERT_TRUE(lMessage.has_value());
        EXPECT_EQ(lMessage->mFlags.mFast, (lBits & 8U) != 0);
        EXPECT_EQ(lMessage->mFlags.mStop, (lBits & 4U) != 0);
        EXPECT_EQ(lMessage->mFlags.mThird, (lBits & 2U) != 0);
        EXPECT_EQ(lMessage->mFlags.mTransfer, (lBits & 1U) != 0);
    }
}

TEST(DownstreamMessageTest, MessageThatDoesNotFitItsHeaderIsRefused)
{
    EXPECT_FALSE(ParseSerialMessage(nullptr, 0, true).has_value());
    EXPECT_FALSE(ParseSerial({0, 0, 0, 0}).has_value());                           // no second word
    EXPECT_FALSE(ParseSerial({0, 0, 0, 0, 0, 0, 0, 1, 'a'}).has_value());          // no padding
    EXPECT_FALSE(ParseSerial({0, 0, 0, 0, 0, 0, 0, 5, 'a', 0, 0, 0}).has_value()); // too long
    EXPECT_FALSE(ParseSerial({0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}).has_value());
    EXPECT_FALSE(ParseSerial({0, 0, 0, 0xF0, 0, 0, 0, 0}).has_value()); // flags in the other byte order
}

TEST(DownstreamMessageTest, SpiMessageHasItsSizesAndOptions)
{
    const auto lOneAfterTheOther = ParseSpi({0, 0, 0, 0, 0, 0, 0, 6, 2, 7, 0, 0, 'a', 'b', 0, 0});
    ASSERT_TRUE(lOneAfterTheOther.has_value());
    EXPECT_EQ(lOneAfterTheOther->mData, (Bytes{'a', 'b'}));
    EXPECT_EQ(lOneAfterTheOther->mReadSize, 7U);
    EXPECT_FALSE(lOneAfterTheOther->mSimultaneous);
    EXPECT_FALSE(lOneAfterTheOther->mFinal);
    const auto lSimultaneous = ParseSpi({0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 1, 1, 'a', 0, 0, 0});
    ASSERT_TRUE(lSimultaneous.has_value());
    EXPECT_EQ(lSimultaneous->mData, Bytes{'a'});
    EXPECT_EQ(lSimultaneous->mReadSize, 0U);
    EXPECT_TRUE(lSimultaneous->mSimultaneous);
    EXPECT_TRUE(lSimultaneous->mFinal);
}

TEST(DownstreamMessageTest, SpiMessageWhoseSizesContradictEachOtherIsRefused)
{
    EXPECT_FALSE(ParseSpi({0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0}).has_value());    // no control bytes
    EXPECT_FALSE(ParseSpi({0x10, 0, 0, 0, 0, 0, 0, 4, 0, 1, 0, 0}).has_value()); // flags
    EXPECT_FALSE(ParseSpi({0, 0, 0, 0, 0, 0, 0, 5, 2, 0, 0, 0, 'a', 0, 0, 0}).has_value()); // less data
    EXPECT_FALSE(ParseSpi({0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 'a', 0, 0, 0}).has_value()); // more data
    EXPECT_FALSE(
        ParseSpi({0, 0, 0, 0, 0, 0, 0, 5, 0, 1, 1, 0, 'a', 0, 0, 0}).has_value()); // both ways to read
    EXPECT_FALSE(ParseSpi({0, 0, 0, 0, 0, 0, 0, 4, 0, 1, 0, 2}).has_value());      // no such option
}

} // namespace
