// What becomes of waits, locks and transfers when the system refuses or interrupts them.

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/Session.h"
#include "KyPlatform/StopEvent.h"
#include "Platform/Console.h"
#include "Platform/PseudoTerminal.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <linux/futex.h>
#include <string>
#include <thread>
#include <vector>

using namespace KyPlatform;
using namespace KyToolPlatform;
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

TEST_F(RefusedEventTest, WaitGoesOnBehindSignalsForItsTime)
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

TEST_F(RefusedMutexTest, WaitGoesOnBehindSignalsForItsTime)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    int lSleeps = 0;
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int, uint32_t, const timespec* aTime)
        {
            std::this_thread::sleep_for(std::chrono::nanoseconds(aTime != nullptr ? aTime->tv_nsec / 2 : 0));
            errno = ++lSleeps % 2 == 0 ? EAGAIN : EINTR;
            return -1L;
        });
    const auto lStart = std::chrono::steady_clock::now();
    std::thread([this] { EXPECT_EQ(mMutex.Wait(30), WaitResult::TimedOut); }).join();
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(30));
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

TEST(RefusedStopTest, WaitGoesOnBehindSignalsAndFailsWithTheSystem)
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

TEST(RefusedSessionTest, FolderThatCannotBeOpenedIsAnObstacleAndOneThatIsNotThereIsNone)
{
    Session::ForgetObstacle();
    {
        const ScriptedCall<&S::mOpen> lOpen(ENOENT);
        EXPECT_EQ(Session::GetObstacle(), "");
    }
    const ScriptedCall<&S::mOpen> lOpen(EMFILE);
    EXPECT_NE(Session::GetObstacle().find(" cannot be opened."), std::string::npos);
}

class RefusedTerminalTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(mStop.Create());
        ASSERT_TRUE(mTerminal.Create());
        mUser = ::open(mTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(mUser, 0);
    }
    ~RefusedTerminalTest() override { ::close(mUser); }

    PseudoTerminal mTerminal;
    StopEvent mStop;
    int mUser = -1;
    std::array<char, 8> mBytes{};
};

TEST_F(RefusedTerminalTest, TransferWithoutAStopEventIsRefused)
{
    mStop.Close();
    EXPECT_EQ(mTerminal.Read(mBytes.data(), 8, mStop).mEnd, HostTransfer::Refused);
    EXPECT_EQ(mTerminal.Write("abc", 3, mStop).mEnd, HostTransfer::Refused);
}

TEST_F(RefusedTerminalTest, TransferThatCannotWaitIsUnsuccessful)
{
    const ScriptedCall<&S::mPoll> lPoll(ENOMEM);
    for (const HostTransferResult& lResult :
         {mTerminal.Read(mBytes.data(), 8, mStop), mTerminal.Write("abc", 3, mStop)})
    {
        EXPECT_EQ(lResult.mEnd, HostTransfer::Unsuccessful);
        EXPECT_EQ(lResult.mBytes, 0U);
        EXPECT_EQ(lResult.mError, static_cast<uint32_t>(ENOMEM));
    }
}

TEST_F(RefusedTerminalTest, TransferGoesOnUntilARealFailure)
{
    // Ready all the time, as the system sees it when a user comes and goes.
    const ScriptedCall<&S::mPoll> lPoll(
        [](pollfd* aPolls, nfds_t, int)
        {
            aPolls[1].revents = aPolls[1].events;
            return 1;
        });
    std::vector<int> lErrors;
    const auto lNext = [&]() -> ssize_t
    {
        errno = lErrors.back();
        lErrors.pop_back();
        return errno == 0 ? 0 : -1;
    };
    const ScriptedCall<&S::mRead> lRead([&](int, void*, size_t) { return lNext(); });
    const ScriptedCall<&S::mWrite> lWrite([&](int, const void*, size_t) { return lNext(); });
    for (const bool lIsRead : {true, false})
    {
        lErrors = {ENXIO, EIO, EINTR, EAGAIN, 0};
        const HostTransferResult lResult =
            lIsRead ? mTerminal.Read(mBytes.data(), 8, mStop) : mTerminal.Write("abc", 3, mStop);
        EXPECT_EQ(lResult.mEnd, HostTransfer::Refused);
        EXPECT_EQ(lResult.mError, static_cast<uint32_t>(ENXIO));
        EXPECT_TRUE(lErrors.empty());
    }
}

class RefusedConsoleTest : public testing::Test
{
protected:
    Console::ReadResult Read(uint32_t aTimeout) { return mConsole.Read(mBytes.data(), 8, mRead, aTimeout); }
    /// The console's input is ready, as far as it asks.
    static int SayReady(pollfd* aPolls, nfds_t, int)
    {
        aPolls[0].revents = aPolls[0].events;
        return 1;
    }

    Console mConsole;
    std::array<uint8_t, 8> mBytes{};
    size_t mRead = 0;
};

