// The log of the service: what it has, and that it stays small.

#include "kyserial/Serve/ServiceLog.h"
#include "Support/Process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

using namespace KySerialTool;
using namespace KyTest;

namespace
{

class ServiceLogTest : public testing::Test
{
protected:
    ServiceLogTest() { mSettings.mFile = mStart + ".log"; }
    ~ServiceLogTest() override
    {
        ServiceLogSettings lNone;
        EXPECT_EQ(mLog.Use(lNone), ""); // lets the file go
        for (const char* const lEnding : {".log", ".1.log", ".2.log", ".3.log", ".other.log"})
        {
            std::remove((mStart + lEnding).c_str());
        }
    }

    /// The file's lines without their times.
    std::string Texts(const char* aEnding = ".log") const
    {
        std::string lTexts;
        std::string lRest = ReadFile(mStart + aEnding);
        for (size_t lEnd = lRest.find('\n'); lEnd != std::string::npos; lEnd = lRest.find('\n'))
        {
            EXPECT_EQ(lRest.find(' '), 27U) << lRest; // of the time
            lTexts += lRest.substr(28, lEnd - 27);
            lRest.erase(0, lEnd + 1);
        }
        EXPECT_EQ(lRest, "");
        return lTexts;
    }

    const std::string mStart = Process::TemporaryFile("");
    ServiceLogSettings mSettings{};
    ServiceLog mLog{};
};

TEST_F(ServiceLogTest, LinesHaveTimeAndLevelAsTheirReaderExpectsThem)
{
    const std::chrono::system_clock::time_point lTime(std::chrono::seconds(1));
    EXPECT_EQ(ServiceLog::Line(lTime, LogLevel::Error, "bad"), "1970-01-01T00:00:01.000000Z error: bad\n");
    EXPECT_EQ(ServiceLog::Line(lTime, LogLevel::Warning, "odd"),
              "1970-01-01T00:00:01.000000Z warning: odd\n");
    EXPECT_EQ(ServiceLog::Line(lTime, LogLevel::Information, "so"), "1970-01-01T00:00:01.000000Z so\n");
    EXPECT_EQ(ServiceLog::JournalLine(LogLevel::Error, "bad"), "<3>bad\n");
    EXPECT_EQ(ServiceLog::JournalLine(LogLevel::Warning, "odd"), "<4>odd\n");
    EXPECT_EQ(ServiceLog::JournalLine(LogLevel::Information, "so"), "<6>so\n");
}

TEST_F(ServiceLogTest, ALevelLeavesOutWhatMattersLessAndADeviceMayHaveItsOwn)
{
    mSettings.mLevel = LogLevel::Warning;
    ASSERT_EQ(mLog.Use(mSettings), "");
    mLog.Add(LogLevel::Information, "1");
    mLog.Add(LogLevel::Warning, "2");
    mLog.Add(LogLevel::Error, "3");
    mLog.Add(LogLevel::Information, "4", LogLevel::Information); // of a device
    mLog.Add(LogLevel::Warning, "5", LogLevel::Error);
    mLog.Add(LogLevel::Error, "6\n<0>7", LogLevel::Error);
    EXPECT_EQ(Texts(), "warning: 2\nerror: 3\n4\nerror: 6\\n<0>7\n");
}

TEST_F(ServiceLogTest, AFileThatHasBecomeLargeIsSetAsideAndTheOldestIsRemoved)
{
    mSettings.mLimit = {1000, 2};
    ASSERT_EQ(mLog.Use(mSettings), "");
    for (int lLine = 0; lLine < 1000; ++lLine)
    {
        mLog.Add(LogLevel::Information, std::to_string(lLine));
    }
    for (const char* const lEnding : {".log", ".1.log", ".2.log"})
    {
        EXPECT_LE(std::filesystem::file_size(mStart + lEnding), 1000U + 32U) << lEnding;
    }
    EXPECT_FALSE(std::filesystem::exists(mStart + ".3.log"));
    const std::string lNewest = Texts(".2.log") + Texts(".1.log") + Texts();
    EXPECT_TRUE(lNewest.ends_with("998\n999\n"));
    std::string lExpected; // nothing is missing in between
    for (int lLine = std::stoi(lNewest); lLine < 1000; ++lLine)
    {
        lExpected += std::to_string(lLine) + '\n';
    }
    EXPECT_EQ(lNewest, lExpected);
}

TEST_F(ServiceLogTest, OtherSettingsCountFromThenOnAndThoseThatDoNotDoLeaveTheFormerOnes)
{
    ASSERT_EQ(mLog.Use(mSettings), "");
    mLog.Add(LogLevel::Information, "1");
    ServiceLogSettings lOther = mSettings;
    lOther.mFile = std::filesystem::temp_directory_path().string(); // a folder
    EXPECT_TRUE(mLog.Use(lOther).starts_with("cannot write " + lOther.mFile + ": "));
    mLog.Add(LogLevel::Information, "2");
    EXPECT_EQ(Texts(), "1\n2\n");
    lOther.mFile = mStart + ".other.log";
    EXPECT_EQ(mLog.Use(lOther), "");
    mLog.Add(LogLevel::Information, "3");
    EXPECT_EQ(Texts(), "1\n2\n");
    EXPECT_EQ(Texts(".other.log"), "3\n");
    mSettings.mLevel = LogLevel::Error;
    EXPECT_EQ(mLog.Use(mSettings), ""); // the same file once more: its lines stay
    mLog.Add(LogLevel::Error, "4");
    EXPECT_EQ(Texts(), "1\n2\nerror: 4\n");
}

} // namespace
