#include "Tests/Processes/Linux/KillScenario.h"

#include "Tests/Support/WaitFor.h"

std::string KillScenario::Bury()
{
    mDeath.emplace();
    if (mWrong.empty()) // the scene was set
    {
        Check();
    }
    if (mSleeper.joinable())
    {
        mSleeper.join();
    }
    return mWrong;
}

bool KillScenario::Require(bool aIsRight, const std::string& aWrong)
{
    mWrong = aIsRight || !mWrong.empty() ? mWrong : aWrong;
    return aIsRight;
}

void KillScenario::NoteIfLate(const UndisturbedTimer& aSince, std::chrono::milliseconds aBound,
                              const std::string& aWhat)
{
    if (aSince.IsOver(aBound))
    {
        mLate += aWhat + " after " + std::to_string(aSince.GetElapsed().count()) + " ms. ";
    }
}

bool KillScenario::Await(const std::function<bool()>& aIsDone, const UndisturbedTimer& aSince,
                         const std::string& aWhat)
{
    const bool lDone = KyTest::WaitFor(aIsDone, std::chrono::seconds(5));
    NoteIfLate(aSince, cProgress, aWhat);
    return lDone;
}

void KillScenario::StartSleeper(std::function<void()> aSleep)
{
    std::atomic<bool> lStarted{false};
    mAsleep = true;
    mSleeper = std::thread(
        [this, &lStarted, lSleep = std::move(aSleep)]
        {
            lStarted = true;
            lSleep();
            mAsleep = false;
        });
    while (!lStarted)
    {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200)); // most likely asleep by now
}

void KillScenario::RequireWaking(const std::function<void()>& aWake)
{
    const UndisturbedTimer lWatch;
    aWake();
    Require(Await([this] { return HasWoken(); }, lWatch, "the survivor woke"),
            "the survivor sleeps for ever");
}
