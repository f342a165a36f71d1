// What becomes of waits and locks when the system refuses or interrupts them.

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/Session.h"
#include "KyPlatform/StopEvent.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/UniqueName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/futex.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace KyPlatform;
using KyTest::ScriptedCall;
using S = SystemCalls;

namespace
{

class RefusedEventTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(mEvent.Create("Local\\" + UniqueName("KyEvent"))); }

    NamedEvent mEvent;
};

TEST_F(RefusedEventTest, SetFailsWhenSleepersCannotBeWoken)
{
    ASSERT_EQ(mEvent.Wait(1), WaitResult::TimedOut); // somebody may be asleep since then
    {
        const ScriptedCall<&S::mFutex> lFutex(EFAULT);
        EXPECT_FALSE(mEvent.Set());
    }
    EXPECT_EQ(mEvent.Wait(0), WaitResult::Done); // set all the same
    EXPECT_TRUE(mEvent.Close());
    EXPECT_FALSE(mEvent.Wake());
}

TEST_F(RefusedEventTest, WaitFailsWhenTheSystemDoesNotLetItSleep)
{
    const ScriptedCall<&S::mFutex> lFutex(EFAULT);
    EXPECT_EQ(mEvent.Wait(1), WaitResult::Failed);
    EXPECT_EQ(mEvent.Wait(KyPlatform::cInfinite), WaitResult::Failed);
}

TEST_F(RefusedEventTest, WaitGoesOnAfterSignalsForItsTime)
{
    int lSleeps = 0;
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int, uint32_t, const timespec* aTime)
        {
            std::this_thread::sleep_for(std::chrono::nanoseconds(aTime->tv_nsec / 2));
            ++lSleeps;
            errno = lSleeps % 2 == 0 ? EAGAIN : EINTR;
            return -1L;
        });
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(mEvent.Wait(8), WaitResult::TimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(8));
    EXPECT_GT(lSleeps, 1);
}

TEST_F(RefusedEventTest, EndlessWaitEndsByTheEventOnly)
{
    int lSleeps = 0;
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int aOperation, uint32_t, const timespec*)
        {
            bool lIgnored = false;
            if (aOperation == FUTEX_WAIT && ++lSleeps == 3)
            {
                EXPECT_TRUE(mEvent.Raise(lIgnored));
                return 0L;
            }
            errno = ETIMEDOUT;
            return -1L;
        });
    EXPECT_EQ(mEvent.Wait(KyPlatform::cInfinite), WaitResult::Done);
    EXPECT_EQ(lSleeps, 3);
}

class RefusedMutexTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(mMutex.Create(mName)); }

    const std::string mName = "Local\\" + UniqueName("KyMutex");
    NamedMutex mMutex;
};

