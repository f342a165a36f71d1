#include "kyserial/Terminal/TrafficLog.h"
#include "Support/PatternMatcher.h"
#include "Support/Process.h"

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

    /// A file of a log that is set aside; the newest has no number.
    std::string Rotated(const std::string& aNumber, const std::string& aEnding) const
    {
        return mPath + "-rotated" + aNumber + aEnding;
    }

    const std::string mPath = KyTest::Process::TemporaryFile(".log");
};

TEST_F(TrafficLogTest, LineHasTimeDirectionNumbersAndCharacters)
{
    const auto lTime = sys_days(year(2025) / 11 / 21) + 8h + 53min + 1s + 1234us;
    EXPECT_EQ("2025-11-21T08:53:01.001234Z > 53 54 41 54 55 53 3f 0d 0a                       STATUS?..\n",
              TrafficLog::Line(lTime, TrafficLog::cSent, {cBytes, cBytes + sizeof(cBytes)}));
}

TEST_F(TrafficLogTest, BytesOfOneDirectionShareLinesOfSixteen)
{
    TrafficLog lLog;
    ASSERT_EQ("", lLog.Open(mPath));
    for (int lByte = 0; lByte < 18; ++lByte)
    {
        lLog.Add(TrafficLog::cReceived, cBytes, 1);
    }
    EXPECT_THAT(KyTest::ReadFile(mPath), KyTest::MatchesPattern(".*Z < (53 )+ SSSSSSSSSSSSSSSS\n"));
    lLog.Flush();
    EXPECT_THAT(KyTest::ReadFile(mPath), KyTest::MatchesPattern(".*SSSSSSSSSSSSSSSS\n.*Z < 53 53 + SS\n"));
}

TEST_F(TrafficLogTest, ALineEndsWhenTheDirectionChanges)
{
    TrafficLog lLog;
    ASSERT_EQ("", lLog.Open(mPath));
    lLog.Add(TrafficLog::cReceived, cBytes, 1);
    lLog.Add(TrafficLog::cSent, cBytes, 0); // nothing was sent
    lLog.Add(TrafficLog::cReceived, cBytes, 1);
    lLog.Add(TrafficLog::cSent, cBytes, 1);
    EXPECT_THAT(KyTest::ReadFile(mPath), KyTest::MatchesPattern(".*Z < 53 53 + SS\n"));
}

TEST_F(TrafficLogTest, AnAnswerThatIsFasterThanTheSenderStandsAfterWhatItAnswers)
{
    TrafficLog lLog;
    ASSERT_EQ("", lLog.Open(mPath));
    lLog.BeginSending();
    lLog.Add(TrafficLog::cReceived, cBytes + 1, 1);
    lLog.EndSending(cBytes, 1);
    lLog.Add(TrafficLog::cReceived, cBytes + 2, 1);
    lLog.BeginSending();
    lLog.EndSending(cBytes, 0); // nothing was sent
    lLog.Add(TrafficLog::cReceived, cBytes + 3, 1);
    lLog.Flush();
    const std::string lText = KyTest::ReadFile(mPath);
    EXPECT_THAT(lText, KyTest::MatchesPattern(".*Z > 53 + S\n.*Z < 54 41 54 + TAT\n"));
    const size_t lTime = std::string("2025-11-21T08:53:01.123456Z").size();
    EXPECT_LE(lText.substr(0, lTime), lText.substr(lText.find('\n') + 1, lTime)); // the times are in order
}

TEST_F(TrafficLogTest, AddsToAFileThatExistsAndEndsTheLastLine)
{
    ASSERT_TRUE(KyTest::WriteFile(mPath, "before\n"));
    {
        TrafficLog lLog;
        ASSERT_EQ("", lLog.Open(mPath));
        lLog.Add(TrafficLog::cSent, cBytes, 2);
        lLog.Add(TrafficLog::cReceived, cBytes + 2, 1);
        EXPECT_EQ("", lLog.GetFailure());
    }
    EXPECT_THAT(KyTest::ReadFile(mPath), KyTest::MatchesPattern("before\n.*Z > 53 54 +ST\n.*Z < 41 +A\n"));
}

// Of lines, and of a record whose parts are read alone.
TEST_F(TrafficLogTest, AFileOfASizeIsSetAsideAndTheOldestRemoved)
{
    for (const std::string lEnding : {".log", ".pcapng"})
    {
        TrafficLog::Limit lLimit;
        lLimit.mBytes = 300;
        lLimit.mFiles = 2;
        {
            TrafficLog lLog;
            ASSERT_EQ("", lLog.Open(Rotated("", lEnding), lLimit));
            for (int lIndex = 0; lIndex < 40; ++lIndex)
            {
                lLog.AddNote("note " + std::to_string(lIndex));
            }
            EXPECT_EQ(lLog.GetFailure(), "");
        }
        const std::string lAll = KyTest::ReadFile(Rotated(".2", lEnding)) +
                                 KyTest::ReadFile(Rotated(".1", lEnding)) +
                                 KyTest::ReadFile(Rotated("", lEnding));
        EXPECT_EQ(KyTest::ReadFile(Rotated(".3", lEnding)), "");
        EXPECT_EQ(KyTest::ReadFile(Rotated("", lEnding + ".aside")), "");
        EXPECT_EQ(lAll.find("note 0"), std::string::npos);
        EXPECT_NE(lAll.find("note 39"), std::string::npos);
        for (const std::string lNumber : {".2", ".1", ""})
        {
            const std::string lText = KyTest::ReadFile(Rotated(lNumber, lEnding));
            EXPECT_LT(lText.size(), 300U + 200U);
            EXPECT_TRUE(lNumber.empty() || lText.size() >= 300U) << lText.size();
            EXPECT_TRUE(lEnding != ".pcapng" || KySerialTool::PcapngSection::IsHeader(lText.substr(0, 4)));
            EXPECT_EQ(std::remove(Rotated(lNumber, lEnding).c_str()), 0);
        }
    }
}

TEST_F(TrafficLogTest, WithoutAFileNothingHappens)
{
    TrafficLog lLog;
    lLog.Add(TrafficLog::cSent, cBytes, 2);
    EXPECT_EQ("", lLog.GetFailure());
}

TEST_F(TrafficLogTest, AFileThatCannotBeWrittenIsNotOpened)
{
    TrafficLog lLog;
    const std::string lFile = mPath + "/missing/file.log";
    EXPECT_EQ("cannot write " + lFile + ": No such file or directory", lLog.Open(lFile));
    EXPECT_EQ("cannot write .: it is a directory", lLog.Open("."));
}

TEST_F(TrafficLogTest, NotesStandBetweenTheLinesOfBytes)
{
    TrafficLog lLog;
    lLog.AddNote("before there is a file");
    ASSERT_EQ("", lLog.Open(mPath));
    lLog.Add(TrafficLog::cSent, cBytes, 1);
    lLog.AddNote("a note");
    lLog.Add(TrafficLog::cSent, cBytes, 1);
    lLog.Flush();
    EXPECT_THAT(KyTest::ReadFile(mPath),
                KyTest::MatchesPattern(".{27} > 53 +S\n.{27} ! a note\n.{27} > 53 +S\n"));
}

} // namespace
