#pragma once

#include "Tests/Support/Process.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// This test program started again, as the peer in another process. It says with its output how far it is, and does
/// what its input says.
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

    /// Expects that it ends by itself after this order.
    void ExpectEnd(const std::string& aOrder)
    {
        EXPECT_TRUE(Feed(aOrder + "\n"));
        EXPECT_EQ(Wait(), 0);
    }
};

/// What a peer does; its result is the exit code.
int RunPeer(const std::vector<std::string>& aArguments);
