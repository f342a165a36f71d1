#pragma once

#include "Support/CapturedRun.h"
#include "kyserial/Options/CommandLine.h"

#include <string>
#include <vector>

namespace KyTest
{

/// Runs a command of kyserial within the test.
inline CapturedResult RunCommand(const std::vector<std::string>& aWords, const std::string& aInput = {})
{
    std::vector<const char*> lArguments = {"kyserial"};
    for (const std::string& lWord : aWords)
    {
        lArguments.push_back(lWord.c_str());
    }
    return CapturedRun(
        [&](KyToolPlatform::Console& aConsole) {
            return KySerialTool::RunCommandLine(static_cast<int>(lArguments.size()), lArguments.data(),
                                                aConsole);
        },
        aInput);
}

/// The same with the simulated camera.
inline CapturedResult RunOnCamera(std::vector<std::string> aWords, const std::string& aInput = {})
{
    aWords.insert(aWords.end(), {"--device", "sim"});
    return RunCommand(aWords, aInput);
}

/// Expects a command to try nothing and to end with status 2 after exactly this line on the error output.
inline void ExpectRefused(const std::vector<std::string>& aWords, const std::string& aReason)
{
    const CapturedResult lResult = RunOnCamera(aWords);
    EXPECT_EQ(2, lResult.mStatus) << aReason;
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_EQ("kyserial: " + aReason + '\n', lResult.mError);
}

} // namespace KyTest
