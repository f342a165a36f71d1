#include "JxUtilsLib/Assert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace
{

std::string gText;
int gCalls = 0;

void Record(const char* aText, const char* /*aFile*/, int aLine)
{
    gText = aText;
    ++gCalls;
    EXPECT_GT(aLine, 0);
}

class AssertTest : public testing::Test
{
protected:
    AssertTest()
    {
        gText.clear();
        gCalls = 0;
        JxUtilsLib::SetAssertHandler(&Record);
    }
    ~AssertTest() override { JxUtilsLib::SetAssertHandler(nullptr); }
};

TEST_F(AssertTest, BrokenAssertionGivesItsTextAndGoesOn)
{
    const void* const lPointer = nullptr;
    JX_ASSERT(lPointer != NULL);
    EXPECT_EQ(gCalls, JxUtilsLib::cAssertionsEnabled ? 1 : 0);
    EXPECT_EQ(gText, JxUtilsLib::cAssertionsEnabled ? "lPointer != NULL" : "");
}

TEST_F(AssertTest, AssertionThatHoldsIsSilent)
{
    JX_ASSERT(1 + 1 == 2);
    EXPECT_EQ(gCalls, 0);
}

TEST_F(AssertTest, VerifyMakesItsCallInEveryBuild)
{
    int lCalls = 0;
    const auto lCall = [&lCalls](bool aResult)
    {
        ++lCalls;
        return aResult;
    };
    JX_VERIFY(lCall(true));
    JX_VERIFY(lCall(false));
    EXPECT_EQ(lCalls, 2);
    EXPECT_EQ(gCalls, JxUtilsLib::cAssertionsEnabled ? 1 : 0);
}

TEST_F(AssertTest, ExpectationGivesItsTextToTheHandlerEachTimeAndGoesOn)
{
    for (int lRound = 1; lRound <= 3; ++lRound)
    {
        const void* const lPointer = nullptr;
        JX_EXPECT(lPointer != NULL);
        EXPECT_EQ(gCalls, JxUtilsLib::cAssertionsEnabled ? lRound : 0);
    }
    EXPECT_EQ(gText, JxUtilsLib::cAssertionsEnabled ? "lPointer != NULL" : "");
    JX_EXPECT_WITH_TEXT(gCalls > 99, "::SetEvent( mEvent )");
    EXPECT_EQ(gText, JxUtilsLib::cAssertionsEnabled ? "::SetEvent( mEvent )" : "");
}

TEST_F(AssertTest, ExpectationThatHoldsIsSilent)
{
    JX_EXPECT(1 + 1 == 2);
    EXPECT_EQ(gCalls, 0);
}

TEST_F(AssertTest, WithoutAHandlerABrokenExpectationIsPrintedOncePerPlaceAndGoesOn)
{
    JxUtilsLib::SetAssertHandler(nullptr);
    testing::internal::CaptureStderr();
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        JX_EXPECT(lRound > 5); // the first place
        JX_EXPECT(lRound > 6); // the second one
    }
    const std::string lPrinted = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(lPrinted.begin(), lPrinted.end(), '\n'), JxUtilsLib::cAssertionsEnabled ? 2 : 0);
    for (const char* const lText : {"\"lRound > 5\"", "\"lRound > 6\"", "AssertTest.cpp:"})
    {
        EXPECT_EQ(lPrinted.find(lText) != std::string::npos, JxUtilsLib::cAssertionsEnabled) << lText;
    }
}

TEST_F(AssertTest, WithoutAHandlerABrokenInvariantAborts)
{
    JxUtilsLib::SetAssertHandler(nullptr);
    EXPECT_DEATH(JxUtilsLib::AssertFailed("mThis != NULL", "file", 12), "");
    if (JxUtilsLib::cAssertionsEnabled)
    {
        EXPECT_DEATH(JX_ASSERT(gCalls > 99), "");
    }
}

} // namespace
