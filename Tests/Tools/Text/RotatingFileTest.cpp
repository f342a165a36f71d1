#include "kyserial/Text/RotatingFile.h"

#include "Support/Process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace
{

using KySerialTool::RotatingFile;
using KyTest::ReadFile;

class RotatingFileTest : public testing::Test
{
protected:
    ~RotatingFileTest() override
    {
        for (const char* const lEnd : {".log", ".1.log", ".2.log", ".3.log"})
        {
            std::remove((mStem + lEnd).c_str());
        }
    }

    const std::string mStem = KyTest::Process::TemporaryFile("");
    const std::string mPath = mStem + ".log";
    RotatingFile mFile;
};

TEST_F(RotatingFileTest, WithoutALimitOneFileTakesAll)
{
    ASSERT_EQ("", mFile.Open(mPath, {}));
    for (int lText = 0; lText < 1000; ++lText)
    {
        EXPECT_FALSE(mFile.Write("0123456789"));
    }
    EXPECT_EQ(10000U, ReadFile(mPath).size());
}

TEST_F(RotatingFileTest, AFullFileIsSetAsideUnderItsNumber)
{
    ASSERT_EQ("", mFile.Open(mPath, {10, 2}));
    EXPECT_FALSE(mFile.Write("first"));
    EXPECT_TRUE(mFile.Write(" file")) << "the tenth byte";
    EXPECT_EQ("", ReadFile(mPath));
    EXPECT_EQ("first file", ReadFile(mStem + ".1.log"));
    EXPECT_TRUE(mFile.Write("a text that is longer than a file"));
    EXPECT_EQ("first file", ReadFile(mStem + ".2.log"));
    EXPECT_EQ("a text that is longer than a file", ReadFile(mStem + ".1.log"));
}

TEST_F(RotatingFileTest, TheOldestIsRemoved)
{
    ASSERT_EQ("", mFile.Open(mPath, {1, 2}));
    for (const char* const lText : {"a", "b", "c"})
    {
        EXPECT_TRUE(mFile.Write(lText));
    }
    EXPECT_EQ("c", ReadFile(mStem + ".1.log"));
    EXPECT_EQ("b", ReadFile(mStem + ".2.log"));
    EXPECT_EQ("", ReadFile(mStem + ".3.log"));
}

TEST_F(RotatingFileTest, WithoutFilesBesideItTheFileBeginsAnew)
{
    ASSERT_EQ("", mFile.Open(mPath, {5, 0}));
    EXPECT_TRUE(mFile.Write("12345"));
    EXPECT_FALSE(mFile.Write("6"));
    EXPECT_EQ("6", ReadFile(mPath));
    EXPECT_EQ("", ReadFile(mStem + ".1.log"));
}

TEST_F(RotatingFileTest, WhatAFileHasCountsFromItsOpening)
{
    ASSERT_TRUE(KyTest::WriteFile(mPath, "12345678"));
    ASSERT_EQ("", mFile.Open(mPath, {10, 1}));
    EXPECT_TRUE(mFile.Write("90"));
    EXPECT_EQ("1234567890", ReadFile(mStem + ".1.log"));
}

TEST_F(RotatingFileTest, AFileThatCannotBeOpenedTakesNothing)
{
    EXPECT_EQ("cannot write .: it is a directory", mFile.Open(".", {}));
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_FALSE(mFile.Write("text"));
    EXPECT_EQ("", mFile.GetFailure()) << "the caller of Open() has the reason";
}

} // namespace
