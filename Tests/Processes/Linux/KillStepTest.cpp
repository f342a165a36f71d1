#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Processes/Linux/SteppedChild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <unistd.h>

namespace
{

/// Kills a process after each of its instructions in turn, the C library's included.
class KillStepTest : public testing::TestWithParam<KillCase>
{
protected:
    void SetUp() override
    {
#if defined(KYTEST_INSTRUMENTED)
        GTEST_SKIP() << "a sanitizer's instructions are not those that ship";
#endif
    }

    static const char* GetLongForm()
    {
        return std::getenv("KYSERIAL_KILL_POINTS"); // NOLINT(concurrency-mt-unsafe): one thread
    }

    using Run = std::function<int(SteppedChild&)>;

    /// Sets the scene, lets the child run as aRun says, kills it, and looks; again, as long as the survivor
    /// was late: a place at which it always is, is bad, and a machine that was busy with other things is not
    /// each time. \param aWrong  Receives what the survivor found. \return What aRun returns.
    int KillAfter(const Run& aRun, std::string& aWrong)
    {
        constexpr int cTries = 5;
        int lDone = 0;
        std::string lLate = "?";
        for (int lTry = 0; lTry < cTries && !lLate.empty(); ++lTry)
        {
            mRepeated += lTry > 0 ? 1 : 0;
            lDone = KillOnce(aRun, aWrong, lLate);
            aWrong += aWrong.empty() && lTry == cTries - 1 ? lLate : "";
        }
        return lDone;
    }

    static int KillOnce(const Run& aRun, std::string& aWrong, std::string& aLate)
    {
        const std::unique_ptr<KillScenario> lScenario = GetParam().mMake();
        SteppedChild lChild([&] { lScenario->Before(); }, [&] { lScenario->Steps(); });
        lScenario->Beside();
        const int lDone = aRun(lChild);
        lChild.Kill();
        aWrong = lScenario->Bury();
        aLate = aWrong.empty() ? lScenario->GetLate() : "";
        return lDone;
    }

    static bool IsSampled()
    {
        return GetParam().mIsLarge && GetLongForm() == nullptr;
    }

    static constexpr int cShortRun = 100000; // instructions in all, about
    static constexpr int cStride = 40;       // from a call into the system to the next one of a sample

    int mRepeated = 0; // deaths, because the survivor was late
};

TEST_P(KillStepTest, SurvivorGoesOnWhereverThePeerDies)
{
    std::string lWrong;
    if (IsSampled())
    {
        // Some way after its second call: to find out how long it is would take longer than the rest.
        KillAfter([](SteppedChild& aChild) { return aChild.StepCalls(3) + aChild.Step(99); }, lWrong);
        EXPECT_EQ(lWrong, "");
        return;
    }
    const int lMost = GetLongForm() != nullptr ? std::numeric_limits<int>::max() : cShortRun;
    SteppedRun lSurvey;
    const int lLength = KillAfter(
        [&](SteppedChild& aChild)
        {
            lSurvey = {};
            return aChild.Survey(lMost, lSurvey);
        },
        lWrong);
    ASSERT_EQ(lWrong, "") << "after the end or " << lMost;
    ASSERT_GT(lLength, 100);
    // Spread evenly over the instructions: as many deaths as a short run has time for, or KYSERIAL_KILL_POINTS.
    const int lPoints =
        std::min(lLength, GetLongForm() != nullptr ? std::atoi(GetLongForm())
                                                   : std::clamp(4 * cShortRun / lLength, 2, 40));
    int lBad = 0;
    for (int lPoint = 0; lPoint < lPoints; ++lPoint)
    {
        const auto lStep = static_cast<int>(int64_t{lLength} * lPoint / lPoints);
        KillAfter([&](SteppedChild& aChild) { return aChild.GoTo(lStep, lSurvey); }, lWrong);
        lBad += lWrong.empty() ? 0 : 1;
        EXPECT_EQ(lWrong, "") << "after " << lStep << " of " << lLength << " instructions";
    }
    std::cout << GetParam().mName << ": " << lLength << " instructions, " << lPoints << " deaths, " << lBad
              << " bad, " << mRepeated << " repeated\n";
}

TEST_P(KillStepTest, SurvivorGoesOnWhenThePeerDiesInAnySystemCall)
{
    std::string lWrong;
    int lStep = 0;
    int lDeaths = 0;
    const auto lRun = [&](SteppedChild& aChild) { return aChild.StepCalls(lStep); };
    for (; KillAfter(lRun, lWrong) == lStep; lStep += IsSampled() ? cStride : 1)
    {
        ++lDeaths;
        EXPECT_EQ(lWrong, "") << "after stop " << lStep;
    }
    EXPECT_EQ(lWrong, "") << "after the end";
    std::cout << GetParam().mName << ": " << lDeaths << " deaths at system calls, " << mRepeated
              << " repeated\n";
}

TEST(SteppedChildTest, GoesToTheInstructionThatAllStepsLeadTo)
{
#if defined(KYTEST_INSTRUMENTED)
    GTEST_SKIP() << "too many instructions";
#endif
    std::array<char, 300> lText{};
    const auto lSteps = [&lText]
    {
        for (int lRound = 0; lRound < 3; ++lRound)
        {
            ::getppid();
            for (char& lCharacter : lText)
            {
                lCharacter = static_cast<char>(lCharacter + lRound);
            }
        }
    };
    SteppedRun lRun;
    const int lLength = SteppedChild([] {}, lSteps).Survey(std::numeric_limits<int>::max(), lRun);
    ASSERT_GT(lLength, 3 * static_cast<int>(lText.size()));
    ASSERT_GE(lRun.mCalls.size(), 3U);
    std::vector<int> lPlaces{0, 1};
    for (const int lCall : lRun.mCalls)
    {
        lPlaces.insert(lPlaces.end(), {lCall - 1, lCall + 1, lCall + 2});
    }
    for (int lPlace = 0; lPlace < lLength; lPlace += lLength / 20)
    {
        lPlaces.push_back(lPlace);
    }
    for (const int lPlace : lPlaces)
    {
        const bool lIsCall = std::count(lRun.mCalls.begin(), lRun.mCalls.end(), lPlace) > 0;
        if (lPlace >= lLength || lIsCall) // the fast way ends inside a call, after its instruction
        {
            continue;
        }
        SteppedChild lChild([] {}, lSteps);
        EXPECT_EQ(lChild.GoTo(lPlace, lRun), lPlace);
        EXPECT_EQ(lChild.GetAddress(), lRun.mAddresses.at(static_cast<size_t>(lPlace)))
            << lPlace << " of " << lLength;
    }
}

INSTANTIATE_TEST_SUITE_P(Fifo, KillStepTest, testing::ValuesIn(GetFifoKillCases()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Registry, KillStepTest, testing::ValuesIn(GetRegistryKillCases()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Bridge, KillStepTest, testing::ValuesIn(GetBridgeKillCases()),
                         testing::PrintToStringParamName());

} // namespace
