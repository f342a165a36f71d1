#include "KyBase/KyResult.h"

#include <gtest/gtest.h>

TEST(KyResultTest, DefaultIsOKWithoutDescription)
{
    const KyResult lResult;
    EXPECT_TRUE(lResult.IsOK());
    EXPECT_EQ(lResult.GetCode(), 0U);
    EXPECT_EQ(lResult.GetDescription().GetLength(), 0U);
}

TEST(KyResultTest, OnlyCodeZeroIsOK)
{
    EXPECT_TRUE(KyResult(0).IsOK());
    for (const uint32_t lCode : {1U, 0x17U, 0x605U, 0x4000U, 0xFFFFFFFFU})
    {
        EXPECT_FALSE(KyResult(lCode).IsOK()) << lCode;
        EXPECT_EQ(KyResult(lCode).GetCode(), lCode);
    }
}

TEST(KyResultTest, CodesHaveTheirFixedValues)
{
    EXPECT_EQ(KyResult::OK, 0x0000U);
    EXPECT_EQ(KyResult::NO_CONNECTION, 0x0017U);
    EXPECT_EQ(KyResult::NOT_READABLE, 0x0019U);
    EXPECT_EQ(KyResult::UNSUPPORTED, 0x001AU);
    EXPECT_EQ(KyResult::BUFFER_TOO_SMALL, 0x001BU);
    EXPECT_EQ(KyResult::WRONG_STATE, 0x001CU);
    EXPECT_EQ(KyResult::TIMED_OUT, 0x001EU);
    EXPECT_EQ(KyResult::NOT_OPEN, 0x0605U);
    EXPECT_EQ(KyResult::FAILURE, 0x4000U);
    EXPECT_EQ(KyResult::BAD_PARAMETER, 0x4001U);
}

TEST(KyResultTest, CodeStringNamesTheCode)
{
    EXPECT_STREQ(KyResult(KyResult::OK).GetCodeString().GetAscii(), "OK");
    EXPECT_STREQ(KyResult(KyResult::NO_CONNECTION).GetCodeString().GetAscii(), "NO_CONNECTION");
    EXPECT_STREQ(KyResult(KyResult::NOT_READABLE).GetCodeString().GetAscii(), "NOT_READABLE");
    EXPECT_STREQ(KyResult(KyResult::UNSUPPORTED).GetCodeString().GetAscii(), "UNSUPPORTED");
    EXPECT_STREQ(KyResult(KyResult::BUFFER_TOO_SMALL).GetCodeString().GetAscii(), "BUFFER_TOO_SMALL");
    EXPECT_STREQ(KyResult(KyResult::WRONG_STATE).GetCodeString().GetAscii(), "WRONG_STATE");
    EXPECT_STREQ(KyResult(KyResult::TIMED_OUT).GetCodeString().GetAscii(), "TIMED_OUT");
    EXPECT_STREQ(KyResult(KyResult::NOT_OPEN).GetCodeString().GetAscii(), "NOT_OPEN");
    EXPECT_STREQ(KyResult(KyResult::FAILURE).GetCodeString().GetAscii(), "FAILURE");
    EXPECT_STREQ(KyResult(KyResult::BAD_PARAMETER).GetCodeString().GetAscii(), "BAD_PARAMETER");
    EXPECT_STREQ(KyResult(0x1234).GetCodeString().GetAscii(), "UNKNOWN");
}

TEST(KyResultTest, ConvertsToItsCodeAsCString)
{
    const char* const lText = KyResult(KyResult::TIMED_OUT);
    EXPECT_STREQ(lText, "TIMED_OUT");
}

TEST(KyResultTest, CopiesKeepCodeAndDescription)
{
    KyResult lCopy;
    {
        const KyResult lOriginal(0x77, "adapter says no");
        lCopy = lOriginal;
    }
    EXPECT_EQ(lCopy.GetCode(), 0x77U);
    EXPECT_STREQ(lCopy.GetDescription().GetAscii(), "adapter says no");
    lCopy = KyResult();
    EXPECT_TRUE(lCopy.IsOK());
    EXPECT_EQ(lCopy.GetDescription().GetLength(), 0U);
}
