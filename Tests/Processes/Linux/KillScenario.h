#pragma once

#include "Tests/Processes/Linux/UndisturbedTimer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

/// Something that a process does until it is killed, and what the survivor then has to find. Made anew for
/// every death: construction sets the scene.
class KillScenario
{
public:
    virtual ~KillScenario() = default;

    /// In the child, before the first instruction at which it may be killed.
    virtual void Before() {}

    /// In the survivor, when the child stands before that instruction.
    virtual void Beside() {}

    /// In the child.
    virtual void Steps() = 0;

    /// To be called in the survivor as soon as the child is gone.
    /// \return What is wrong; empty if nothing is.
    std::string Bury();

    /// What came, but later than promised; empty if nothing did.
    std::string GetLate() const { return mLate; }

    /// By then all goes on that a death has held up.
    static constexpr std::chrono::milliseconds cProgress{200};

    /// So much longer than its own time-out may a call be held up by a death.
    static constexpr std::chrono::milliseconds cBeyondTimeout{60};

protected:
    /// In the survivor, when the child is gone: requires what has to be.
    virtual void Check() = 0;

    /// Notes what is wrong, the first time that something is.
    /// \return Whether it is right.
    bool Require(bool aIsRight, const std::string& aWrong);

    /// Since the child was gone; in Check() only.
    const UndisturbedTimer& GetDeath() const { return *mDeath; }

    /// Notes it as late when more than aBound has passed.
    void NoteIfLate(const UndisturbedTimer& aSince, std::chrono::milliseconds aBound,
                    const std::string& aWhat);

    /// Waits for something, and notes it as late when it comes later than cProgress after aSince.
    /// \return False: it did not come in five seconds either.
    bool Await(const std::function<bool()>& aIsDone, const UndisturbedTimer& aSince,
               const std::string& aWhat);

    /// Starts the sleeper, one thread of the survivor: it sleeps in aSleep while the other process dies. Ends before
    /// Bury() does.
    void StartSleeper(std::function<void()> aSleep);
    bool HasWoken() const { return !mAsleep; } ///< True without a sleeper.
    /// Does what wakes the sleeper at the latest, and requires that it wakes.
    void RequireWaking(const std::function<void()>& aWake);

private:
    std::optional<UndisturbedTimer> mDeath;
    std::string mWrong;
    std::string mLate;
    std::atomic<bool> mAsleep{false};
    std::thread mSleeper;
};

struct KillCase
{
    std::string mName;
    std::function<std::unique_ptr<KillScenario>()> mMake;
    bool mIsLarge = false; ///< Too long to be surveyed, or killed in every call, in a short run.

    friend void PrintTo(const KillCase& aCase, std::ostream* aStream) { *aStream << aCase.mName; }
};

/// A scenario that is made with these arguments.
template<typename tScenario, typename... tArguments>
KillCase MakeKillCase(const char* aName, tArguments... aArguments)
{
    return {aName,
            [=]() -> std::unique_ptr<KillScenario> { return std::make_unique<tScenario>(aArguments...); }};
}

std::vector<KillCase> GetFifoKillCases();
std::vector<KillCase> GetRegistryKillCases();
std::vector<KillCase> GetBridgeKillCases();
