#include "kyserial/Record/Pcapng.h"
#include "Support/Process.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace std::chrono;
using namespace std::string_literals;
using KySerialTool::PcapngSection;
using KySerialTool::TrafficLog;
using testing::HasSubstr;

namespace
{

const auto cBegin = sys_days(year(2025) / 11 / 21) + 8h;
const uint8_t cHi[] = {'H', 'i', '!'};

class PcapngTest : public testing::Test
{
protected:
    ~PcapngTest() override { std::remove(mPath.c_str()); }

    const std::string mPath = KyTest::Process::TemporaryFile(".pcapng");
};

TEST_F(PcapngTest, SectionHasOneInterfaceOfASerialLine)
{
    EXPECT_EQ("\x0A\x0D\x0D\x0A\x2C\0\0\0\x4D\x3C\x2B\x1A\x01\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
              "\x04\0\x08\0kyserial\0\0\0\0\x2C\0\0\0"
              "\x01\0\0\0\x20\0\0\0\xFA\0\0\0\0\0\0\0\x09\0\x01\0\x09\0\0\0\0\0\0\0\x20\0\0\0"s,
              PcapngSection::Header());
}

TEST_F(PcapngTest, PacketHasTimeDirectionAndBytes)
{
    const std::string lPacket =
        PcapngSection(cBegin).Packet(cBegin + 2s + 3us + 400ns, true, cHi, sizeof(cHi));
    EXPECT_EQ("\x06\0\0\0\x3C\0\0\0\0\0\0\0"s, lPacket.substr(0, 12));
    EXPECT_EQ(
        "\x0F\0\0\0\x0F\0\0\0\0\0\0\x02\0\0\0\x03\x01\0\0\0Hi!\0\x02\0\x04\0\x02\0\0\0\0\0\0\0\x3C\0\0\0"s,
        lPacket.substr(20));
    uint64_t lNanoseconds = 0; // since 1970, high half first
    for (const size_t lByte : {15U, 14U, 13U, 12U, 19U, 18U, 17U, 16U})
    {
        lNanoseconds = lNanoseconds << 8U | static_cast<uint8_t>(lPacket[lByte]);
    }
    EXPECT_EQ(nanoseconds((cBegin + 2s + 3us + 400ns).time_since_epoch()).count(),
              static_cast<int64_t>(lNanoseconds));
}

TEST_F(PcapngTest, ReceivedBytesAreOfTheirOwnKind)
{
    const std::string lPacket = PcapngSection(cBegin).Packet(cBegin, false, cHi, sizeof(cHi));
    EXPECT_EQ('\x02', lPacket[36]);
    EXPECT_THAT(lPacket, HasSubstr("\x02\0\x04\0\x01\0\0\0"s));
}

TEST_F(PcapngTest, TimeBeforeTheBeginningIsZero)
{
    EXPECT_EQ("\0\0\0\0\0\0\0\0"s, PcapngSection(cBegin).Packet(cBegin - 1s, true, cHi, 1).substr(28, 8));
}

TEST_F(PcapngTest, NoteIsACommentOfAPacketWithoutBytes)
{
    EXPECT_THAT(PcapngSection(cBegin).Note(cBegin, "gone"), HasSubstr("\x0C\0\0\0\x0C\0\0\0"s));
    EXPECT_THAT(PcapngSection(cBegin).Note(cBegin, "gone"), HasSubstr("\x01\0\x04\0gone\0\0\0\0"s));
}

TEST_F(PcapngTest, LogWritesASectionForEachTimeThatItIsOpened)
{
    for (int lTime = 0; lTime < 2; ++lTime)
    {
        TrafficLog lLog;
        ASSERT_EQ("", lLog.Open(mPath));
        lLog.Add(TrafficLog::cSent, cHi, sizeof(cHi));
    }
    const std::string lText = KyTest::ReadFile(mPath);
    ASSERT_TRUE(lText.starts_with(PcapngSection::Header()));
    const size_t lOne = lText.size() / 2;
    const size_t lHeader = PcapngSection::Header().size();
    EXPECT_EQ(PcapngSection::Header() + lText.substr(lHeader, lOne - lHeader), lText.substr(0, lOne));
    EXPECT_TRUE(lText.substr(lOne).starts_with(PcapngSection::Header()));
    EXPECT_THAT(lText.substr(lOne), HasSubstr("Hi!"));
}

TEST_F(PcapngTest, LogDoesNotAddToAFileOfAnotherKind)
{
    ASSERT_TRUE(KyTest::WriteFile(mPath, "some text\n"));
    TrafficLog lLog;
    EXPECT_EQ("cannot write " + mPath + ": it has other content", lLog.Open(mPath));
    EXPECT_EQ("some text\n", KyTest::ReadFile(mPath));
}

} // namespace
