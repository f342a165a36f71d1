#include "KyPlatform/PseudoTerminal.h"

#include "KyPlatform/Linux/Deadline.h"
#include "KyPlatform/Linux/HostHandle.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Linux/TerminalLine.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <sys/ioctl.h>

namespace KyPlatform
{

namespace
{

// No wait of the system ends when somebody attaches to a pty, so it is looked at from time to time.
constexpr uint32_t cAttachPoll = 20; // milliseconds

struct Terminal
{
    int mMaster = -1;
    char mPath[32] = "";
    TerminalLine mCleanLine;             // as Clean() left it
    std::atomic<bool> mHasUnread{false}; // bytes were written since then
    // Held while the terminal is cleaned, which looks like a user, and while a write asks for a user and
    // writes.
    std::mutex mUserLock;
};

Terminal* ToTerminal(void* aObject) noexcept
{
    return static_cast<Terminal*>(aObject);
}

// Makes the terminal what its next user expects: a transparent line, nothing to read. From its own side,
// because what waits to be read there can be thrown away only there.
bool Clean(Terminal& aTerminal) noexcept
{
    aTerminal.mHasUnread = false; // before the bytes go: what is written from here on counts again
    const int lDescriptor =
        gSystem.mOpen(AT_FDCWD, aTerminal.mPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
    if (lDescriptor < 0)
    {
        return false;
    }
    TerminalLine& lLine = aTerminal.mCleanLine;
    const bool lDone = lLine.Read(lDescriptor) && lLine.Write(lDescriptor, HostLine()) &&
                       lLine.Read(lDescriptor) && TerminalLine::DropInput(lDescriptor);
    static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: the terminal stays, with its settings
    return lDone;
}

// Cleans unless somebody writes, who would take it for a user and whose bytes would be neither read nor known
// to be unread.
void CleanBesideWriter(Terminal& aTerminal) noexcept
{
    const std::unique_lock<std::mutex> lLock(aTerminal.mUserLock, std::try_to_lock);
    if (lLock.owns_lock())
    {
        static_cast<void>(Clean(aTerminal)); // ignored: looked at again soon
    }
}

// Without a user: whether the one who was there last has left something that the next one must not find.
bool IsClean(const Terminal& aTerminal) noexcept
{
    TerminalLine lLine;
    return !aTerminal.mHasUnread && lLine.Read(aTerminal.mMaster) && lLine == aTerminal.mCleanLine;
}

bool OpenMaster(Terminal& aTerminal) noexcept
{
    int lLocked = 0;
    int lNumber = -1;
    aTerminal.mMaster = gSystem.mOpen(AT_FDCWD, "/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
    return aTerminal.mMaster >= 0 && gSystem.mControl(aTerminal.mMaster, TIOCSPTLCK, &lLocked) == 0 &&
           gSystem.mControl(aTerminal.mMaster, TIOCGPTN, &lNumber) == 0 &&
           std::snprintf(aTerminal.mPath, sizeof aTerminal.mPath, "/dev/pts/%d", lNumber) > 0;
}

HostTransferResult Failed(HostTransfer aEnd, uint32_t aBytes) noexcept
{
    return {aEnd, aBytes, static_cast<uint32_t>(errno)};
}

// What a wait for a terminal found.
enum class Side
{
    Ready,
    Left, // nobody has the terminal open
    Stop,
    Failed
};

Side Wait(const Terminal& aTerminal, short aEvents, int aStop) noexcept
{
    pollfd lPolls[] = {{aStop, POLLIN, 0}, {aTerminal.mMaster, aEvents, 0}};
    if (PollUntil(lPolls, 2, Deadline(cInfinite)) < 0)
    {
        return Side::Failed;
    }
    if (lPolls[0].revents != 0)
    {
        return Side::Stop;
    }
    // A user who has left may have written before, but will read no more.
    const bool lReadable = (lPolls[1].revents & POLLIN) != 0;
    return (lPolls[1].revents & POLLHUP) != 0 && !lReadable ? Side::Left : Side::Ready;
}

// Whether aStop was set in the time after which a terminal without user is looked at again.
bool IsStoppedMeanwhile(int aStop) noexcept
{
    pollfd lPoll{aStop, POLLIN, 0};
    return PollUntil(&lPoll, 1, Deadline(cAttachPoll)) > 0;
}

} // namespace

bool PseudoTerminal::IsSupported() noexcept
{
    return true;
}

bool PseudoTerminal::Create() noexcept
{
    Close();
    std::unique_ptr<Terminal> lTerminal(new (std::nothrow) Terminal);
    if (lTerminal == nullptr)
    {
        return false;
    }
    if (OpenMaster(*lTerminal) && Clean(*lTerminal))
    {
        mObject = lTerminal.release();
    }
    else if (lTerminal->mMaster >= 0)
    {
        static_cast<void>(gSystem.mClose(lTerminal->mMaster)); // ignored: the first failure is what counts
    }
    return mObject != nullptr;
}

void PseudoTerminal::Close() noexcept
{
    const std::unique_ptr<Terminal> lTerminal(ToTerminal(std::exchange(mObject, nullptr)));
    if (lTerminal != nullptr)
    {
        static_cast<void>(gSystem.mClose(lTerminal->mMaster)); // ignored: there is nothing left to undo
    }
}

const char* PseudoTerminal::GetPath() const noexcept
{
    return mObject != nullptr ? ToTerminal(mObject)->mPath : "";
}

bool PseudoTerminal::IsAttached() const noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    pollfd lPoll{ToTerminal(mObject)->mMaster, 0, 0};
    return PollUntil(&lPoll, 1, Deadline(0)) == 0; // a hang-up shows without being asked for
}

HostTransferResult PseudoTerminal::Read(void* aBuffer, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.mObject == nullptr)
    {
        errno = EBADF;
        return Failed(HostTransfer::Refused, 0);
    }
    Terminal& lTerminal = *ToTerminal(mObject);
    const int lStop = ToDescriptor(aStop.mObject);
    for (;;)
    {
        switch (Wait(lTerminal, POLLIN, lStop))
        {
        case Side::Ready:
            break;
        case Side::Left:
            if (!IsClean(lTerminal))
            {
                CleanBesideWriter(lTerminal);
            }
            if (IsStoppedMeanwhile(lStop))
            {
                return {HostTransfer::Stopped, 0, 0};
            }
            continue;
        case Side::Stop:
            return {HostTransfer::Stopped, 0, 0};
        case Side::Failed:
            return Failed(HostTransfer::Unsuccessful, 0);
        }
        const ssize_t lRead = gSystem.mRead(lTerminal.mMaster, aBuffer, aSize);
        if (lRead > 0)
        {
            return {HostTransfer::Done, static_cast<uint32_t>(lRead), 0};
        }
        // A user who left in between shows as EIO; the next wait sees it too.
        if (lRead < 0 && errno != EAGAIN && errno != EINTR && errno != EIO)
        {
            return Failed(HostTransfer::Refused, 0);
        }
    }
}

HostTransferResult PseudoTerminal::Write(const void* aData, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.mObject == nullptr)
    {
        errno = EBADF;
        return Failed(HostTransfer::Refused, 0);
    }
    Terminal& lTerminal = *ToTerminal(mObject);
    uint32_t lBytes = 0;
    while (lBytes < aSize)
    {
        // A wait under the lock ends when the user leaves, so nobody is kept from cleaning for long.
        const std::lock_guard<std::mutex> lLock(lTerminal.mUserLock);
        // Asked each time: the system would keep bytes for a user who comes some day.
        switch (Wait(lTerminal, POLLOUT, ToDescriptor(aStop.mObject)))
        {
        case Side::Ready:
            break;
        case Side::Left:
            return {HostTransfer::Done, lBytes, 0};
        case Side::Stop:
            return {HostTransfer::Stopped, lBytes, 0};
        case Side::Failed:
            return Failed(HostTransfer::Unsuccessful, lBytes);
        }
        const ssize_t lWritten =
            gSystem.mWrite(lTerminal.mMaster, static_cast<const uint8_t*>(aData) + lBytes, aSize - lBytes);
        if (lWritten > 0)
        {
            lTerminal.mHasUnread = true;
            lBytes += static_cast<uint32_t>(lWritten);
        }
        else if (lWritten < 0 && errno != EAGAIN && errno != EINTR && errno != EIO)
        {
            return Failed(HostTransfer::Refused, lBytes);
        }
    }
    return {HostTransfer::Done, lBytes, 0};
}

} // namespace KyPlatform
