#include "Tests/Processes/Linux/SteppedChild.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

SteppedChild::SteppedChild(const std::function<void()>& aBefore, const std::function<void()>& aSteps)
    : mProcess(::fork())
{
    if (mProcess < 0)
    {
        throw std::runtime_error("fork");
    }
    if (mProcess == 0)
    {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        aBefore();
        ::raise(SIGSTOP);
        aSteps();
        ::raise(SIGSTOP);
        ::_exit(0);
    }
    if (AwaitStop() != SIGSTOP)
    {
        throw std::runtime_error("child did not stop");
    }
    ::ptrace(PTRACE_SETOPTIONS, mProcess, nullptr, PTRACE_O_EXITKILL);
}

SteppedChild::~SteppedChild()
{
    Kill();
}

/// \return The signal that the child stopped with; 0 when it has ended.
int SteppedChild::AwaitStop() const
{
    int lStatus = 0;
    while (::waitpid(mProcess, &lStatus, __WALL) < 0)
    {
        if (errno != EINTR)
        {
            return 0;
        }
    }
    return WIFSTOPPED(lStatus) ? WSTOPSIG(lStatus) : 0;
}

int SteppedChild::StepBy(int aRequest, int aCount)
{
    for (int lDone = 0; lDone < aCount; ++lDone)
    {
        if (::ptrace(static_cast<__ptrace_request>(aRequest), mProcess, nullptr, nullptr) != 0 ||
            AwaitStop() != SIGTRAP)
        {
            return lDone;
        }
    }
    return aCount;
}

int SteppedChild::Step(int aCount)
{
    return StepBy(PTRACE_SINGLESTEP, aCount);
}

int SteppedChild::StepCalls(int aCount)
{
    return StepBy(PTRACE_SYSCALL, aCount);
}

int SteppedChild::Survey(int aMost, std::vector<int>& aCalls)
{
    constexpr long cCall = 0x050F;                        // the instruction, low byte first
    std::unordered_map<unsigned long long, bool> lIsCall; // by address: most are in loops
    int lDone = 0;
    for (; lDone < aMost; ++lDone)
    {
        user_regs_struct lRegisters{};
        ::ptrace(PTRACE_GETREGS, mProcess, nullptr, &lRegisters);
        const auto [lFound, lIsNew] = lIsCall.try_emplace(lRegisters.rip, false);
        if (lIsNew)
        {
            errno = 0;
            const long lWord = ::ptrace(PTRACE_PEEKTEXT, mProcess, lRegisters.rip, nullptr);
            lFound->second = errno == 0 && (lWord & 0xFFFF) == cCall;
        }
        if (lFound->second)
        {
            aCalls.push_back(lDone);
        }
        if (Step(1) != 1)
        {
            break;
        }
    }
    return lDone;
}

void SteppedChild::Kill()
{
    if (mProcess > 0)
    {
        ::kill(mProcess, SIGKILL);
        while (AwaitStop() != 0)
        {
        }
        mProcess = -1;
    }
}
