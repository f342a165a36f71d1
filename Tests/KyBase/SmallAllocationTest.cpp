// Texts, results and log lines without memory. Part of the program that replaces operator new.

#include "JxUtilsLib/Logger.h"
#include "JxUtilsLib/Result.h"
#include "KyBase/KyStringList.h"
#include "Support/AllocationCounter.h"
#include "Support/RecordingLogSink.h"

#include <gtest/gtest.h>

using namespace KyTest;

namespace
{

TEST(SmallAllocationTest, TextWithoutMemoryIsEmpty)
{
    const AllocationCounter lNoMemory(1);
    const KyString lText("text");
    EXPECT_EQ(lText.GetLength(), 0U);
    EXPECT_STREQ(lText.GetAscii(), "");
}

TEST(SmallAllocationTest, ListWithoutMemoryForATextStaysAsItWas)
{
    KyStringList lList;
    lList.Add("first");
    const KyString lText("second");
    {
        const AllocationCounter lNoMemory(1);
        lList.Add(lText);
    }
    EXPECT_EQ(lList.GetCount(), 1U);
    EXPECT_STREQ(lList.GetFirst()->GetAscii(), "first");
    EXPECT_EQ(lList.GetNext(), nullptr);
    lList.Add("third");
    EXPECT_EQ(lList.GetCount(), 2U);
}

TEST(SmallAllocationTest, ResultWithoutMemoryHasItsCodeAndNoDescription)
{
    const AllocationCounter lNoMemory(1);
    const JxUtilsLib::Result lResult(7, "seven");
    EXPECT_EQ(lResult.GetCode(), 7U);
    EXPECT_EQ(lResult.GetDescription(), nullptr);
}

TEST(SmallAllocationTest, LongLogTextWithoutMemoryIsItsBeginning)
{
    const std::string lLong(1000, 'x');
    RecordingLogSink lSink;
    std::string lText;
    {
        const AllocationCounter lNoMemory(1);
        const JxUtilsLib::Result lResult =
            JxUtilsLib::Logger("KySerialLib").LogResult(1, "f", 1, "F", "<%s>", lLong.c_str());
        const AllocationPause lPause;
        lText = lResult.GetDescription();
    }
    EXPECT_EQ(lText, "<" + lLong.substr(0, 254));
}

} // namespace
