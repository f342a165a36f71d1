#include "Tests/Processes/ChildProcess.h"

#include <gtest/gtest.h>

int main(int aCount, char** aArguments)
{
    const std::vector<std::string> lArguments(aArguments + 1, aArguments + aCount);
    if (!lArguments.empty() && lArguments[0] == "--peer")
    {
        return RunPeer({lArguments.begin() + 1, lArguments.end()});
    }
    testing::InitGoogleTest(&aCount, aArguments);
    return RUN_ALL_TESTS();
}
