#include "kyserial/Bridge/StartReason.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using JxUtilsLib::Logger;
using KySerialTool::StartReason;

class CountingSink final : public JxUtilsLib::LogSink
{
public:
    void Write(const JxUtilsLib::LogRecord& /*aRecord*/) override { ++mLines; }

    int mLines = 0;
};

class StartReasonTest : public testing::Test
{
protected:
    ~StartReasonTest() override
    {
        Logger::SetSink(nullptr);
        Logger::SetPriority(mBefore);
    }
    static void Log(const std::string& aText)
    {
        Logger("KySerialLib").Log(JxUtilsLib::PriorityError, "file", 1, "function", "%s", aText.c_str());
    }

    const std::string mRegistry = "The registry of servers cannot be used: it is full.";

private:
    const JxUtilsLib::PriorityLevel mBefore = Logger::GetPriority();
};

TEST_F(StartReasonTest, KeepsTheRegistrysLineAndNoOther)
{
    Logger::SetPriority(JxUtilsLib::PriorityFatal);
    StartReason lReason;
    Log("Something else.");
    EXPECT_EQ("", lReason.Text());
    Log(mRegistry);
    Log("Something else.");
    EXPECT_EQ(" (" + mRegistry + ')', lReason.Text());
}

TEST_F(StartReasonTest, IsSilentAgainAfterwards)
{
    Logger::SetPriority(JxUtilsLib::PriorityFatal);
    {
        const StartReason lReason;
        EXPECT_EQ(JxUtilsLib::PriorityError, Logger::GetPriority());
    }
    EXPECT_EQ(JxUtilsLib::PriorityFatal, Logger::GetPriority());
}

// The user reads the line there, and gets it once.
TEST_F(StartReasonTest, LeavesALogThatTheUserWants)
{
    CountingSink lSink;
    Logger::SetSink(&lSink);
    Logger::SetPriority(JxUtilsLib::PriorityError);
    {
        StartReason lReason;
        Log(mRegistry);
        EXPECT_EQ("", lReason.Text());
    }
    Log(mRegistry);
    EXPECT_EQ(2, lSink.mLines);
}

} // namespace
