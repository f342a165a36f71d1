#include "JxUtilsLib/Assert.h"

#include <gtest/gtest.h>

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

TEST_F(AssertTest, DefaultHandlerPrintsAndAborts)
{
    JxUtilsLib::SetAssertHandler(nullptr);
    EXPECT_DEATH(JxUtilsLib::AssertFailed("mThis != NULL", "file", 12), "");
}

} // namespace
