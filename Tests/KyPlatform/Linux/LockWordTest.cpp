// A lock whose word holds anything: it is in a file that others may have written to.

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/NamedMutex.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace KyPlatform;

namespace
{

class LockWordTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(mMutex.Create("Local\\" + mName));
        const std::string lFile =
            gSystem.mFolder + std::to_string(gSystem.mGetUser()) + '/' + mName + ".mutex";
        const int lLock = ::open(lFile.c_str(), O_RDWR | O_CLOEXEC);
        void* const lBase = ::mmap(nullptr, 68, PROT_READ | PROT_WRITE, MAP_SHARED, lLock, 0);
        ASSERT_NE(lBase, MAP_FAILED);
        ::close(lLock);
        mWord = static_cast<uint32_t*>(lBase) + 16;
    }
    ~LockWordTest() override { ::munmap(mWord - 16, 68); }

    /// Ends a child in the middle of what it does.
    template<typename tDeed>
    static void DieAfter(const tDeed& aDeed)
    {
        const pid_t lChild = ::fork();
        if (lChild == 0)
        {
            aDeed();
            ::kill(::getpid(), SIGKILL);
        }
        int lStatus = 0;
        ASSERT_EQ(::waitpid(lChild, &lStatus, 0), lChild);
        ASSERT_TRUE(WIFSIGNALED(lStatus));
    }

    const std::string mName = UniqueName("KyMutex");
    NamedMutex mMutex;
    uint32_t* mWord = nullptr;
};

TEST_F(LockWordTest, AnyWordThatNamesNoLivingOwnerIsTakenAtOnceOrAsFromTheDead)
{
    std::mt19937 lRandom(7);
    for (int lTry = 0; lTry < 1000; ++lTry)
    {
        const uint32_t lWord = lTry < 32 ? 1U << lTry : static_cast<uint32_t>(lRandom());
        *mWord = lWord;
        const bool lIsFree = (lWord & 0x3FFFFFFF) == 0;
        ASSERT_EQ(mMutex.Wait(5000), lIsFree ? WaitResult::Done : WaitResult::OwnerDied) << lWord;
        ASSERT_TRUE(mMutex.Release());
        ASSERT_EQ(*mWord, 0U);
    }
}

TEST_F(LockWordTest, LockThatAnotherHasTakenMeanwhileIsNotGivenBackForHim)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    *mWord = 4711;
    EXPECT_FALSE(mMutex.Release());
    EXPECT_EQ(*mWord, 4711U);
    EXPECT_EQ(mMutex.Wait(0), WaitResult::OwnerDied); // there is no such owner
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(LockWordTest, KilledProcessGivesItUpWhetherItOpenedItOrInheritedIt)
{
    for (const bool lInherits : {false, true})
    {
        DieAfter(
            [&]
            {
                NamedMutex lOwn;
                static_cast<void>((lInherits || lOwn.Open("Local\\" + mName)) &&
                                  IsOwned((lInherits ? mMutex : lOwn).Wait(0)));
                ::kill(::getpid(), SIGKILL);
            });
        EXPECT_NE(*mWord, 0U);
        const auto lStart = std::chrono::steady_clock::now();
        EXPECT_EQ(mMutex.Wait(5000), WaitResult::OwnerDied);
        EXPECT_LT(std::chrono::steady_clock::now() - lStart, std::chrono::seconds(1));
        EXPECT_TRUE(mMutex.Release());
    }
}

TEST_F(LockWordTest, SleeperIsGivenWhatAKilledProcessHeld)
{
    int lPipe[2];
    ASSERT_EQ(::pipe(lPipe), 0);
    const pid_t lChild = ::fork();
    if (lChild == 0)
    {
        const bool lDone = IsOwned(mMutex.Wait(0));
        static_cast<void>(::write(lPipe[1], &lDone, 1));
        ::pause();
    }
    bool lDone = false;
    ASSERT_EQ(::read(lPipe[0], &lDone, 1), 1);
    ASSERT_TRUE(lDone);
    std::thread lSleeper([this] { EXPECT_EQ(mMutex.Wait(KyPlatform::cInfinite), WaitResult::OwnerDied); });
    while ((std::atomic_ref<uint32_t>(*mWord).load() & 0x80000000U) == 0)
    {
        std::this_thread::yield(); // until it sleeps
    }
    ::kill(lChild, SIGKILL);
    ::waitpid(lChild, nullptr, 0);
    lSleeper.join();
    ::close(lPipe[0]);
    ::close(lPipe[1]);
}

TEST_F(LockWordTest, ChildOfForkOwnsNothingOfItsParent)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    DieAfter(
        [&]
        {
            const bool lRight = !mMutex.Release() && mMutex.Wait(20) == WaitResult::TimedOut;
            lRight ? static_cast<void>(::kill(::getpid(), SIGKILL)) : ::_exit(1);
        });
    EXPECT_TRUE(mMutex.Release());
    DieAfter([&] { mMutex.Wait(0) == WaitResult::Done&& mMutex.Release() ? void() : ::_exit(1); });
    EXPECT_EQ(mMutex.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
}

} // namespace
