#include "KyPlatform/HostSerialPort.h"

#include "KyPlatform/Linux/HostHandle.h"
#include "KyPlatform/Linux/Poll.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Linux/TerminalLine.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <sys/file.h>
#include <system_error>
#include <utility>

namespace KyPlatform
{

namespace
{

constexpr char cComPrefix[] = R"(\\.\COM)";

struct Port
{
    char mPath[PATH_MAX];
    int mDescriptor = -1; // the same number from Open() to Close(), also when the device is opened again
    bool mHungUp = false; // the reading thread alone uses it
    // Guards the line. The reader sets the line again when it opens the device again. This layer stands below
    // JxUtilsLib, so it has the standard library's lock.
    std::mutex mMutex;
    TerminalLine mFound;
    bool mIsFound = false;
    HostLine mLine;
    bool mIsSet = false;
};

Port* ToPort(void* aObject) noexcept
{
    return static_cast<Port*>(aObject);
}

// Finds the device that a port's name means. \return False: it is not the name of a port.
bool GetDevice(const char* aName, char (&aPath)[PATH_MAX]) noexcept
{
    if (HostSerialPort::IsPath(aName))
    {
        return std::snprintf(aPath, sizeof aPath, "%s", aName) < static_cast<int>(sizeof aPath);
    }
    constexpr size_t cPrefixLength = sizeof cComPrefix - 1;
    if (aName == nullptr || std::strncmp(aName, cComPrefix, cPrefixLength) != 0)
    {
        return false;
    }
    unsigned lNumber = 0;
    const char* const lEnd = aName + std::strlen(aName);
    const auto lParsed = std::from_chars(aName + cPrefixLength, lEnd, lNumber);
    // COM1 is the first terminal, ttyS0, so there is no COM0.
    if (lParsed.ec != std::errc() || lParsed.ptr != lEnd || lNumber == 0)
    {
        return false;
    }
    return std::snprintf(aPath, sizeof aPath, "/dev/ttyS%u", lNumber - 1) > 0;
}

// Opens a terminal that nobody else uses. \return -1 with errno.
int OpenTerminal(const char* aPath) noexcept
{
    // O_NONBLOCK keeps the opening from waiting for a carrier. Transfers wait in poll().
    const int lDescriptor = gSystem.mOpen(AT_FDCWD, aPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
    if (lDescriptor < 0)
    {
        return -1;
    }
    TerminalLine lLine;
    // The mark keeps the programs of other users out. The lock keeps out all that look at it, root's too.
    if (!lLine.Read(lDescriptor) || gSystem.mLockFile(lDescriptor, LOCK_EX | LOCK_NB) != 0 ||
        !TerminalLine::SetExclusive(lDescriptor, true))
    {
        const int lError = errno;
        static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: the first failure is what counts
        errno = lError;
        return -1;
    }
    return lDescriptor;
}

// Puts the device that the port's name means now in the place of the one that has hung up. \return False with
// errno.
bool OpenAgain(Port& aPort) noexcept
{
    // The name may still mean the device that has hung up: a line can go down and come up. This port's own lock
    // and mark would then keep this port out. Results ignored: a device that is gone refuses.
    static_cast<void>(gSystem.mLockFile(aPort.mDescriptor, LOCK_UN));
    static_cast<void>(TerminalLine::SetExclusive(aPort.mDescriptor, false));
    const int lDescriptor = OpenTerminal(aPort.mPath);
    if (lDescriptor < 0)
    {
        return false;
    }
    const std::lock_guard<std::mutex> lLock(aPort.mMutex);
    TerminalLine lLine;
    bool lDone = lLine.Read(lDescriptor) && lLine.WriteReadRule(lDescriptor);
    lDone = lDone && (!aPort.mIsSet || lLine.Write(lDescriptor, aPort.mLine));
    // The writer may be using the number: it changes its device in one step.
    lDone = lDone && gSystem.mReplace(lDescriptor, aPort.mDescriptor, O_CLOEXEC) >= 0;
    const int lError = errno;
    static_cast<void>(gSystem.mClose(lDescriptor)); // ignored: the number is not used any more
    errno = lError;
    aPort.mHungUp = !lDone;
    return lDone;
}

HostTransferResult Failed(HostTransfer aEnd, uint32_t aBytes) noexcept
{
    return {aEnd, aBytes, static_cast<uint32_t>(errno)};
}

enum class Ready
{
    Line,
    Stop,
    Nothing,
    Failed
};

Ready WaitForLine(const Port& aPort, short aEvents, int aStop, const Deadline& aDeadline) noexcept
{
    pollfd lPolls[] = {{aStop, POLLIN, 0}, {aPort.mDescriptor, aEvents, 0}};
    const int lReady = PollUntil(lPolls, 2, aDeadline);
    if (lReady < 0)
    {
        return Ready::Failed;
    }
    // The stop comes first, since a line that is always ready would keep it waiting.
    if (lPolls[0].revents != 0)
    {
        return Ready::Stop;
    }
    return lReady > 0 ? Ready::Line : Ready::Nothing;
}

} // namespace

bool HostSerialPort::IsPath(const char* aName) noexcept
{
    return aName != nullptr && aName[0] == '/';
}

bool HostSerialPort::Open(const char* aPath) noexcept
{
    Close();
    std::unique_ptr<Port> lPort(new (std::nothrow) Port);
    mRefusal = lPort == nullptr ? ENOMEM : 0;
    if (lPort == nullptr || !GetDevice(aPath, lPort->mPath))
    {
        return false;
    }
    lPort->mDescriptor = OpenTerminal(lPort->mPath);
    mRefusal = lPort->mDescriptor < 0 ? static_cast<uint32_t>(errno) : 0;
    mObject = lPort->mDescriptor >= 0 ? lPort.release() : nullptr;
    return mObject != nullptr;
}

std::string HostSerialPort::GetRefusal() const
{
    switch (mRefusal)
    {
    case 0:
        return {};
    case EBUSY:  // of the mark
    case EAGAIN: // of the lock
        return "it is in use";
    case ENOENT:
    case ENXIO:
    case ENODEV:
        return "there is no such port";
    case ENOTTY:
        return "it is no terminal";
    default:
        return std::generic_category().message(static_cast<int>(mRefusal));
    }
}

void HostSerialPort::Close() noexcept
{
    const std::unique_ptr<Port> lPort(ToPort(std::exchange(mObject, nullptr)));
    if (lPort != nullptr)
    {
        // Results ignored: a device that is gone refuses, and there is nothing left to undo.
        // The mark is the terminal's and stays when another process has the terminal open.
        static_cast<void>(TerminalLine::SetExclusive(lPort->mDescriptor, false));
        static_cast<void>(gSystem.mClose(lPort->mDescriptor));
    }
}

bool HostSerialPort::SetTimeouts() noexcept
{
    TerminalLine lLine;
    return mObject != nullptr && lLine.Read(ToPort(mObject)->mDescriptor) &&
           lLine.WriteReadRule(ToPort(mObject)->mDescriptor);
}

bool HostSerialPort::ReadLine() noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    Port& lPort = *ToPort(mObject);
    const std::lock_guard<std::mutex> lLock(lPort.mMutex);
    lPort.mIsFound = lPort.mFound.Read(lPort.mDescriptor);
    return lPort.mIsFound;
}

bool HostSerialPort::SetLine(const HostLine& aLine) noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    Port& lPort = *ToPort(mObject);
    const std::lock_guard<std::mutex> lLock(lPort.mMutex);
    if (!lPort.mIsFound || !lPort.mFound.Write(lPort.mDescriptor, aLine))
    {
        return false;
    }
    // A device that hangs up gets this line again when it is opened anew.
    lPort.mLine = aLine;
    lPort.mIsSet = true;
    return true;
}

