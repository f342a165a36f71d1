#include "JxUtilsLib/StandardErrorSink.h"

#include <gtest/gtest.h>

#include <string>

using JxUtilsLib::PriorityLevel;
using JxUtilsLib::StandardErrorSink;

namespace
{

std::string Line(PriorityLevel aPriority, int64_t aTimeMs)
{
    return StandardErrorSink::Format({"KySerialLib", aPriority, "file", 3, "Class::Function", "the text"},
                                     aTimeMs);
}

TEST(StandardErrorSinkTest, LineHasTimePriorityCategoryFunctionAndText)
{
    const std::string lLine = Line(JxUtilsLib::PriorityError, 1234);
    ASSERT_GT(lLine.size(), 24U);
    EXPECT_EQ(lLine.substr(13, 10), ":00:01.234")
        << lLine; // local time: hours and minutes depend on the zone
    EXPECT_EQ(lLine.substr(23), " ERROR KySerialLib Class::Function: the text");
}

TEST(StandardErrorSinkTest, MillisecondsHaveThreeDigits)
{
    EXPECT_EQ(Line(JxUtilsLib::PriorityError, 1007).substr(13, 10), ":00:01.007");
    EXPECT_EQ(Line(JxUtilsLib::PriorityError, 1000).substr(13, 10), ":00:01.000");
}

TEST(StandardErrorSinkTest, EachPriorityHasItsName)
{
    EXPECT_NE(Line(JxUtilsLib::PriorityDebug, 0).find(" DEBUG "), std::string::npos);
    EXPECT_NE(Line(JxUtilsLib::PriorityInfo, 0).find(" INFO  "), std::string::npos);
    EXPECT_NE(Line(JxUtilsLib::PriorityWarning, 0).find(" WARN  "), std::string::npos);
    EXPECT_NE(Line(JxUtilsLib::PriorityFatal, 0).find(" FATAL "), std::string::npos);
    EXPECT_NE(Line(static_cast<PriorityLevel>(45000), 0).find(" ERROR "), std::string::npos);
}

TEST(StandardErrorSinkTest, DefaultSinkWritesToStandardError)
{
    testing::internal::CaptureStderr();
    JxUtilsLib::Logger("KySerialLib").Log(JxUtilsLib::PriorityWarning, "f", 1, "F", "to standard error");
    const std::string lText = testing::internal::GetCapturedStderr();
    EXPECT_NE(lText.find(" WARN  KySerialLib F: to standard error\n"), std::string::npos) << lText;
}

} // namespace
