// Users of a pseudo terminal that take it as they find it, and systems that refuse.

#include "Platform/PseudoTerminal.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/WaitFor.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <string>
#include <termios.h>
#include <thread>
#include <unistd.h>

using namespace KyPlatform;
using namespace KyToolPlatform;

namespace
{

std::string Read(int aUser)
{
    pollfd lPoll{aUser, POLLIN, 0};
    std::array<char, 100> lBuffer{};
    const bool lReady = ::poll(&lPoll, 1, 50) > 0;
    const ssize_t lRead = lReady ? ::read(aUser, lBuffer.data(), lBuffer.size()) : 0;
    return {lBuffer.data(), lRead > 0 ? static_cast<size_t>(lRead) : 0};
}

class PseudoTerminalUserTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(mStop.Create());
        ASSERT_TRUE(mTerminal.Create());
        mReader = std::thread([this] { ReadAll(); });
    }
    void TearDown() override
    {
        EXPECT_TRUE(mStop.Set());
        mReader.join();
    }
    void ReadAll()
    {
        std::array<char, 100> lBuffer{};
        for (HostTransferResult lRead{HostTransfer::Done}; lRead.mEnd == HostTransfer::Done;)
        {
            lRead = mTerminal.Read(lBuffer.data(), 100, mStop);
            mHeard.append(lBuffer.data(), lRead.mBytes);
        }
    }
    int Open() const { return ::open(mTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC); }
    /// Waits until the reading side has looked at the terminal without user.
    bool WaitUntilClean() const
    {
        for (int lTry = 0; lTry < 1000; ++lTry)
        {
            ::usleep(25000);
            const int lUser = Open();
            termios lLine{};
            const bool lClean = ::tcgetattr(lUser, &lLine) == 0 && (lLine.c_lflag & ECHO) == 0;
            ::close(lUser);
            if (lClean)
            {
                return true;
            }
        }
        return false;
    }

    PseudoTerminal mTerminal;
    StopEvent mStop;
    std::string mHeard; // the thread's, until it is joined
    std::thread mReader;
};

TEST_F(PseudoTerminalUserTest, FindsATransparentLine)
{
    const int lUser = Open();
    EXPECT_EQ(mTerminal.Write("a\x03\n\r", 4, mStop).mBytes, 4U);
    EXPECT_EQ(Read(lUser), "a\x03\n\r"); // neither line by line, nor as signals
    ::close(lUser);
    EXPECT_TRUE(mStop.Set());
    mReader.join();
    EXPECT_EQ(mHeard, "") << "echo";
    mReader = std::thread([] {});
}

TEST_F(PseudoTerminalUserTest, FindsNothingOfTheOneBefore)
{
    int lUser = Open();
    termios lLine{};
    ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
    lLine.c_lflag |= ECHO | ICANON;
    ASSERT_EQ(::tcsetattr(lUser, TCSANOW, &lLine), 0);
    EXPECT_EQ(mTerminal.Write("unread", 6, mStop).mBytes, 6U);
    ::close(lUser);
    ASSERT_TRUE(WaitUntilClean());
    lUser = Open();
    EXPECT_EQ(Read(lUser), "");
    ::close(lUser);
}

// So is the line.
TEST_F(PseudoTerminalUserTest, FindsTheLineOfTheOneBeforeOnlyOnce)
{
    const int lUser = Open();
    termios lLine{};
    ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
    lLine.c_lflag |= ECHO;
    ASSERT_EQ(::tcsetattr(lUser, TCSANOW, &lLine), 0);
    ::close(lUser); // and nothing was written
    EXPECT_TRUE(WaitUntilClean());
}

// Bytes alone are enough: most users leave the line as it was.
TEST_F(PseudoTerminalUserTest, FindsNoUnreadBytesEvenIfTheLineWasLeftAlone)
{
    int lUser = Open();
    EXPECT_EQ(mTerminal.Write("unread", 6, mStop).mBytes, 6U);
    ::close(lUser);
    bool lIsThere = true;
    for (int lTry = 0; lTry < 1000 && lIsThere; ++lTry)
    {
        ::usleep(25000); // the reading side looks at a terminal without user from time to time
        lUser = Open();
        pollfd lPoll{lUser, POLLIN, 0};
        lIsThere = ::poll(&lPoll, 1, 0) > 0;
        ::close(lUser);
    }
    EXPECT_FALSE(lIsThere);
}

// To the byte, also when there are more than the system keeps in one place.
TEST_F(PseudoTerminalUserTest, CountsWhatIsLeftUnread)
{
    const std::string lMany(9000, 'x');
    for (const uint64_t lTurn : {1U, 2U})
    {
        const int lUser = Open();
        EXPECT_EQ(mTerminal.Write(lMany.data(), 9000, mStop).mBytes, 9000U);
        EXPECT_EQ(Read(lUser).size(), 100U);
        ::close(lUser);
        EXPECT_TRUE(KyTest::WaitFor([&] { return mTerminal.GetUnread() >= lTurn * 8900; }));
        EXPECT_EQ(mTerminal.GetUnread(), lTurn * 8900);
    }
}