TEST_F(RefusedMutexTest, WaitFailsWhenTheSystemDoesNotLetItSleep)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    std::thread(
        [this]
        {
            const ScriptedCall<&S::mFutex> lFutex(EFAULT);
            EXPECT_EQ(mMutex.Wait(5000), WaitResult::Failed);
            EXPECT_FALSE(mMutex.Release());
        })
        .join();
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(RefusedMutexTest, WaitGoesOnAfterSignalsForItsTime)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    int lSleeps = 0;
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int, uint32_t, const timespec* aTime)
        {
            errno = ++lSleeps % 2 == 0 ? EAGAIN : EINTR;
            if (lSleeps > 4 &&
                aTime != nullptr) // the first ones at once: a busy machine sleeps longer than asked
            {
                const int lError = errno;
                std::this_thread::sleep_for(std::chrono::nanoseconds(aTime->tv_nsec / 2));
                errno = lError;
            }
            return -1L;
        });
    const auto lStart = std::chrono::steady_clock::now();
    std::thread([this] { EXPECT_EQ(mMutex.Wait(100), WaitResult::TimedOut); }).join();
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(100));
    EXPECT_GT(lSleeps, 3);
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(RefusedMutexTest, LockIsNotTakenFromAnOwnerWhenTheSystemDoesNotSayThatItIsDead)
{
    NamedMutex lOther;
    ASSERT_TRUE(lOther.Open(mName));
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    const ScriptedCall<&S::mLockByte> lLock(EIO);
    std::thread([&] { EXPECT_EQ(lOther.Wait(1), WaitResult::TimedOut); }).join();
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(RefusedMutexTest, ObjectWithoutAPlaceIsNotOpened)
{
    NamedMutex lOther;
    {
        const ScriptedCall<&S::mLockByte> lLock(ENOLCK);
        EXPECT_FALSE(lOther.Open(mName));
    }
    int lLocks = 0;
    {
        const ScriptedCall<&S::mLockByte> lLock(
            [&](int aFile, int aCommand, struct flock* aLock)
            {
                errno = EAGAIN; // as when another holder has the place
                return ++lLocks < 3 ? -1 : GetRealSystem().mLockByte(aFile, aCommand, aLock);
            });
        EXPECT_TRUE(lOther.Open(mName));
    }
    EXPECT_EQ(lLocks, 3);
    const ScriptedCall<&S::mLockByte> lLock(EAGAIN);
    EXPECT_FALSE(lOther.Open(mName)); // all places are taken
}

TEST(RefusedStopTest, SetIsDoneWhenTheCounterIsFull)
{
    StopEvent lStop;
    ASSERT_TRUE(lStop.Create());
    {
        const ScriptedCall<&S::mWrite> lWrite(EAGAIN);
        EXPECT_TRUE(lStop.Set());
    }
    const ScriptedCall<&S::mWrite> lWrite(EIO);
    EXPECT_FALSE(lStop.Set());
}

TEST(RefusedStopTest, WaitGoesOnAfterSignalsAndFailsWithTheSystem)
{
    StopEvent lStop;
    ASSERT_TRUE(lStop.Create());
    int lPolls = 0;
    const ScriptedCall<&S::mPoll> lPoll(
        [&](pollfd*, nfds_t, int)
        {
            errno = ++lPolls < 3 ? EINTR : ENOMEM;
            return -1;
        });
    EXPECT_EQ(lStop.Wait(100), WaitResult::Failed);
    EXPECT_EQ(lPolls, 3);
}

TEST(RefusedSessionTest, FolderThatCannotBeLookedAtIsAnObstacle)
{
    Session::ForgetObstacle();
    const ScriptedCall<&S::mOpen> lOpen([](int, const char*, int aFlags, mode_t)
                                        { return ::open("/", aFlags); });
    EXPECT_EQ(Session::GetObstacle().find("cannot be opened"), std::string::npos);
    {
        const ScriptedCall<&S::mGetStatus> lStatus(EIO);
        EXPECT_NE(Session::GetObstacle().find(" cannot be opened."), std::string::npos);
    }
    const ScriptedCall<&S::mGetUser> lUser([] { return 4711U; });
    EXPECT_NE(Session::GetObstacle().find("4711 belongs to user "), std::string::npos);
}

TEST(RefusedSessionTest, WhatIsInTheWayOfTheFirstObjectIsTold)
{
    const PrivateSession lSession; // it has no folder yet
    Session::ForgetObstacle();
    const ScriptedCall<&S::mMakeFolder> lMake(EROFS);
    NamedEvent lEvent;
    EXPECT_FALSE(lEvent.Create("Local\\Event"));
    EXPECT_THAT(Session::GetObstacle(),
                testing::EndsWith("Session-40: its folder cannot be made: Read-only file system."));
}

// The objects work then, for processes of the same user.
TEST(RefusedSessionTest, AFolderWhoseRightsCannotBeChangedStaysTheUsersAlone)
{
    PrivateSession lSession;
    NamedEvent lFirst;
    ASSERT_TRUE(lFirst.Create("Local\\First"));
    lSession.Share();
    const auto lGetMode = [](const std::string& aFile)
    {
        struct stat lStatus = {};
        const std::string lFolder = gSystem.mFolder + std::to_string(gSystem.mGetUser());
        EXPECT_EQ(::stat((lFolder + aFile).c_str(), &lStatus), 0);
        return lStatus.st_mode & 0777U;
    };
    NamedEvent lSecond;
    {
        const ScriptedCall<&S::mOpen> lOpen(
            [](int aFolder, const char* aName, int aFlags, mode_t aMode)
            {
                errno = EACCES;
                return aFlags == (O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                           ? -1
                           : GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
            });
        EXPECT_TRUE(lSecond.Create("Local\\Second"));
    }
    EXPECT_EQ(lGetMode(""), 0700U);
    EXPECT_EQ(lGetMode("/Second.event"), 0600U);
    EXPECT_TRUE(lSecond.Create("Local\\Third"));
    EXPECT_EQ(lGetMode(""), 0710U);
    EXPECT_EQ(lGetMode("/Third.event"), 0660U);
}

TEST(RefusedWatchTest, AFileThatCannotBeWatchedLeavesNoDescriptor)
{
    const int lNext = ::dup(0);
    ::close(lNext);
    errno = 0;
    EXPECT_EQ(GetRealSystem().mWatch("/no/such/file"), -1);
    EXPECT_EQ(errno, ENOENT);
    const int lThen = ::dup(0);
    ::close(lThen);
    EXPECT_EQ(lThen, lNext);
}

TEST(RefusedSessionTest, FolderThatCannotBeOpenedIsAnObstacleAndAMissingOneIsNot)
{
    Session::ForgetObstacle();
    {
        const ScriptedCall<&S::mOpen> lOpen(ENOENT);
        EXPECT_EQ(Session::GetObstacle(), "");
    }
    const ScriptedCall<&S::mOpen> lOpen(EMFILE);
    EXPECT_NE(Session::GetObstacle().find(" cannot be opened."), std::string::npos);
}

} // namespace
