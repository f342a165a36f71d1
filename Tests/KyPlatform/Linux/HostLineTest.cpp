// The calls that set up a line: a pty keeps neither parity nor data bits, so the test looks at the calls.

#include "KyPlatform/HostSerialPort.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Linux/TerminalLine.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/ForEachNth.h"
#include "Tests/Support/HostLink.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>

using namespace KyPlatform;
using KyTest::HostLink;
using KyTest::ScriptedCall;
using S = SystemCalls;

namespace
{

termios2 gSet{};
uint32_t gRunsAt = 0;       // not 0: what the line makes of every rate
unsigned long gRefused = 0; // a request that fails
std::string gOpened;

int Control(int aDescriptor, unsigned long aRequest, void* aArgument)
{
    if (aRequest == gRefused)
    {
        errno = EIO;
        return -1;
    }
    if (aRequest == TCSETS2)
    {
        gSet = *static_cast<termios2*>(aArgument);
    }
    const int lResult = GetRealSystem().mControl(aDescriptor, aRequest, aArgument);
    if (aRequest == TCGETS2 && gRunsAt != 0)
    {
        static_cast<termios2*>(aArgument)->c_ospeed = gRunsAt;
    }
    return lResult;
}

int OpenNothing(int /*aFolder*/, const char* aPath, int /*aFlags*/, mode_t /*aMode*/)
{
    gOpened = aPath;
    errno = ENOENT;
    return -1;
}

class HostLineTest : public testing::Test
{
protected:
    void SetUp() override
    {
        gSystem.mControl = &Control;
        ASSERT_TRUE(mPort.Open(mLink.GetPath().c_str()));
        ASSERT_TRUE(mPort.ReadLine());
        ASSERT_TRUE(mStop.Create());
    }
    ~HostLineTest() override
    {
        mPort.Close();
        gSystem = GetRealSystem();
        gRunsAt = 0;
        gRefused = 0;
    }

    HostTransferResult Read() { return mPort.Read(mBuffer, sizeof mBuffer, mStop); }
    HostTransferResult Write() { return mPort.Write("abc", 3, mStop); }
    static void ExpectFailure(const HostTransferResult& aResult, HostTransfer aEnd, int aError)
    {
        EXPECT_EQ(aResult.mEnd, aEnd);
        EXPECT_EQ(aResult.mBytes, 0U);
        EXPECT_EQ(aResult.mError, static_cast<uint32_t>(aError));
    }