// What one user has set while the terminal was cleaned must not become what the next one finds.
TEST_F(PseudoTerminalUserTest, FindsTheFirstLineHoweverQuicklyUsersComeAndGo)
{
    for (int lTurn = 0; lTurn < 200; ++lTurn)
    {
        const int lUser = Open();
        termios lLine{};
        ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
        lLine.c_lflag |= ECHO;
        ASSERT_EQ(::tcsetattr(lUser, TCSANOW, &lLine), 0);
        ::close(lUser);
    }
    EXPECT_TRUE(WaitUntilClean());
}

// Nobody has to look from time to time: leaving is enough.
TEST_F(PseudoTerminalUserTest, IsCleanSoonAfterAVisitThatNobodySaw)
{
    int lLate = 0;
    for (int lTurn = 0; lTurn < 50; ++lTurn)
    {
        ::usleep(3000); // the reading side waits for a user
        int lUser = Open();
        termios lLine{};
        ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
        lLine.c_lflag |= ECHO;
        ASSERT_EQ(::tcsetattr(lUser, TCSANOW, &lLine), 0);
        ::close(lUser);
        ::usleep(8000);
        lUser = Open();
        ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
        lLate += (lLine.c_lflag & ECHO) != 0 ? 1 : 0;
        ::close(lUser);
    }
    EXPECT_LT(lLate, 10); // a look every 20 ms would be late in half of them
}

