#include "kyserial/Text/FileContent.h"

#include "Support/CapturedRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

using namespace KySerialTool;
using KyTest::Process;
using testing::HasSubstr;

using FileBytes = std::vector<uint8_t>;

class FileContentTest : public testing::Test
{
protected:
    ~FileContentTest() override { std::remove(mFile.c_str()); }

    template<typename Error, typename Call>
    static std::string ErrorOf(const Call& aCall)
    {
        try
        {
            aCall();
        }
        catch (const Error& lError)
        {
            return lError.what();
        }
        return "nothing was thrown";
    }

    const std::string mFile = Process::TemporaryFile(".bin");
    KyToolPlatform::Console mConsole;
    Context mContext{mConsole};
};

TEST_F(FileContentTest, AFileIsReadAsItWasWritten)
{
    FileBytes lBytes(10000);
    for (size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex)
    {
        lBytes[lIndex] = static_cast<uint8_t>(lIndex * 7); // line ends and ends of files among them
    }
    SaveFile(mContext, mFile, lBytes);
    EXPECT_EQ(lBytes, LoadFile(mContext, mFile, lBytes.size()));
    SaveFile(mContext, mFile, {1});
    EXPECT_EQ(FileBytes{1}, LoadFile(mContext, mFile, 1)) << "the former bytes are gone";
}

TEST_F(FileContentTest, AFileThatIsTooLongIsAUsageError)
{
    SaveFile(mContext, mFile, FileBytes(65));
    EXPECT_EQ(mFile + " has more than 64 bytes, which is all that the memory takes there",
              ErrorOf<UsageError>([&] { LoadFile(mContext, mFile, 64); }));
}

TEST_F(FileContentTest, TheStandardInputHasTheSameLimit)
{
    const KyTest::StandardInput lInput("12345");
    EXPECT_THAT(ErrorOf<UsageError>([&] { LoadFile(mContext, "-", 4); }), HasSubstr("- has more than 4"));
}

TEST_F(FileContentTest, TheStandardInputIsReadToItsEnd)
{
    const KyTest::StandardInput lInput("12345");
    EXPECT_EQ((FileBytes{'1', '2', '3', '4', '5'}), LoadFile(mContext, "-", 5));
}

TEST_F(FileContentTest, AFailureHasItsReason)
{
    const std::string lFolder = std::filesystem::temp_directory_path().string();
    EXPECT_THAT(ErrorOf<OperationError>([&] { LoadFile(mContext, mFile, 1); }),
                HasSubstr("cannot read " + mFile + ": "));
    EXPECT_EQ("cannot read " + lFolder + ": it is a directory",
              ErrorOf<OperationError>([&] { LoadFile(mContext, lFolder, 1); }));
    EXPECT_EQ("cannot write " + lFolder + ": it is a directory",
              ErrorOf<OperationError>([&] { SaveFile(mContext, lFolder, {1}); }));
}

TEST_F(FileContentTest, VerifyNamesTheFirstDifference)
{
    EXPECT_NO_THROW(Verify({1, 2, 3}, {1, 2, 3}, 0));
    EXPECT_EQ("verification failed at 0x0101: wrote 0x02, read 0xff",
              ErrorOf<OperationError>(
                  [] {
                      Verify({1, 2, 3}, {1, 0xFF, 0xFF}, 0x100);
                  }));
}

} // namespace
