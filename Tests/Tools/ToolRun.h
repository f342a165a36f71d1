#pragma once

#include "Support/Process.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KyTest
{

/// What the lens of a new simulated camera answers to "STATUS?".
inline constexpr const char* cLensStatus = "STATUS READY ZOOM 0 FOCUS 1000 IRIS 100\r\n";

/// The outcome of a run of kyserial.
struct ToolResult
{
    int mStatus = -1; ///< -1: it did not end by itself.
    std::string mOutput{};
    std::string mError{};
};

/// Runs kyserial with these arguments and this text as its standard input, and waits for its end.
/// \param aEnvironment  See Process::Files.
inline ToolResult RunTool(const std::vector<std::string>& aArguments, const std::string& aInput = {},
                          const std::map<std::string, std::string>& aEnvironment = {})
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInputText = aInput;
    lFiles.mEnvironment = aEnvironment;
    EXPECT_TRUE(lTool.Start("kyserial", aArguments, lFiles));
    ToolResult lResult;
    lResult.mStatus = lTool.Wait().value_or(-1);
    lResult.mOutput = lTool.Output();
    lResult.mError = lTool.Error();
    return lResult;
}

/// Expects a run to end with status 2 after exactly this line on the error output and none on the output.
inline void ExpectUsageError(const std::vector<std::string>& aArguments, const std::string& aLine)
{
    const ToolResult lResult = RunTool(aArguments);
    EXPECT_EQ(2, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_EQ(aLine + "\n", lResult.mError);
}

} // namespace KyTest
