#pragma once

#include "Tests/Support/Process.h"

#include <string>
#include <vector>

/// This test program started again, as the peer in another process. It says with its output how far it is, and does
/// what its input says.
class ChildProcess : public KyTest::Process
{
public:
    /// Starts a peer; its arguments are "--peer" and these.
    explicit ChildProcess(std::vector<std::string> aArguments)
    {
        aArguments.insert(aArguments.begin(), "--peer");
        Files lFiles;
        lFiles.mInput = Input::Pipe;
        mIsStarted = Start("ProcessesTest", aArguments, lFiles);
    }

    /// Waits until the peer says this.
    bool Says(const std::string& aText) { return mIsStarted && WaitForOutput(aText); }

private:
    bool mIsStarted = false;
};

/// What a peer does; its result is the exit code.
int RunPeer(const std::vector<std::string>& aArguments);
