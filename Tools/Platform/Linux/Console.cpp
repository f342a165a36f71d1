#include "Platform/Console.h"

#include "KyPlatform/Deadline.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace KyToolPlatform
{

using namespace KyPlatform;

namespace
{

constexpr std::array cWatchedSignals = {SIGINT, SIGTERM, SIGHUP};

/// The eventfd that the signal handler raises; -1 without a watching console.
std::atomic<int> gInterruptFile{-1};

void Raise(int aFile)
{
    const uint64_t lOne = 1;
    // A full counter is raised already; nothing else can fail on an eventfd.
    [[maybe_unused]] const ssize_t lWritten = ::write(aFile, &lOne, sizeof(lOne));
}

void OnSignal(int)
{
    const int lError = errno; // the interrupted code must not see it change
    const int lFile = gInterruptFile.load(std::memory_order_relaxed);
    if (lFile >= 0)
    {
        Raise(lFile);
    }
    errno = lError;
}

/// Milliseconds until aEnd for poll(), rounded up; -1 when the wait has no end.
int RemainingTime(const Deadline& aEnd)
{
    return aEnd.IsEndless() ? -1 : static_cast<int>(aEnd.GetRemaining(INT_MAX));
}

std::optional<Console::Size> SizeOf(int aFile)
{
    winsize lSize{};
    // Terminals over a serial line, and some in containers, say 0 for both.
    const bool lKnown = ::ioctl(aFile, TIOCGWINSZ, &lSize) == 0 && lSize.ws_col > 0 && lSize.ws_row > 0;
    return lKnown ? std::optional(Console::Size{lSize.ws_col, lSize.ws_row}) : std::nullopt;
}

bool IsTransient(int aError)
{
    return aError == EINTR || aError == EAGAIN;
}

} // namespace

struct Console::State
{
    int mInterruptFile = -1;
    bool mRaw = false;
    bool mWatching = false;
    termios mFormerMode{};
    struct sigaction mFormerPipeAction
    {
    };
    std::array<struct sigaction, cWatchedSignals.size()> mFormerActions{};
};

Console::Console() : mThis(new State)
{
    mThis->mInterruptFile = gSystem.mMakeEvent(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // A reader of our output that goes away ends a write with an error, not the whole program: devices have to get
    // their settings back.
    struct sigaction lIgnore = {};
    lIgnore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &lIgnore, &mThis->mFormerPipeAction);
}

Console::~Console()
{
    LeaveRawMode();
    if (mThis->mWatching)
    {
        for (size_t lIndex = 0; lIndex < cWatchedSignals.size(); ++lIndex)
        {
            ::sigaction(cWatchedSignals[lIndex], &mThis->mFormerActions[lIndex], nullptr);
        }
        // After the handlers: no signal may find a file that is closed below.
        gInterruptFile = -1;
    }
    ::sigaction(SIGPIPE, &mThis->mFormerPipeAction, nullptr);
    ::close(mThis->mInterruptFile);
    delete mThis;
}

bool Console::IsInputTerminal()
{
    return ::isatty(STDIN_FILENO) == 1;
}

bool Console::IsOutputTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

bool Console::IsErrorTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

std::optional<Console::Size> Console::GetOutputSize()
{
    return SizeOf(STDOUT_FILENO);
}

std::optional<Console::Size> Console::GetErrorSize()
{
    return SizeOf(STDERR_FILENO);
}

bool Console::EnterRawMode()
{
    if (mThis->mRaw)
    {
        return true;
    }
    // A file or a pipe has no modes, and needs none: its bytes come as they are.
    if (::tcgetattr(STDIN_FILENO, &mThis->mFormerMode) != 0)
    {
        return false;
    }
    // Output processing stays on: log lines and messages share the terminal and end with a bare line feed.
    termios lMode = mThis->mFormerMode;
    lMode.c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON);
    lMode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    lMode.c_cc[VMIN] = 1;
    lMode.c_cc[VTIME] = 0;
    // After the output that is under way: it was written for the old mode.
    mThis->mRaw = ::tcsetattr(STDIN_FILENO, TCSADRAIN, &lMode) == 0;
    return mThis->mRaw;
}

