#include "Platform/PseudoTerminal.h"

#include "KyPlatform/Linux/HostHandle.h"
#include "KyPlatform/Linux/Poll.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Linux/TerminalLine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <sys/ioctl.h>

namespace KyToolPlatform
{

using namespace KyPlatform;

namespace
{

// How often a terminal without user is looked at, in milliseconds. No wait for the terminal itself ends when
// somebody attaches; the watch on its file does, where the system has one left.
constexpr uint32_t cPollWatched = 1000;
constexpr uint32_t cPollUnwatched = 20;
constexpr uint32_t cPollSoon = 1; // while a writer that is about to leave is in the way

struct Terminal
{
    int mMaster = -1;
    int mWatch = -1; // readable: the terminal was opened or closed; -1: the system has no such thing left
    std::atomic<uint64_t> mUnread{0};
    char mPath[32] = "";
    TerminalLine mCleanLine;             // what each user finds
    std::atomic<bool> mHasUnread{false}; // bytes were written since then
    // Held while the terminal is cleaned, which looks like a user, and while a write asks for a user and
    // writes. The standard lock: the cleaner only tries it, which JxUtilsLib's does not offer.
    std::mutex mUserLock;
};

Terminal* ToTerminal(void* aObject) noexcept
{
    return static_cast<Terminal*>(aObject);
}

// Takes what waits to be read, to the last byte: the system hands on what it still has under way before it
// says that there is nothing. Bounded, for a writer that does not know that the user has gone.
uint64_t TakeAll(int aDescriptor) noexcept
{
    constexpr int cMostReads = 256; // more than a terminal holds
    char lBuffer[4096];
    uint64_t lAll = 0;
    for (int lCount = 0; lCount < cMostReads; ++lCount)
    {
        const ssize_t lRead = gSystem.mRead(aDescriptor, lBuffer, sizeof lBuffer);
        if (lRead <= 0 && !(lRead < 0 && errno == EINTR))
        {
            break;
        }
        lAll += lRead > 0 ? static_cast<uint64_t>(lRead) : 0;
    }
    return lAll;
}

int OpenAsUser(const Terminal& aTerminal) noexcept
{
    return gSystem.mOpen(AT_FDCWD, aTerminal.mPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
}

// Finds the settings that each user is to find, before anybody knows the terminal: whoever has it open may
// change them at any time.
bool SetCleanLine(Terminal& aTerminal) noexcept
{
    const int lDescriptor = OpenAsUser(aTerminal);
    if (lDescriptor < 0)
    {
        return false;
    }
    TerminalLine& lLine = aTerminal.mCleanLine;
    const bool lDone =
        lLine.Read(lDescriptor) && lLine.Write(lDescriptor, HostLine()) && lLine.Read(lDescriptor);
    static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: the terminal stays, with its settings
    return lDone;
}

// Makes the terminal what its next user expects: a transparent line, nothing to read. The line first, which
// needs no descriptor of the user's side: the next user may be quick. What waits to be read can be taken away
// at that side only; from a transparent line not only whole lines come.
bool Clean(Terminal& aTerminal) noexcept
{
    aTerminal.mHasUnread = false; // before the bytes go: what is written from here on counts again
    const bool lIsSet = aTerminal.mCleanLine.WriteBack(aTerminal.mMaster);
    const int lDescriptor = OpenAsUser(aTerminal);
    if (lDescriptor < 0)
    {
        return false;
    }
    aTerminal.mUnread += TakeAll(lDescriptor);
    static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: the terminal stays
    return lIsSet;
}

// Without a user: whether the last user has left something that the next one must not find.
bool IsClean(const Terminal& aTerminal) noexcept
{
    TerminalLine lLine;
    return !aTerminal.mHasUnread && lLine.Read(aTerminal.mMaster) && lLine == aTerminal.mCleanLine;
}

// Cleans a terminal without user, if it needs that. Not beside a writer, who would take the cleaner for a
// user and whose bytes would be neither read nor known to be unread. \return Milliseconds until it has to be
// looked at again.
uint32_t CleanUp(Terminal& aTerminal) noexcept
{
    if (!IsClean(aTerminal))
    {
        const std::unique_lock<std::mutex> lLock(aTerminal.mUserLock, std::try_to_lock);
        if (!lLock.owns_lock())
        {
            return cPollSoon;
        }
        if (!Clean(aTerminal))
        {
            return cPollUnwatched;
        }
    }
    return aTerminal.mWatch >= 0 ? cPollWatched : cPollUnwatched;
}

bool OpenMaster(Terminal& aTerminal) noexcept
{
    // The system makes each terminal locked, and no program can open a locked one.
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
    Written, // nobody has the terminal open, and what was written before can be read
    Left,    // nobody has the terminal open
    TimedOut,
    Stop,
    Failed
};

Side Wait(const Terminal& aTerminal, short aEvents, int aStop, const Deadline& aDeadline) noexcept
{
    pollfd lPolls[] = {{aStop, POLLIN, 0}, {aTerminal.mMaster, aEvents, 0}};
    const int lReady = PollUntil(lPolls, 2, aDeadline);
    if (lReady <= 0)
    {
        return lReady == 0 ? Side::TimedOut : Side::Failed;
    }
    if (lPolls[0].revents != 0)
    {
        return Side::Stop;
    }
    if ((lPolls[1].revents & POLLHUP) == 0)
    {
        return Side::Ready;
    }
    return (lPolls[1].revents & POLLIN) != 0 ? Side::Written : Side::Left;
}

// Waits until a terminal without user is to be looked at again: somebody has opened it, or time has passed.
// \return Whether aStop was set.
bool IsStoppedMeanwhile(const Terminal& aTerminal, int aStop, uint32_t aTime) noexcept
{
    pollfd lPolls[] = {{aStop, POLLIN, 0}, {aTerminal.mWatch, POLLIN, 0}}; // a negative one is passed over
    const bool lReady = PollUntil(lPolls, 2, Deadline(aTime)) > 0;
    if (lPolls[1].revents != 0)
    {
        static_cast<void>(TakeAll(aTerminal.mWatch)); // before the next look: what comes after it ends a wait
    }
    return lReady && lPolls[0].revents != 0;
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
    // The watch may be missing, then the terminal is looked at more often. Without a clean line it would be of no
    // use.
    if (OpenMaster(*lTerminal) && SetCleanLine(*lTerminal))
    {
        lTerminal->mWatch = gSystem.mWatch(lTerminal->mPath);
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
    for (const int lDescriptor :
         lTerminal != nullptr ? std::array{lTerminal->mMaster, lTerminal->mWatch} : std::array{-1, -1})
    {
        if (lDescriptor >= 0)
        {
            static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: there is nothing left to undo
        }
    }
}

uint64_t PseudoTerminal::GetUnread() const noexcept
{
    return mObject != nullptr ? ToTerminal(mObject)->mUnread.load() : 0;
}

void PseudoTerminal::DropUnread() noexcept
{
    if (mObject != nullptr)
    {
        const std::lock_guard<std::mutex> lLock(ToTerminal(mObject)->mUserLock);
        static_cast<void>(Clean(*ToTerminal(mObject))); // ignored: a user may keep the terminal for itself
    }
}

uint64_t PseudoTerminal::DropWritten() noexcept
{
    return mObject != nullptr ? TakeAll(ToTerminal(mObject)->mMaster) : 0;
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

bool PseudoTerminal::GetLine(HostLine& aLine) const noexcept
{
    TerminalLine lLine;
    // Without a user the settings are those of the cleaning. No program has chosen them.
    if (!IsAttached() || !lLine.Read(ToTerminal(mObject)->mMaster))
    {
        return false;
    }
    aLine = lLine.GetLine();
    return true;
}

// A program that has the terminal open keeps what it has chosen.
bool PseudoTerminal::SetLine(const HostLine& aLine) noexcept
{
    if (mObject == nullptr || IsAttached())
    {
        return false;
    }
    Terminal& lTerminal = *ToTerminal(mObject);
    TerminalLine lLine = lTerminal.mCleanLine;
    lLine.SetLine(aLine);
    const bool lIsSet = lLine.WriteBack(lTerminal.mMaster) && lLine.Read(lTerminal.mMaster);
    lTerminal.mCleanLine = lIsSet ? lLine : lTerminal.mCleanLine; // as the system writes it
    return lIsSet;
}

void PseudoTerminal::CleanIfLeft() noexcept
{
    if (mObject != nullptr && !IsAttached())
    {
        static_cast<void>(CleanUp(*ToTerminal(mObject))); // what fails is done again by the next look
    }
}

HostTransferResult PseudoTerminal::Read(void* aBuffer, uint32_t aSize, StopEvent& aStop,
                                        uint32_t aTime) noexcept
{
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
    {
        errno = EBADF;
        return Failed(HostTransfer::Refused, 0);
    }
    Terminal& lTerminal = *ToTerminal(mObject);
    const int lStop = ToDescriptor(aStop.GetHandle());
    const Deadline lDeadline(aTime);
    for (;;)
    {
        switch (Wait(lTerminal, POLLIN, lStop, lDeadline))
        {
        case Side::Ready:
            break;
        case Side::Written: // the next user does not wait until all of it is read
            static_cast<void>(CleanUp(lTerminal));
            break;
        case Side::Left:
            if (IsStoppedMeanwhile(lTerminal, lStop, std::min(CleanUp(lTerminal), aTime)))
            {
                return {HostTransfer::Stopped, 0, 0};
            }
            if (aTime != cForEver)
            {
                return {HostTransfer::Done, 0, 0};
            }
            continue;
        case Side::TimedOut:
            return {HostTransfer::Done, 0, 0};
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
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
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
        switch (Wait(lTerminal, POLLOUT, ToDescriptor(aStop.GetHandle()), Deadline(cInfinite)))
        {
        case Side::Ready:
        case Side::TimedOut: // which an endless wait is not
            break;
        case Side::Written:
        case Side::Left:
            return {HostTransfer::Done, lBytes, 0};
        case Side::Stop:
            return {HostTransfer::Stopped, lBytes, 0};
        case Side::Failed:
            return Failed(HostTransfer::Unsuccessful, lBytes);
        }
        // Set before the write: the user may read these bytes and leave before this thread continues.
        lTerminal.mHasUnread = true;
        const ssize_t lWritten =
            gSystem.mWrite(lTerminal.mMaster, static_cast<const uint8_t*>(aData) + lBytes, aSize - lBytes);
        if (lWritten > 0)
        {
            lBytes += static_cast<uint32_t>(lWritten);
        }
        else if (lWritten < 0 && errno != EAGAIN && errno != EINTR && errno != EIO)
        {
            return Failed(HostTransfer::Refused, lBytes);
        }
    }
    return {HostTransfer::Done, lBytes, 0};
}

} // namespace KyToolPlatform
