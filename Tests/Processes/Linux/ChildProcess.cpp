#include "Tests/Processes/ChildProcess.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

struct ChildProcess::State
{
    pid_t mProcess = -1;
    int mInput = -1;  // the child's standard output
    int mOutput = -1; // the child's standard input

    int Reap()
    {
        int lStatus = 0;
        while (::waitpid(mProcess, &lStatus, 0) < 0 && errno == EINTR)
        {
        }
        mProcess = -1;
        return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -1;
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& aArguments) : mState(std::make_unique<State>())
{
    std::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> lIn{};
    std::array<int, 2> lOut{};
    if (::pipe2(lIn.data(), O_CLOEXEC) != 0 || ::pipe2(lOut.data(), O_CLOEXEC) != 0)
    {
        throw std::runtime_error("pipe");
    }
    posix_spawn_file_actions_t lActions;
    ::posix_spawn_file_actions_init(&lActions);
    ::posix_spawn_file_actions_adddup2(&lActions, lOut[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&lActions, lIn[1], STDOUT_FILENO);
    std::vector<std::string> lTexts = {"peer", "--peer"};
    lTexts.insert(lTexts.end(), aArguments.begin(), aArguments.end());
    std::vector<char*> lPointers;
    for (std::string& lText : lTexts)
    {
        lPointers.push_back(lText.data());
    }
    lPointers.push_back(nullptr);
    const int lError =
        ::posix_spawn(&mState->mProcess, "/proc/self/exe", &lActions, nullptr, lPointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&lActions);
    ::close(lIn[1]);
    ::close(lOut[0]);
    mState->mInput = lIn[0];
    mState->mOutput = lOut[1];
    if (lError != 0)
    {
        throw std::runtime_error("posix_spawn");
    }
}

ChildProcess::~ChildProcess()
{
    Kill();
    ::close(mState->mInput);
    ::close(mState->mOutput);
}

std::string ChildProcess::ReadLine()
{
    std::string lLine;
    char lLetter = 0;
    while (::read(mState->mInput, &lLetter, 1) == 1 && lLetter != '\n')
    {
        lLine += lLetter;
    }
    return lLine;
}

void ChildProcess::WriteLine(const std::string& aLine)
{
    const std::string lText = aLine + "\n";
    if (::write(mState->mOutput, lText.data(), lText.size()) != static_cast<ssize_t>(lText.size()))
    {
        throw std::runtime_error("peer is gone");
    }
}

void ChildProcess::Kill()
{
    if (mState->mProcess >= 0)
    {
        ::kill(mState->mProcess, SIGKILL);
        mState->Reap();
    }
}

int ChildProcess::Wait()
{
    return mState->Reap();
}

int ChildProcess::ScaleRounds(int aRounds)
{
    return aRounds;
}
