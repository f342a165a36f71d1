#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Processes/Linux/SteppedChild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>

namespace
{

/// Kills a process behind one instruction after the other, the C library's included.
class KillStepTest : public testing::TestWithParam<KillCase>
{
protected:
    void SetUp() override
    {
        if (IsInstrumented())
        {
            GTEST_SKIP() << "a sanitizer's instructions are not those that ship";
        }
    }

    static const char* GetLongForm()
    {
        return std::getenv("KYSERIAL_KILL_POINTS"); // NOLINT(concurrency-mt-unsafe): one thread
    }

    /// Deaths of one case, spread evenly over its instructions: as many as a short run has time for, or
    /// KYSERIAL_KILL_POINTS.
    static int GetPoints(int aLength)
    {
        constexpr int64_t cShortRun = 200000; // instructions in all
        constexpr int64_t cMost = 40;
        const char* const lText =
            std::getenv("KYSERIAL_KILL_POINTS"); // NOLINT(concurrency-mt-unsafe): one thread
        const int64_t lPoints =
            lText != nullptr ? std::atoi(lText) : std::clamp<int64_t>(2 * cShortRun / aLength, 2, cMost);
        return static_cast<int>(std::min<int64_t>(lPoints, aLength));
    }

    /// \return Steps that were made; aWrong receives what the survivor found.
    static int KillAfter(int (SteppedChild::*aStep)(int), int aSteps, std::string& aWrong)
    {
        const std::unique_ptr<KillScenario> lScenario = GetParam().mMake();
        SteppedChild lChild([&] { lScenario->Before(); }, [&] { lScenario->Steps(); });
        const int lDone = (lChild.*aStep)(aSteps);
        lChild.Kill();
        aWrong = lScenario->Check();
        return lDone;
    }

    static constexpr int cShortRun = 100000; // instructions in all, about
};

TEST_P(KillStepTest, SurvivorGoesOnWhereverThePeerDies)
{
    std::string lWrong;
    const int lMost = GetLongForm() != nullptr ? std::numeric_limits<int>::max() : cShortRun;
    const int lLength = KillAfter(&SteppedChild::Step, lMost, lWrong);
    ASSERT_EQ(lWrong, "") << "after the end or " << lMost;
    ASSERT_GT(lLength, 100);
    const int lPoints = GetPoints(lLength);
    int lBad = 0;
    for (int lPoint = 0; lPoint < lPoints; ++lPoint)
    {
        const auto lStep = static_cast<int>(int64_t{lLength} * lPoint / lPoints);
        KillAfter(&SteppedChild::Step, lStep, lWrong);
        lBad += lWrong.empty() ? 0 : 1;
        EXPECT_EQ(lWrong, "") << "after " << lStep << " of " << lLength << " instructions";
    }
    std::cout << GetParam().mName << ": " << lLength << " instructions, " << lPoints << " deaths, " << lBad
              << " bad\n";
}

TEST_P(KillStepTest, SurvivorGoesOnWhenThePeerDiesInAnySystemCall)
{
    std::string lWrong;
    int lStep = 0;
    for (; KillAfter(&SteppedChild::StepCalls, lStep, lWrong) == lStep; ++lStep)
    {
        EXPECT_EQ(lWrong, "") << "behind stop " << lStep;
    }
    EXPECT_EQ(lWrong, "") << "after the end";
    std::cout << GetParam().mName << ": " << lStep << " deaths at system calls\n";
}

std::vector<KillCase> GetAllCases()
{
    std::vector<KillCase> lCases = GetFifoKillCases();
    const std::vector<KillCase> lMore = GetRegistryKillCases();
    lCases.insert(lCases.end(), lMore.begin(), lMore.end());
    return lCases;
}

INSTANTIATE_TEST_SUITE_P(Cases, KillStepTest, testing::ValuesIn(GetAllCases()),
                         [](const auto& aInfo) { return aInfo.param.mName; });

} // namespace
