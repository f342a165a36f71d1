#pragma once

#include "Platform/Console.h"
#include "Support/Process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace KyTest
{

/// The process's standard input is a text for the life of the object, and empty after that.
class StandardInput
{
public:
    explicit StandardInput(const std::string& aText)
    {
        EXPECT_TRUE(WriteFile(mFile, aText));
        EXPECT_NE(nullptr, std::freopen(mFile.c_str(), "rb", stdin));
    }
    ~StandardInput()
    {
        const char* const lNothing = std::filesystem::exists("/dev/null") ? "/dev/null" : "NUL";
        EXPECT_NE(nullptr, std::freopen(lNothing, "rb", stdin));
        EXPECT_EQ(0, std::remove(mFile.c_str()));
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

private:
    const std::string mFile = Process::TemporaryFile(".input");
};

/// What came of a run within the test.
struct CapturedResult
{
    int mStatus = -1;
    std::string mOutput{};
    std::string mError{};
};

/// Runs a part of a program, which gets a console, aInput as its standard input, and standard outputs of its own.
/// \param aProgram  Returns its exit status. It throws nothing, and it makes no expectation: that would be captured.
template<typename Program>
CapturedResult CapturedRun(const Program& aProgram, const std::string& aInput = {})
{
    const StandardInput lInput(aInput);
    CapturedResult lResult;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        KyToolPlatform::Console lConsole;
        lResult.mStatus = static_cast<int>(aProgram(lConsole));
    }
    lResult.mError = testing::internal::GetCapturedStderr();
    lResult.mOutput = testing::internal::GetCapturedStdout();
    return lResult;
}

} // namespace KyTest
