// The service's log on a disk that is full.

#include "Support/Process.h"
#include "kyserial/Serve/ServiceLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace KySerialTool;
using testing::EndsWith;
using testing::HasSubstr;

namespace
{

TEST(FullDiskTest, LinesThatTheFileTakesNoMoreAreOnTheErrorOutput)
{
    ServiceLog lLog;
    ServiceLogSettings lSettings;
    lSettings.mFile = "/dev/full";
    ASSERT_EQ(lLog.Use(lSettings), "");
    testing::internal::CaptureStderr();
    lLog.Add(LogLevel::Information, "first");
    const std::string lFirst = testing::internal::GetCapturedStderr();
    testing::internal::CaptureStderr();
    lLog.Add(LogLevel::Error, "second");
    const std::string lSecond = testing::internal::GetCapturedStderr();
    EXPECT_THAT(lFirst, HasSubstr("log: cannot write /dev/full: No space left on device\n"));
    EXPECT_THAT(lFirst, EndsWith("Z first\n"));
    EXPECT_THAT(lSecond, EndsWith("Z error: second\n"));
    EXPECT_EQ(lSecond.find('\n'), lSecond.size() - 1); // why is said once

    lSettings.mFile = KyTest::Process::TemporaryFile(".log");
    EXPECT_EQ(lLog.Use(lSettings), ""); // another file is tried
    lLog.Add(LogLevel::Information, "third");
    EXPECT_THAT(KyTest::ReadFile(lSettings.mFile), EndsWith("Z third\n"));
    EXPECT_EQ(lLog.Use({}), "");
    std::remove(lSettings.mFile.c_str());
}

} // namespace