void Console::LeaveRawMode()
{
    if (mThis->mRaw)
    {
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &mThis->mFormerMode);
        mThis->mRaw = false;
    }
}

bool Console::WatchInterrupts()
{
    if (mThis->mWatching)
    {
        return true;
    }
    if (mThis->mInterruptFile < 0)
    {
        return false;
    }
    // Before the handlers: the first signal must find the file.
    gInterruptFile = mThis->mInterruptFile;
    struct sigaction lAction = {};
    lAction.sa_handler = OnSignal;
    // Calls in other threads go on; the console itself waits for the event and needs no interrupted call.
    lAction.sa_flags = SA_RESTART;
    sigemptyset(&lAction.sa_mask);
    for (size_t lIndex = 0; lIndex < cWatchedSignals.size(); ++lIndex)
    {
        ::sigaction(cWatchedSignals[lIndex], &lAction, &mThis->mFormerActions[lIndex]);
    }
    mThis->mWatching = true;
    return true;
}

Console::ReadResult Console::Read(uint8_t* aBuffer, size_t aSize, size_t& aRead, uint32_t aTimeout)
{
    aRead = 0;
    const Deadline lEnd(aTimeout);
    for (;;)
    {
        pollfd lFiles[2] = {{STDIN_FILENO, POLLIN, 0}, {mThis->mInterruptFile, POLLIN, 0}};
        const int lReady = gSystem.mPoll(lFiles, 2, RemainingTime(lEnd));
        if (lReady < 0 && !IsTransient(errno))
        {
            return ReadResult::End;
        }
        // An interruption counts more than input that waits: a user who presses Ctrl-C does not want the rest sent.
        if (lReady > 0 && lFiles[1].revents != 0)
        {
            return ReadResult::Interrupted;
        }
        if (lReady > 0)
        {
            const ssize_t lRead = gSystem.mRead(STDIN_FILENO, aBuffer, aSize);
            if (lRead > 0)
            {
                aRead = static_cast<size_t>(lRead);
                return ReadResult::Data;
            }
            if (lRead == 0 || !IsTransient(errno))
            {
                return ReadResult::End; // a terminal that was hung up reports EIO
            }
        }
        if (lEnd.IsOver())
        {
            return ReadResult::TimedOut;
        }
    }
}

void Console::Interrupt()
{
    Raise(mThis->mInterruptFile);
}

bool Console::IsInterrupted() const
{
    return WaitForInterrupt(0);
}

bool Console::WaitForInterrupt(uint32_t aTimeout) const
{
    const Deadline lEnd(aTimeout);
    pollfd lFile = {mThis->mInterruptFile, POLLIN, 0};
    int lReady = 0;
    // A signal ends the wait early. The event is raised by then if it was one of those that are watched.
    do
    {
        lReady = gSystem.mPoll(&lFile, 1, RemainingTime(lEnd));
    } while (lReady < 0 && IsTransient(errno));
    return lReady > 0;
}

bool Console::Write(const uint8_t* aData, size_t aSize)
{
    while (aSize > 0)
    {
        pollfd lFiles[2] = {{STDOUT_FILENO, POLLOUT, 0}, {mThis->mInterruptFile, POLLIN, 0}};
        if (gSystem.mPoll(lFiles, 2, -1) < 0)
        {
            if (!IsTransient(errno))
            {
                return false;
            }
            continue;
        }
        if (lFiles[0].revents == 0)
        {
            return false; // interrupted, and the reader of the output does not read
        }
        // A writable pipe takes PIPE_BUF bytes at once; more could block past an interruption.
        const ssize_t lWritten = gSystem.mWrite(STDOUT_FILENO, aData, std::min<size_t>(aSize, PIPE_BUF));
        if (lWritten < 0 && !IsTransient(errno))
        {
            return false;
        }
        const size_t lDone = lWritten > 0 ? static_cast<size_t>(lWritten) : 0;
        aData += lDone;
        aSize -= lDone;
    }
    return true;
}

} // namespace KyToolPlatform
