#include "JxUtilsLib/Logger.h"

#include "Support/RecordingLogSink.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using JxUtilsLib::Logger;
using JxUtilsLib::PriorityDebug;
using JxUtilsLib::PriorityError;
using JxUtilsLib::PriorityFatal;
using JxUtilsLib::PriorityInfo;
using JxUtilsLib::PriorityLevel;
using JxUtilsLib::PriorityWarning;
using KyTest::LogLine;
using KyTest::RecordingLogSink;

namespace
{

constexpr PriorityLevel cNothing = static_cast<PriorityLevel>(PriorityFatal + 1);

TEST(LoggerTest, PrioritiesHaveTheirFixedNumbers)
{
    EXPECT_EQ(PriorityDebug, 10000);
    EXPECT_EQ(PriorityInfo, 20000);
    EXPECT_EQ(PriorityWarning, 30000);
    EXPECT_EQ(PriorityError, 40000);
    EXPECT_EQ(PriorityFatal, 50000);
}

TEST(LoggerTest, DefaultLevelIsWarning)
{
    EXPECT_EQ(Logger::GetPriority(), PriorityWarning);
    const Logger lLogger("KySerialLib");
    EXPECT_TRUE(lLogger.IsPriorityEnabled(PriorityWarning));
    EXPECT_FALSE(lLogger.IsPriorityEnabled(PriorityInfo));
}

TEST(LoggerTest, RecordCarriesEverythingGiven)
{
    RecordingLogSink lSink;
    const Logger lLogger("Category", 0);
    lLogger.Log(PriorityInfo, "Module", 12, "Class::Function", "%d of %s", 3, "five");
    EXPECT_EQ(lSink.GetCategories(), std::vector<std::string>{"Category"});
    EXPECT_EQ(lSink.GetFiles(), std::vector<std::string>{"Module"});
    EXPECT_EQ(lSink.Take(), (std::vector<LogLine>{{PriorityInfo, "Class::Function", "3 of five"}}));
}

TEST(LoggerTest, DisabledPrioritiesAreNotWritten)
{
    RecordingLogSink lSink(PriorityError);
    const Logger lLogger("KySerialLib");
    for (const PriorityLevel lLevel :
         {PriorityDebug, PriorityInfo, PriorityWarning, PriorityError, PriorityFatal})
    {
        lLogger.Log(lLevel, "f", 1, "F", "text");
    }
    EXPECT_EQ(lSink.Take(),
              (std::vector<LogLine>{{PriorityError, "F", "text"}, {PriorityFatal, "F", "text"}}));
}

TEST(LoggerTest, LogResultLogsAnErrorAndReturnsCodeAndText)
{
    RecordingLogSink lSink;
    const JxUtilsLib::Result lResult =
        Logger("KySerialLib").LogResult(0x4000, "f", 1, "F", "Failed to write byte %d.", 7);
    EXPECT_EQ(lResult.GetCode(), 0x4000U);
    EXPECT_STREQ(lResult.GetDescription(), "Failed to write byte 7.");
    EXPECT_EQ(lSink.Take(), (std::vector<LogLine>{{PriorityError, "F", "Failed to write byte 7."}}));
}

TEST(LoggerTest, LogResultKeepsItsTextWithErrorsDisabled)
{
    for (const PriorityLevel lLevel : {PriorityFatal, cNothing})
    {
        RecordingLogSink lSink(lLevel);
        const JxUtilsLib::Result lResult = Logger("KySerialLib").LogResult(0x1E, "f", 1, "F", "text");
        EXPECT_EQ(lResult.GetCode(), 0x1EU);
        EXPECT_STREQ(lResult.GetDescription(), "text");
        EXPECT_TRUE(lSink.Take().empty());
    }
}

TEST(LoggerTest, TextsOfEveryLengthAreWhole)
{
    const RecordingLogSink lSink;
    for (size_t lLength = 250; lLength < 260; ++lLength) // where a text no longer fits on the stack
    {
        const std::string lText(lLength, 'x');
        EXPECT_EQ(Logger("KySerialLib").LogResult(1, "f", 1, "F", "%s", lText.c_str()).GetDescription(),
                  lText);
    }
}

TEST(LoggerTest, LongTextsAreWhole)
{
    RecordingLogSink lSink;
    const std::string lLong(5000, 'x');
    const JxUtilsLib::Result lResult = Logger("KySerialLib").LogResult(1, "f", 1, "F", "<%s>", lLong.c_str());
    EXPECT_EQ(std::string(lResult.GetDescription()), "<" + lLong + ">");
    const std::vector<LogLine> lLines = lSink.Take();
    ASSERT_EQ(lLines.size(), 1U);
    EXPECT_EQ(lLines[0].mMessage, "<" + lLong + ">");
}

TEST(LoggerTest, ThrowingSinkIsNotNoticedByTheCaller)
{
    struct ThrowingSink : JxUtilsLib::LogSink
    {
        void Write(const JxUtilsLib::LogRecord& /*aRecord*/) override
        {
            throw std::runtime_error("disk full");
        }
    } lSink;
    Logger::SetSink(&lSink);
    const JxUtilsLib::Result lResult = Logger("KySerialLib").LogResult(3, "f", 1, "F", "text");
    Logger::SetSink(nullptr);
    EXPECT_STREQ(lResult.GetDescription(), "text");
}

} // namespace