TEST_F(RefusedConsoleTest, InputThatCannotBeWaitedForHasEnded)
{
    const ScriptedCall<&S::mPoll> lPoll(ENOMEM);
    EXPECT_EQ(Read(Console::cInfinite), Console::ReadResult::End);
    EXPECT_FALSE(mConsole.WaitForInterrupt(Console::cInfinite));
    EXPECT_FALSE(mConsole.Write(mBytes.data(), 8));
}

TEST_F(RefusedConsoleTest, SignalsAreNoEndOfAWait)
{
    int lPolls = 0;
    const ScriptedCall<&S::mPoll> lPoll(
        [&](pollfd* aPolls, nfds_t aCount, int aTimeout)
        {
            errno = EINTR;
            return ++lPolls % 3 == 0 ? SayReady(aPolls, aCount, aTimeout) : -1;
        });
    const ScriptedCall<&S::mRead> lRead([](int, void*, size_t) { return 5; });
    EXPECT_EQ(Read(Console::cInfinite), Console::ReadResult::Data);
    EXPECT_EQ(mRead, 5U);
    EXPECT_EQ(lPolls, 3);
    EXPECT_TRUE(mConsole.WaitForInterrupt(Console::cInfinite));
    EXPECT_EQ(lPolls, 6);
    const ScriptedCall<&S::mWrite> lWrite([](int, const void*, size_t aSize)
                                          { return static_cast<ssize_t>(aSize); });
    EXPECT_TRUE(mConsole.Write(mBytes.data(), 8));
    EXPECT_EQ(lPolls, 9);
}

TEST_F(RefusedConsoleTest, InputThatAnotherTookIsWaitedForAgain)
{
    const ScriptedCall<&S::mPoll> lPoll(&SayReady);
    int lReads = 0;
    const ScriptedCall<&S::mRead> lRead(
        [&](int, void*, size_t)
        {
            errno = ++lReads == 1 ? EINTR : EAGAIN;
            return lReads < 3 ? -1 : 0;
        });
    EXPECT_EQ(Read(Console::cInfinite), Console::ReadResult::End);
    EXPECT_EQ(lReads, 3);
    lReads = 0;
    EXPECT_EQ(Read(0), Console::ReadResult::TimedOut);
    EXPECT_EQ(lReads, 1);
}

TEST_F(RefusedConsoleTest, ReadThatFailsIsTheEndAndOneForNothingTakesNoTimeAway)
{
    const ScriptedCall<&S::mPoll> lPoll(&SayReady);
    int lReads = 0;
    const ScriptedCall<&S::mRead> lRead(
        [&](int, void*, size_t) -> ssize_t
        {
            constexpr int cErrors[] = {EAGAIN, 0, EIO};
            errno = cErrors[lReads];
            return ++lReads == 2 ? 3 : -1;
        });
    EXPECT_EQ(Read(60000), Console::ReadResult::Data);
    EXPECT_EQ(mRead, 3U);
    EXPECT_EQ(Read(60000), Console::ReadResult::End);
    EXPECT_EQ(lReads, 3);
}

TEST_F(RefusedConsoleTest, WritesEverythingInPartsOrFails)
{
    const ScriptedCall<&S::mPoll> lPoll(&SayReady);
    std::string lTaken;
    int lWrites = 0;
    {
        const ScriptedCall<&S::mWrite> lWrite(
            [&](int, const void* aData, size_t) -> ssize_t
            {
                errno = EAGAIN;
                if (++lWrites % 2 == 0)
                {
                    return -1;
                }
                lTaken.append(static_cast<const char*>(aData), 3);
                return 3;
            });
        EXPECT_TRUE(mConsole.Write(reinterpret_cast<const uint8_t*>("abcdef"), 6));
        EXPECT_EQ(lTaken, "abcdef");
    }
    const ScriptedCall<&S::mWrite> lWrite(EIO);
    EXPECT_FALSE(mConsole.Write(mBytes.data(), 8));
}

TEST_F(RefusedConsoleTest, InterruptEndsAWriteThatNobodyReads)
{
    const ScriptedCall<&S::mPoll> lPoll(
        [](pollfd* aPolls, nfds_t, int)
        {
            aPolls[1].revents = POLLIN;
            return 1;
        });
    EXPECT_FALSE(mConsole.Write(mBytes.data(), 8));
}

TEST_F(RefusedConsoleTest, IsWatchedOnceAndNotWithoutAnEvent)
{
    EXPECT_TRUE(mConsole.WatchInterrupts());
    EXPECT_TRUE(mConsole.WatchInterrupts());
    const ScriptedCall<&S::mMakeEvent> lMake(EMFILE);
    Console lOther;
    EXPECT_FALSE(lOther.WatchInterrupts());
    EXPECT_FALSE(lOther.IsInterrupted());
}

} // namespace