    HostLink mLink;
    HostSerialPort mPort;
    StopEvent mStop;
    char mBuffer[8] = "";
};

TEST_F(HostLineTest, SetsRateBitsParityAndStopBits)
{
    ASSERT_TRUE(mPort.SetLine({115200, 7, HostLine::Parity::Even, true, true}));
    EXPECT_EQ(gSet.c_cflag & CBAUD, tcflag_t{B115200});
    EXPECT_EQ(gSet.c_cflag & CSIZE, tcflag_t{CS7});
    EXPECT_EQ(gSet.c_cflag & (PARENB | PARODD), tcflag_t{PARENB});
    EXPECT_NE(gSet.c_cflag & CSTOPB, 0U);
    EXPECT_NE(gSet.c_iflag & INPCK, 0U);
}

TEST_F(HostLineTest, OddParityIsNotChecked)
{
    ASSERT_TRUE(mPort.SetLine({9600, 8, HostLine::Parity::Odd, false, false}));
    EXPECT_EQ(gSet.c_cflag & (PARENB | PARODD), tcflag_t{PARENB | PARODD});
    EXPECT_EQ(gSet.c_iflag & INPCK, 0U);
    EXPECT_EQ(gSet.c_cflag & CSTOPB, 0U);
    EXPECT_EQ(gSet.c_cflag & CSIZE, tcflag_t{CS8});
}

TEST_F(HostLineTest, NoParitySwitchesParityOff)
{
    ASSERT_TRUE(mPort.SetLine({9600, 8, HostLine::Parity::Odd, false, false}));
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    EXPECT_EQ(gSet.c_cflag & (PARENB | PARODD), 0U);
}

TEST_F(HostLineTest, RunsEveryRateOfAConfiguration)
{
    for (const uint32_t lRate : {9600U, 14400U, 19200U, 28800U, 38400U, 57600U, 115200U})
    {
        HostLine lLine;
        lLine.mBaudRate = lRate;
        EXPECT_TRUE(mPort.SetLine(lLine)) << lRate;
        EXPECT_EQ(gSet.c_ospeed, lRate);
        EXPECT_EQ(gSet.c_ispeed, lRate);
    }
}

TEST_F(HostLineTest, MakesTheLineTransparentAndKeepsHardwareHandshake)
{
    termios2 lLine{};
    ASSERT_EQ(gSystem.mControl(0, 0, nullptr), -1); // the wrapper passes failures on
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    EXPECT_EQ(gSet.c_iflag & (IXON | IXOFF | ICRNL | ISTRIP), 0U);
    EXPECT_EQ(gSet.c_oflag & OPOST, 0U);
    EXPECT_EQ(gSet.c_lflag & (ECHO | ICANON | ISIG), 0U);
    EXPECT_NE(gSet.c_cflag & CLOCAL, 0U);
    EXPECT_EQ(gSet.c_cc[VMIN], 1);
    lLine = gSet;
    lLine.c_cflag |= CRTSCTS;
    const int lTerminal = gSystem.mOpen(0, mLink.GetPath().c_str(), 2, 0);
    ASSERT_GE(lTerminal, 0);
    ASSERT_EQ(gSystem.mControl(lTerminal, TCSETS2, &lLine), 0);
    EXPECT_EQ(gSystem.mClose(lTerminal), 0);
    ASSERT_TRUE(mPort.ReadLine());
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    EXPECT_NE(gSet.c_cflag & CRTSCTS, 0U);
}

TEST_F(HostLineTest, ARateThatTheLineDoesNotRunAtIsRefused)
{
    gRunsAt = 9600;
    HostLine lLine;
    lLine.mBaudRate = 19200;
    EXPECT_FALSE(mPort.SetLine(lLine));
    lLine.mBaudRate = 9600;
    EXPECT_TRUE(mPort.SetLine(lLine));
    gRunsAt = 9700; // a per cent off
    EXPECT_TRUE(mPort.SetLine(lLine));
}

TEST_F(HostLineTest, RefusalsAreReported)
{
    gRefused = TCSETS2;
    EXPECT_FALSE(mPort.SetTimeouts());
    EXPECT_FALSE(mPort.SetLine(HostLine()));
    gRefused = TCGETS2;
    EXPECT_FALSE(mPort.SetTimeouts());
    EXPECT_FALSE(mPort.ReadLine());
    EXPECT_FALSE(mPort.SetLine(HostLine())); // nothing is known of it any more
}

// Under traffic without pauses nothing but a full buffer is delivered; programs get whole messages that way.
TEST_F(HostLineTest, DeliversWhenTheLineHasBeenQuietOrTheBufferIsFull)
{
    ASSERT_TRUE(mPort.SetTimeouts());
    ASSERT_TRUE(mPort.ReadLine());
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    ASSERT_EQ(mLink.Write("abc"), 3U);
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(Read().mBytes, 3U);
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(9));
    std::atomic<bool> lEnd{false};
    std::thread lTraffic(
        [&]
        {
            while (!lEnd)
            {
                mLink.Write("x");
            }
        });
    const HostTransferResult lFull = Read();
    lEnd = true;
    lTraffic.join();
    EXPECT_EQ(lFull.mEnd, HostTransfer::Done);
    EXPECT_EQ(lFull.mBytes, sizeof mBuffer);
}

TEST_F(HostLineTest, APortThatIsInUseIsNotOpened)
{
    HostSerialPort lSecond;
    EXPECT_FALSE(lSecond.Open(mLink.GetPath().c_str()));
    mPort.Close();
    EXPECT_TRUE(lSecond.Open(mLink.GetPath().c_str()));
}

TEST_F(HostLineTest, TransferWithoutAStopEventIsRefused)
{
    mStop.Close();
    ExpectFailure(Read(), HostTransfer::Refused, EBADF);
    ExpectFailure(Write(), HostTransfer::Refused, EBADF);
}