// However slow the reading side is with what the user has written.
TEST(PseudoTerminalLeftTest, IsCleanBeforeWhatTheUserHasWrittenIsRead)
{
    StopEvent lStop;
    PseudoTerminal lTerminal;
    ASSERT_TRUE(lStop.Create());
    ASSERT_TRUE(lTerminal.Create());
    for (const uint64_t lTurn : {1U, 2U})
    {
        const int lUser = ::open(lTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios lLine{};
        ASSERT_EQ(::tcgetattr(lUser, &lLine), 0);
        EXPECT_EQ(lLine.c_lflag & ECHO, 0U) << lTurn;
        EXPECT_EQ(lTerminal.Write("unread", 6, lStop).mBytes, 6U);
        EXPECT_EQ(::write(lUser, "written", 7), 7);
        lLine.c_lflag |= ECHO;
        ASSERT_EQ(::tcsetattr(lUser, TCSANOW, &lLine), 0);
        ::close(lUser);
        char lByte = 0;
        EXPECT_EQ(lTerminal.Read(&lByte, 1, lStop).mBytes, 1U);
        EXPECT_EQ(lTerminal.GetUnread(), lTurn * 6);
    }
}

TEST(PseudoTerminalLeftTest, IsCleanAfterALookWithoutARead)
{
    StopEvent lStop;
    PseudoTerminal lTerminal;
    ASSERT_TRUE(lStop.Create());
    lTerminal.CleanIfLeft(); // harmless when closed
    ASSERT_TRUE(lTerminal.Create());
    const int lUser = ::open(lTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(lTerminal.Write("unread", 6, lStop).mBytes, 6U);
    lTerminal.CleanIfLeft();
    EXPECT_EQ(lTerminal.GetUnread(), 0U) << "the user is still there";
    EXPECT_EQ(Read(lUser), "unread");
    EXPECT_EQ(lTerminal.Write("unread", 6, lStop).mBytes, 6U);
    ::close(lUser);
    lTerminal.CleanIfLeft();
    EXPECT_EQ(lTerminal.GetUnread(), 6U);
}

// The relay ends while a user still has the terminal open.
TEST(PseudoTerminalEndTest, WhatIsInTheTerminalIsTakenAwayAndCounted)
{
    StopEvent lStop;
    PseudoTerminal lTerminal;
    ASSERT_TRUE(lStop.Create());
    ASSERT_TRUE(lTerminal.Create());
    const int lUser = ::open(lTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const std::string lMany(9000, 'x');
    EXPECT_EQ(lTerminal.Write(lMany.data(), 9000, lStop).mBytes, 9000U);
    EXPECT_EQ(::write(lUser, lMany.data(), 3000), 3000);
    EXPECT_EQ(lTerminal.DropWritten(), 3000U);
    EXPECT_EQ(lTerminal.DropWritten(), 0U);
    lTerminal.DropUnread();
    EXPECT_EQ(lTerminal.GetUnread(), 9000U);
    ::close(lUser);
}

// The cleaner has the terminal open for a moment, and must not be taken for a user.
TEST(PseudoTerminalCleanerTest, BytesThatComeWhileItIsCleanedAreDropped)
{
    StopEvent lStop;
    PseudoTerminal lTerminal;
    ASSERT_TRUE(lStop.Create());
    ASSERT_TRUE(lTerminal.Create());
    const int lUser = ::open(lTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(lTerminal.Write("unread", 6, lStop).mBytes, 6U);
    ::close(lUser);

    std::future<uint32_t> lWritten;
    // Only the cleaner closes something here.
    const KyTest::ScriptedCall<&SystemCalls::mClose> lClosing(
        [&](int aDescriptor)
        {
            if (!lWritten.valid())
            {
                lWritten =
                    std::async(std::launch::async, [&] { return lTerminal.Write("lost", 4, lStop).mBytes; });
                // Time for a write that does not wait for the cleaner.
                static_cast<void>(lWritten.wait_for(std::chrono::milliseconds(50)));
                static_cast<void>(lStop.Set());
            }
            return GetRealSystem().mClose(aDescriptor);
        });
    char lByte = 0;
    EXPECT_EQ(lTerminal.Read(&lByte, 1, lStop).mEnd, HostTransfer::Stopped);
    ASSERT_TRUE(lWritten.valid());
    EXPECT_EQ(lWritten.get(), 0U);
}

// The writing thread may be late: the user has the bytes as soon as the system has them.
TEST(PseudoTerminalCleanerTest, AUserThatLeavesBeforeTheWriteReturnsIsNotOverlooked)
{
    constexpr int cLong =
        100; // milliseconds; a terminal that needs no cleaning is looked at less often than that
    StopEvent lStop;
    PseudoTerminal lTerminal;
    ASSERT_TRUE(lStop.Create());
    ASSERT_TRUE(lTerminal.Create());
    const int lUser = ::open(lTerminal.GetPath(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::atomic<bool> lIsLeft{false};
    std::atomic<bool> lSleeps{false};
    const KyTest::ScriptedCall<&SystemCalls::mPoll> lPolling(
        [&](pollfd* aPolls, nfds_t aCount, int aTime)
        {
            lSleeps = lSleeps || (lIsLeft && aTime > cLong);
            return GetRealSystem().mPoll(aPolls, aCount, aTime);
        });
    const KyTest::ScriptedCall<&SystemCalls::mWrite> lWriting(
        [&](int aDescriptor, const void* aData, size_t aSize)
        {
            const ssize_t lWritten = GetRealSystem().mWrite(aDescriptor, aData, aSize);
            lIsLeft = true;
            ::close(lUser);
            ::usleep(50000); // time for the reading thread to look
            lIsLeft = false;
            return lWritten;
        });
    char lByte = 0;
    const auto lReading =
        std::async(std::launch::async, [&] { return lTerminal.Read(&lByte, 1, lStop).mEnd; });
    EXPECT_EQ(lTerminal.Write("unread", 6, lStop).mBytes, 6U);
    EXPECT_FALSE(lSleeps);
    EXPECT_TRUE(KyTest::WaitFor([&] { return lTerminal.GetUnread() == 6; }));
    EXPECT_TRUE(lStop.Set());
    lReading.wait();
}

int gCall = 0;
int gFailing = 0;
int gOpen = 0;

bool IsFailing()
{
    errno = EIO;
    return ++gCall == gFailing;
}

int FailingOpen(int aFolder, const char* aName, int aFlags, mode_t aMode)
{
    const int lFile = IsFailing() ? -1 : GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
    gOpen += lFile >= 0 ? 1 : 0;
    return lFile;
}

int FailingControl(int aDescriptor, unsigned long aRequest, void* aArgument)
{
    return IsFailing() ? -1 : GetRealSystem().mControl(aDescriptor, aRequest, aArgument);
}

int CountingClose(int aDescriptor)
{
    --gOpen;
    return GetRealSystem().mClose(aDescriptor);
}

TEST(PseudoTerminalFailureTest, LeavesNothingOpenWhateverTheSystemRefuses)
{
    gSystem.mOpen = &FailingOpen;
    gSystem.mControl = &FailingControl;
    gSystem.mClose = &CountingClose;
    bool lMade = false;
    for (gFailing = 1; !lMade; ++gFailing)
    {
        gCall = 0;
        gOpen = 0;
        PseudoTerminal lTerminal;
        lMade = lTerminal.Create();
        EXPECT_EQ(lMade, gCall < gFailing) << gFailing;
        EXPECT_EQ(lTerminal.IsOpen(), lMade);
        EXPECT_EQ(gOpen, lMade ? 1 : 0) << gFailing;
    }
    EXPECT_GT(gFailing, 6);
    gSystem = GetRealSystem();
}

} // namespace
