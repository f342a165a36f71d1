#pragma once

#include <cstdint>
#include <functional>
#include <sys/types.h>
#include <vector>

/// The instructions of a run, in their order.
struct SteppedRun
{
    std::vector<uint64_t> mAddresses; ///< One for each instruction.
    std::vector<int> mCalls;          ///< How many instructions come before each call into the system.
};

/// A forked copy of this process that runs one function, one instruction at a time.
class SteppedChild
{
public:
    /// Forks; the child runs aBefore at full speed and stops where aSteps begins.
    SteppedChild(const std::function<void()>& aBefore, const std::function<void()>& aSteps);

    /// Kills it.
    ~SteppedChild();
    SteppedChild(const SteppedChild&) = delete;
    SteppedChild& operator=(const SteppedChild&) = delete;

    /// Runs up to aCount instructions of aSteps.
    /// \return How many there were: fewer than aCount when aSteps has ended.
    int Step(int aCount);

    /// Runs at full speed up to the aCount-th begin or end of a call into the system.
    /// \return How many there were: fewer than aCount when aSteps has ended.
    int StepCalls(int aCount);

    /// Runs all of aSteps, or aMost instructions, one by one.
    /// \param aRun  Receives what it did.
    /// \return How many instructions there were.
    int Survey(int aMost, SteppedRun& aRun);

    /// Goes from the begin of aSteps to an instruction and stops before it: at full speed to the last call into the system
    /// before it, and on to a breakpoint there, or in steps where these are fewer than the stops at the breakpoint.
    /// \param aRun  A run like this one, which has the instruction.
    /// \return How many instructions there were, if the runs are alike: fewer than aInstruction when aSteps has ended.
    int GoTo(int aInstruction, const SteppedRun& aRun);

    /// Where it has stopped.
    uint64_t GetAddress() const;

    /// Kills it where it is and waits until it is gone.
    void Kill();

private:
    int StepBy(int aRequest, int aCount);
    int AwaitStop() const;
    bool PassBreakpoint(uint64_t aAddress, int aTimes);

    pid_t mProcess = -1;
};