TEST_F(HostLineTest, TransferThatCannotWaitIsUnsuccessful)
{
    const ScriptedCall<&S::mPoll> lPoll(ENOMEM);
    ExpectFailure(Read(), HostTransfer::Unsuccessful, ENOMEM);
    const ScriptedCall<&S::mWrite> lWrite(EAGAIN);
    ExpectFailure(Write(), HostTransfer::Unsuccessful, ENOMEM);
}

TEST_F(HostLineTest, WriteGoesOnAfterSignalsAndFullBuffersUntilARealFailure)
{
    int lWrites = 0;
    const ScriptedCall<&S::mWrite> lWrite(
        [&](int, const void*, size_t) -> ssize_t
        {
            constexpr int cErrors[] = {EINTR, EAGAIN, EIO};
            errno = cErrors[lWrites];
            return ++lWrites == 4 ? 0 : -1;
        });
    ExpectFailure(Write(), HostTransfer::Refused, EIO);
    EXPECT_EQ(lWrites, 3);
}

TEST_F(HostLineTest, WriteIsDoneWithLessWhenItsTimeIsOver)
{
    int lWrites = 0;
    const ScriptedCall<&S::mWrite> lWrite(
        [&](int, const void*, size_t) -> ssize_t
        {
            errno = EAGAIN;
            return ++lWrites == 1 ? 2 : lWrites == 2 ? 0 : -1; // a driver may take nothing without an error
        });
    int lPolls = 0;
    const ScriptedCall<&S::mPoll> lPoll([&](pollfd*, nfds_t, int) { return ++lPolls == 1 ? 1 : 0; });
    const HostTransferResult lResult = Write();
    EXPECT_EQ(lResult.mEnd, HostTransfer::Done);
    EXPECT_EQ(lResult.mBytes, 2U);
    EXPECT_EQ(lPolls, 2);
}

TEST_F(HostLineTest, ReadGoesOnAfterSignalsAndGivesWhatCameBeforeTheEnd)
{
    int lReads = 0;
    const ScriptedCall<&S::mRead> lRead(
        [&](int, void* aBuffer, size_t) -> ssize_t
        {
            constexpr int cErrors[] = {EINTR, EAGAIN, 0, EIO, ENXIO};
            errno = cErrors[lReads];
            *static_cast<char*>(aBuffer) = 'a';
            return ++lReads == 3 ? 1 : -1;
        });
    const ScriptedCall<&S::mPoll> lPoll([](pollfd*, nfds_t, int) { return 1; });
    EXPECT_EQ(Read().mBytes, 1U); // the next read reports the failure after them
    EXPECT_EQ(lReads, 4);
    const ScriptedCall<&S::mOpen> lOpen(ENOENT);
    ExpectFailure(Read(), HostTransfer::Refused, ENOENT); // it tries to open the device again
    EXPECT_EQ(lReads, 4);
}

TEST_F(HostLineTest, DeviceThatIsRefusedWhenItComesBackIsTriedAgain)
{
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    int lCalls = 0;
    int lFailing = 0;
    const auto lRefuse = [&]
    {
        errno = EIO;
        return ++lCalls == lFailing;
    };
    const ScriptedCall<&S::mControl> lControl(
        [&](int aDescriptor, unsigned long aRequest, void* aArgument)
        {
            // That the mark of the device before cannot be taken away is of no account.
            const bool lRefused = aRequest != TIOCNXCL && lRefuse();
            return lRefused ? -1 : GetRealSystem().mControl(aDescriptor, aRequest, aArgument);
        });
    const ScriptedCall<&S::mReplace> lReplace(
        [&](int aFrom, int aTo, int aFlags)
        { return lRefuse() ? -1 : GetRealSystem().mReplace(aFrom, aTo, aFlags); });
    const int lRefused = KyTest::ForEachNth(
        [&](int aNth, int& aCount)
        {
            lFailing = aNth;
            lCalls = 0;
            mLink.Vanish();
            ExpectFailure(Read(), HostTransfer::Refused, EIO); // it is gone
            mLink.ComeBack();
            EXPECT_EQ(mLink.Write("12345678"), 8U);
            HostTransferResult lResult = Read();
            const bool lDone = lCalls < aNth;
            aCount = lCalls;
            EXPECT_EQ(lResult.mEnd, lDone ? HostTransfer::Done : HostTransfer::Refused);
            lResult = lDone ? lResult : Read();
            EXPECT_EQ(lResult.mBytes, 8U);
            EXPECT_EQ(std::string(mBuffer, 8), "12345678");
        });
    EXPECT_EQ(lRefused, 7);
}

