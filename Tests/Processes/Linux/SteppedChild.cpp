#include "Tests/Processes/Linux/SteppedChild.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <sched.h>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

namespace
{

/// Keeps this thread and another one on one processor: two that take turns at each instruction are three times as fast
/// there, since neither has to wake the other's processor.
class OnOneProcessor
{
public:
    explicit OnOneProcessor(pid_t aOther) : mOther(aOther)
    {
        cpu_set_t lOne;
        CPU_ZERO(&lOne);
        CPU_SET(::sched_getcpu(), &lOne);
        mIsKnown = ::sched_getaffinity(0, sizeof(mBefore), &mBefore) == 0;
        Set(lOne);
    }

    ~OnOneProcessor() { Set(mBefore); }
    OnOneProcessor(const OnOneProcessor&) = delete;
    OnOneProcessor& operator=(const OnOneProcessor&) = delete;

private:
    // Without effect where the system does not allow it, or when the other one has ended: then it is only slower.
    void Set(const cpu_set_t& aProcessors) const
    {
        if (mIsKnown)
        {
            ::sched_setaffinity(mOther, sizeof(aProcessors), &aProcessors);
            ::sched_setaffinity(0, sizeof(aProcessors), &aProcessors);
        }
    }

    pid_t mOther;
    cpu_set_t mBefore{};
    bool mIsKnown = false;
};

} // namespace

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
    const OnOneProcessor lTogether(mProcess);
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

int SteppedChild::Survey(int aMost, SteppedRun& aRun)
{
    constexpr long cCall = 0x050F;              // the instruction, low byte first
    std::unordered_map<uint64_t, bool> lIsCall; // by address: most are in loops
    const OnOneProcessor lTogether(mProcess);
    int lDone = 0;
    for (; lDone < aMost; ++lDone)
    {
        const uint64_t lAddress = GetAddress();
        const auto [lFound, lIsNew] = lIsCall.try_emplace(lAddress, false);
        if (lIsNew)
        {
            errno = 0;
            const long lWord = ::ptrace(PTRACE_PEEKTEXT, mProcess, lAddress, nullptr);
            lFound->second = errno == 0 && (lWord & 0xFFFF) == cCall;
        }
        aRun.mAddresses.push_back(lAddress);
        if (lFound->second)
        {
            aRun.mCalls.push_back(lDone);
        }
        if (::ptrace(PTRACE_SINGLESTEP, mProcess, nullptr, nullptr) != 0 || AwaitStop() != SIGTRAP)
        {
            break;
        }
    }
    return lDone;
}

uint64_t SteppedChild::GetAddress() const
{
    return static_cast<uint64_t>(
        ::ptrace(PTRACE_PEEKUSER, mProcess, offsetof(user, regs) + offsetof(user_regs_struct, rip), nullptr));
}

int SteppedChild::GoTo(int aInstruction, const SteppedRun& aRun)
{
    const auto lNext = std::upper_bound(aRun.mCalls.begin(), aRun.mCalls.end(), aInstruction);
    int lDone = 0;
    if (lNext != aRun.mCalls.begin())
    {
        StepCalls(static_cast<int>(2 * (lNext - aRun.mCalls.begin()) - 1)); // each begins and ends
        lDone = *(lNext - 1);
        lDone += lDone < aInstruction ? Step(1) : 0; // the call's end
    }
    // A breakpoint stops once at an instruction that repeats itself; stepping takes each repetition for an instruction.
    const auto lAddress = [&aRun](int aIndex) { return aRun.mAddresses.at(static_cast<size_t>(aIndex)); };
    const auto lBegins = [&](int aIndex)
    { return aIndex == lDone || lAddress(aIndex - 1) != lAddress(aIndex); };
    int lStart = aInstruction;
    while (!lBegins(lStart))
    {
        --lStart;
    }
    int lStops = 1;
    for (int lIndex = lDone; lIndex < lStart; ++lIndex)
    {
        lStops += lAddress(lIndex) == lAddress(lStart) && lBegins(lIndex) ? 1 : 0;
    }
    if (lStart > lDone && lStops < lStart - lDone && PassBreakpoint(lAddress(lStart), lStops))
    {
        lDone = lStart;
    }
    return lDone + Step(aInstruction - lDone);
}

/// Runs at full speed up to the aTimes-th time that it comes to an instruction. The breakpoint is the processor's and this
/// thread's: one that is written into the code would kill the other threads that come there.
/// \return False: it has stopped elsewhere, or, where the machine has no such breakpoint, not moved.
bool SteppedChild::PassBreakpoint(uint64_t aAddress, int aTimes)
{
    const auto lSet = [this](size_t aRegister, uint64_t aValue)
    {
        return ::ptrace(PTRACE_POKEUSER, mProcess, offsetof(user, u_debugreg) + aRegister * sizeof(long),
                        aValue) == 0;
    };
    constexpr size_t cControl = 7;
    if (!lSet(0, aAddress) || !lSet(cControl, 1)) // an instruction, of this thread alone
    {
        return false;
    }
    const bool lThere = StepBy(PTRACE_CONT, aTimes) == aTimes;
    return lSet(cControl, 0) && lThere;
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
