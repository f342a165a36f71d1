#pragma once

#include <functional>
#include <sys/types.h>
#include <vector>

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
    /// \param aCalls  Receives how many instructions come before each call into the system.
    /// \return How many instructions there were.
    int Survey(int aMost, std::vector<int>& aCalls);

    /// Kills it where it is and waits until it is gone.
    void Kill();

private:
    int StepBy(int aRequest, int aCount);
    int AwaitStop() const;

    pid_t mProcess = -1;
};
