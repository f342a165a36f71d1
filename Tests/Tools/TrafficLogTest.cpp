#include "Support/Process.h"
#include "kyserial/TrafficLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using KySerialTool::TrafficLog;
using namespace std::chrono;

namespace
{

const uint8_t cBytes[] = {'S', 'T', 'A', 'T', 'U', 'S', '?', '\r', '\n'};

class TrafficLogTest : public testing::Test
{
protected:
    ~TrafficLogTest() override { std::remove(mPath.c_str()); }

    const std::string mPath = KyTest::Process::TemporaryFile(".log");
};

TEST_F(TrafficLogTest, LineHasTimeDirectionNumbersAndCharacters)
{
    const auto lTime = sys_days(year(2025) / 11 / 21) + 8h + 53min + 1s + 1234us;
    EXPECT_EQ("2025-11-21T08:53:01.001234Z > 53 54 41 54 55 53 3f 0d 0a                       STATUS?..\n",
              TrafficLog::Lines(lTime, TrafficLog::cSent, cBytes, sizeof(cBytes)));
}

TEST_F(TrafficLogTest, LongPiecesTakeSeveralLinesWithOneTime)
{
    const std::vector<uint8_t> lBytes(17, 'x');
    const std::string lLines =
        TrafficLog::Lines(sys_days(year(1999) / 12 / 31), TrafficLog::cReceived, lBytes.data(), lBytes.size());
    EXPECT_EQ("1999-12-31T00:00:00.000000Z < 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78  xxxxxxxxxxxxxxxx\n"
              "1999-12-31T00:00:00.000000Z < 78                                               x\n",
              lLines);
}

TEST_F(TrafficLogTest, AddsToAFileThatExists)
{
    ASSERT_TRUE(KyTest::WriteFile(mPath, "before\n"));
    TrafficLog lLog;
    ASSERT_TRUE(lLog.Open(mPath));
    lLog.Add(TrafficLog::cSent, cBytes, 2);
    lLog.Add(TrafficLog::cReceived, cBytes + 2, 1);

    EXPECT_THAT(KyTest::ReadFile(mPath),
                testing::MatchesRegex("before\n.*Z > 53 54 +ST\n.*Z < 41 +A\n"));
    EXPECT_FALSE(lLog.HasFailed());
}

TEST_F(TrafficLogTest, WithoutAFileNothingHappens)
{
    TrafficLog lLog;
    lLog.Add(TrafficLog::cSent, cBytes, 2);
    EXPECT_FALSE(lLog.HasFailed());
}

TEST_F(TrafficLogTest, AFileThatCannotBeWrittenIsNotOpened)
{
    TrafficLog lLog;
    EXPECT_FALSE(lLog.Open(mPath + "/missing/file.log"));
}

} // namespace
