#include "Tests/Processes/Linux/KillScenario.h"

#include <thread>

std::string KillScenario::Bury()
{
    mDeath.emplace();
    Check();
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
    constexpr std::chrono::seconds cForEver(5);
    const auto lStart = std::chrono::steady_clock::now();
    bool lDone = aIsDone();
    while (!lDone && std::chrono::steady_clock::now() - lStart < cForEver)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        lDone = aIsDone();
    }
    NoteIfLate(aSince, cProgress, aWhat);
    return lDone;
}