TEST_F(HostLineTest, DeviceThatComesBackKeepsItsOwnLineWhenNoneWasSet)
{
    mLink.Vanish();
    ExpectFailure(Read(), HostTransfer::Refused, EIO);
    mLink.ComeBack();
    gSet = termios2{};
    EXPECT_EQ(mLink.Write("1234567\n"), 8U); // a new terminal takes lines
    EXPECT_EQ(Read().mBytes, 8U);
    EXPECT_NE(gSet.c_lflag & ICANON, 0U); // only how much a read waits for was set
    EXPECT_EQ(gSet.c_cc[VMIN], 1);
}

TEST_F(HostLineTest, OpensADeviceThatHasHungUpAndIsStillThereAgain)
{
    ASSERT_TRUE(mPort.SetTimeouts());
    ASSERT_TRUE(mPort.ReadLine());
    ASSERT_TRUE(mPort.SetLine(HostLine()));
    EXPECT_EQ(mLink.Write("?"), 1U);
    {
        const ScriptedCall<&S::mRead> lRead([](int, void*, size_t) -> ssize_t { return 0; });
        ExpectFailure(Read(), HostTransfer::Refused, EIO);
    }
    // A read that is to stop at once opens the device again and then stops.
    StopEvent lAtOnce;
    ASSERT_TRUE(lAtOnce.Create());
    ASSERT_TRUE(lAtOnce.Set());
    EXPECT_EQ(mPort.Read(mBuffer, sizeof mBuffer, lAtOnce).mEnd, HostTransfer::Stopped);
    EXPECT_EQ(mLink.Write("abc"), 3U);
    EXPECT_GE(Read().mBytes, 3U);
    HostSerialPort lOther;
    EXPECT_FALSE(lOther.Open(mLink.GetPath().c_str())); // no other process can open it
}

TEST(TerminalLineTest, GivesTheSettingsThatItWasGiven)
{
    using Parity = HostLine::Parity;
    for (const Parity lParity : {Parity::Unchanged, Parity::Even, Parity::Odd})
    {
        HostLine lLine;
        lLine.mBaudRate = 14400;
        lLine.mDataBits = lParity == Parity::Unchanged ? 8 : 7;
        lLine.mTwoStopBits = lParity == Parity::Odd;
        lLine.mParity = lParity;
        TerminalLine lTerminal;
        lTerminal.SetLine(lLine);
        const HostLine lFound = lTerminal.GetLine();
        EXPECT_EQ(lFound.mBaudRate, lLine.mBaudRate);
        EXPECT_EQ(lFound.mDataBits, lLine.mDataBits);
        EXPECT_EQ(lFound.mTwoStopBits, lLine.mTwoStopBits);
        EXPECT_EQ(lFound.mParity, lLine.mParity);
    }
}

TEST(HostPathTest, ComNamesAreTheSystemsSerialPorts)
{
    gSystem.mOpen = &OpenNothing;
    HostSerialPort lPort;
    EXPECT_FALSE(lPort.Open(R"(\\.\COM1)"));
    EXPECT_EQ(gOpened, "/dev/ttyS0");
    EXPECT_FALSE(lPort.Open(R"(\\.\COM10)"));
    EXPECT_EQ(gOpened, "/dev/ttyS9");
    EXPECT_FALSE(lPort.Open(R"(\\.\COM05)"));
    EXPECT_EQ(gOpened, "/dev/ttyS4");
    EXPECT_FALSE(lPort.Open("/dev/ttyUSB0"));
    EXPECT_EQ(gOpened, "/dev/ttyUSB0");
    gOpened = "";
    EXPECT_FALSE(lPort.Open(R"(\\.\COM0)"));
    EXPECT_EQ(gOpened, "");
    gSystem = GetRealSystem();
    EXPECT_TRUE(HostSerialPort::IsPath("/dev/ttyUSB0"));
    EXPECT_FALSE(HostSerialPort::IsPath("dev/ttyUSB0"));
}

} // namespace
