#include "KyBase/KyString.h"

#include <gtest/gtest.h>

#include <utility>

TEST(KyStringTest, DefaultIsEmptyAndNeverNull)
{
    const KyString lText;
    EXPECT_STREQ(lText.GetAscii(), "");
    EXPECT_EQ(lText.GetLength(), 0U);
}

TEST(KyStringTest, NullTextIsEmpty)
{
    const KyString lText(static_cast<const char*>(nullptr));
    EXPECT_STREQ(lText.GetAscii(), "");
    EXPECT_EQ(lText, KyString());
    EXPECT_EQ(KyString(nullptr, 5), KyString());
}

TEST(KyStringTest, CopiesItsSource)
{
    char lSource[] = "abc";
    const KyString lText(lSource);
    lSource[0] = 'x';
    EXPECT_STREQ(lText.GetAscii(), "abc");
    EXPECT_EQ(lText.GetLength(), 3U);
}

TEST(KyStringTest, TakesAPartOfAText)
{
    const KyString lText("Bulk0Mode", 5);
    EXPECT_STREQ(lText.GetAscii(), "Bulk0");
}

TEST(KyStringTest, CopyIsIndependentOfTheOriginal)
{
    KyString lOriginal("first");
    const KyString lCopy(lOriginal);
    lOriginal = KyString("second");
    EXPECT_STREQ(lCopy.GetAscii(), "first");
    EXPECT_STREQ(lOriginal.GetAscii(), "second");
}

TEST(KyStringTest, SelfAssignmentKeepsTheText)
{
    KyString lText("text");
    const KyString& lSame = lText;
    lText = lSame;
    EXPECT_STREQ(lText.GetAscii(), "text");
}

TEST(KyStringTest, MoveTakesTheTextAndLeavesAnEmptyOne)
{
    KyString lOriginal("text");
    KyString lMoved(std::move(lOriginal));
    EXPECT_STREQ(lMoved.GetAscii(), "text");
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): the moved-from state is promised
    EXPECT_EQ(lOriginal.GetLength(), 0U);
    lOriginal = std::move(lMoved);
    EXPECT_STREQ(lOriginal.GetAscii(), "text");
}

TEST(KyStringTest, ComparesLengthAndBytes)
{
    EXPECT_TRUE(KyString("On") == KyString("On"));
    EXPECT_FALSE(KyString("On") == KyString("on"));
    EXPECT_TRUE(KyString("On") != KyString("One"));
    EXPECT_TRUE(KyString("On") == "On");
    EXPECT_TRUE(KyString("a\0b", 3) != KyString("a\0c", 3));
}

TEST(KyStringTest, AssignsFromALiteral)
{
    KyString lText("x");
    lText = "longer text";
    EXPECT_EQ(lText.GetLength(), 11U);
    lText = "";
    EXPECT_STREQ(lText.GetAscii(), "");
}

TEST(KyStringTest, MovedToItselfKeepsTheText)
{
    KyString lText("text");
    KyString& lSame = lText;
    lText = std::move(lSame);
    EXPECT_STREQ(lText.GetAscii(), "text");
}

TEST(KyStringTest, TooLongTextGivesTheEmptyOne)
{
    const KyString lText("a", size_t{UINT32_MAX}); // refused before it is looked at
    EXPECT_EQ(lText.GetLength(), 0U);
    EXPECT_STREQ(lText.GetAscii(), "");
}