HostTransferResult HostSerialPort::Read(void* aBuffer, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
    {
        errno = EBADF;
        return Failed(HostTransfer::Refused, 0);
    }
    Port& lPort = *ToPort(mObject);
    if (lPort.mHungUp && !OpenAgain(lPort))
    {
        return Failed(HostTransfer::Refused, 0);
    }
    uint32_t lBytes = 0;
    while (lBytes < aSize)
    {
        const Deadline lDeadline(lBytes == 0 ? cInfinite : cQuietTime);
        switch (WaitForLine(lPort, POLLIN, ToDescriptor(aStop.GetHandle()), lDeadline))
        {
        case Ready::Line:
            break;
        case Ready::Stop:
            return {HostTransfer::Stopped, lBytes, 0};
        case Ready::Nothing:
            return {HostTransfer::Done, lBytes, 0};
        case Ready::Failed:
            return Failed(HostTransfer::Unsuccessful, lBytes);
        }
        const ssize_t lRead =
            gSystem.mRead(lPort.mDescriptor, static_cast<uint8_t*>(aBuffer) + lBytes, aSize - lBytes);
        if (lRead > 0)
        {
            lBytes += static_cast<uint32_t>(lRead);
            continue;
        }
        if (lRead < 0 && (errno == EAGAIN || errno == EINTR))
        {
            continue;
        }
        // The terminal has ended: the other side is closed, or the device is gone.
        errno = lRead < 0 ? errno : EIO;
        lPort.mHungUp = true;
        // Bytes that came before the end are delivered first. The next read reports the failure.
        return lBytes > 0 ? HostTransferResult{HostTransfer::Done, lBytes, 0}
                          : Failed(HostTransfer::Refused, 0);
    }
    return {HostTransfer::Done, lBytes, 0};
}

HostTransferResult HostSerialPort::Write(const void* aData, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
    {
        errno = EBADF;
        return Failed(HostTransfer::Refused, 0);
    }
    const Port& lPort = *ToPort(mObject);
    const Deadline lDeadline(uint64_t{aSize} * cWriteTimePerByte + cWriteTimeMore);
    uint32_t lBytes = 0;
    while (lBytes < aSize)
    {
        const ssize_t lWritten =
            gSystem.mWrite(lPort.mDescriptor, static_cast<const uint8_t*>(aData) + lBytes, aSize - lBytes);
        if (lWritten > 0)
        {
            lBytes += static_cast<uint32_t>(lWritten);
            continue;
        }
        if (lWritten < 0 && errno == EINTR)
        {
            continue;
        }
        // A line that has hung up is opened again by the reader alone.
        if (lWritten < 0 && errno != EAGAIN)
        {
            return Failed(HostTransfer::Refused, lBytes);
        }
        switch (WaitForLine(lPort, POLLOUT, ToDescriptor(aStop.GetHandle()), lDeadline))
        {
        case Ready::Line:
            break;
        case Ready::Stop:
            return {HostTransfer::Stopped, lBytes, 0};
        case Ready::Nothing:
            return {HostTransfer::Done, lBytes, 0};
        case Ready::Failed:
            return Failed(HostTransfer::Unsuccessful, lBytes);
        }
    }
    return {HostTransfer::Done, lBytes, 0};
}

} // namespace KyPlatform
