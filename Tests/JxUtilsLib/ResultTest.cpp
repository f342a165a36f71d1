#include "JxUtilsLib/Result.h"

#include <gtest/gtest.h>

#include <utility>

using JxUtilsLib::Result;

TEST(ResultTest, KeepsCodeAndDescription)
{
    char lText[] = "text";
    const Result lResult(0x4000, lText);
    lText[0] = 'x';
    EXPECT_EQ(lResult.GetCode(), 0x4000U);
    EXPECT_FALSE(lResult.IsOK());
    EXPECT_STREQ(lResult.GetDescription(), "text");
}

TEST(ResultTest, DescriptionMayBeMissing)
{
    const Result lResult(0);
    EXPECT_TRUE(lResult.IsOK());
    EXPECT_EQ(lResult.GetDescription(), nullptr);
}

TEST(ResultTest, CopiesAndMovesKeepEverything)
{
    Result lOriginal(7, "seven");
    const Result lCopy(lOriginal);
    Result lAssigned(0);
    lAssigned = lCopy;
    const Result& lSame = lAssigned;
    lAssigned = lSame;
    const Result lMoved(std::move(lOriginal));
    for (const Result* const lResult : {&lCopy, static_cast<const Result*>(&lAssigned), &lMoved})
    {
        EXPECT_EQ(lResult->GetCode(), 7U);
        EXPECT_STREQ(lResult->GetDescription(), "seven");
    }
}
