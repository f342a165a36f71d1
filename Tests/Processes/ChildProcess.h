#pragma once

#include "Tests/Support/Process.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

/// This test program started again, as the peer in another process. It says with its output how far it is.
class ChildProcess : public KyTest::Process
{
public:
    /// Starts a peer, whose arguments are "--peer" and these, and expects that it says this.
    ChildProcess(std::vector<std::string> aArguments, const std::string& aGreeting)
    {
        aArguments.insert(aArguments.begin(), "--peer");
        Files lFiles;
        lFiles.mInput = Input::Pipe;
        EXPECT_TRUE(Start("ProcessesTest", aArguments, lFiles) && WaitForOutput(aGreeting));
    }
};

/// A block for a FIFO of 1024 bytes: mostly short, and now and then longer than the FIFO.
inline std::string MakeBlock(std::mt19937& aRandom)
{
    return std::string(1 + aRandom() % (aRandom() % 4 == 0 ? 1500 : 40), '\0');
}
