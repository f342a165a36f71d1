#include "KyPlatform/WordWait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using KyPlatform::WordWait;

namespace
{

using Clock = std::chrono::steady_clock;

TEST(WordWaitTest, DoesNotSleepWhenTheWordIsAnother)
{
    const std::atomic<uint32_t> lWord{7};
    WordWait::Sleep(lWord, 6, KyPlatform::cInfinite);
    EXPECT_EQ(lWord, 7U);
}

TEST(WordWaitTest, ASleepEndsAfterItsTime)
{
    const std::atomic<uint32_t> lWord{7};
    const auto lStart = Clock::now();
    while (Clock::now() - lStart < std::chrono::milliseconds(20)) // it may come back early
    {
        WordWait::Sleep(lWord, 7, 20);
    }
    EXPECT_LT(Clock::now() - lStart, std::chrono::seconds(20));
}

TEST(WordWaitTest, AWakeReachesOneThatSleepsWithoutEnd)
{
    std::atomic<uint32_t> lWord{0};
    std::thread lSleeper(
        [&lWord]
        {
            while (lWord == 0)
            {
                WordWait::Sleep(lWord, 0, KyPlatform::cInfinite);
            }
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // most often it sleeps by then
    lWord = 1;
    WordWait::WakeOne(&lWord);
    lSleeper.join();
}

TEST(WordWaitTest, AWakeForAllReachesAll)
{
    std::atomic<uint32_t> lWord{0};
    std::vector<std::thread> lSleepers;
    lSleepers.reserve(4);
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        lSleepers.emplace_back(
            [&lWord]
            {
                while (lWord == 0)
                {
                    WordWait::Sleep(lWord, 0, KyPlatform::cInfinite);
                }
            });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // most often all sleep by then
    lWord = 1;
    WordWait::WakeAll(&lWord);
    for (std::thread& lSleeper : lSleepers)
    {
        lSleeper.join();
    }
}

} // namespace
