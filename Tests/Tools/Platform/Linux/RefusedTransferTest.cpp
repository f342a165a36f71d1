// What becomes of the transfers of terminals and consoles when the system refuses or interrupts them.

#include "Platform/Console.h"
#include "Platform/PseudoTerminal.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

using namespace KyPlatform;
using namespace KyToolPlatform;
using KyTest::ScriptedCall;
using S = SystemCalls;

namespace
{

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

TEST_F(RefusedConsoleTest, FailedReadIsTheEndAndAnEmptyOneDoesNotShortenTheWait)
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
