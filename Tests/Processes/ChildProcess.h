#pragma once

#include <memory>
#include <string>
#include <vector>

/// This test program started again, as the peer in another process. Talks by lines over its standard files.
class ChildProcess
{
public:
    /// Starts a peer; its arguments are "--peer" and these, which contain no spaces.
    explicit ChildProcess(const std::vector<std::string>& aArguments);

    /// Kills it if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line that the peer writes, without its end; empty when it has ended.
    std::string ReadLine();

    void WriteLine(const std::string& aLine);

    /// Ends it at once, wherever it is, and waits until it is gone.
    void Kill();

    /// Waits until it ends by itself.
    /// \return Its exit code; -1 if it was killed.
    int Wait();

    /// aRounds, or fewer where starting a process takes long.
    static int ScaleRounds(int aRounds);

private:
    struct State;
    std::unique_ptr<State> mState;
};

/// What a peer does; its result is the exit code.
int RunPeer(const std::vector<std::string>& aArguments);
