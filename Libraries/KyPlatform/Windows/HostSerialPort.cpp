#include "KyPlatform/HostSerialPort.h"

#include "KyPlatform/Windows/SystemCalls.h"

#include <memory>
#include <new>
#include <system_error>

namespace KyPlatform
{

namespace
{

struct Port
{
    HANDLE mHandle = nullptr;
    HANDLE mReadEvent = nullptr;
    HANDLE mWriteEvent = nullptr;
    DCB mFound{};
    bool mIsFound = false;
};

Port* ToPort(void* aObject) noexcept
{
    return static_cast<Port*>(aObject);
}

// The system must be done with buffer and structure before they go.
uint32_t Cancel(HANDLE aPort, OVERLAPPED& aOverlapped) noexcept
{
    static_cast<void>(gSystem.mCancel(aPort, &aOverlapped)); // refused when it has just ended
    DWORD lBytes = 0;
    static_cast<void>(gSystem.mGetResult(aPort, &aOverlapped, &lBytes, TRUE));
    return lBytes;
}

// The end of a transfer that the system has taken.
HostTransferResult Complete(HANDLE aPort, OVERLAPPED& aOverlapped, HANDLE aStop) noexcept
{
    const HANDLE lBoth[] = {aStop, aOverlapped.hEvent};
    const DWORD lFirst = gSystem.mWaitForAll(2, lBoth, FALSE, INFINITE);
    if (lFirst == WAIT_OBJECT_0)
    {
        return {HostTransfer::Stopped, Cancel(aPort, aOverlapped), 0};
    }
    if (lFirst != WAIT_OBJECT_0 + 1)
    {
        const DWORD lError = ::GetLastError();
        return {HostTransfer::Unsuccessful, Cancel(aPort, aOverlapped), lError};
    }
    DWORD lBytes = 0;
    if (gSystem.mGetResult(aPort, &aOverlapped, &lBytes, FALSE) != FALSE)
    {
        return {HostTransfer::Done, lBytes, 0};
    }
    const DWORD lError = ::GetLastError();
    // The line's own time-outs end transfers like this on some systems; nothing is lost.
    const bool lTimeout = lError == ERROR_TIMEOUT;
    return {lTimeout ? HostTransfer::Done : HostTransfer::Unsuccessful, lBytes, lTimeout ? 0 : lError};
}

HostTransferResult Refused() noexcept
{
    const DWORD lError = ::GetLastError();
    return lError == ERROR_TIMEOUT ? HostTransferResult{HostTransfer::Done, 0, 0}
                                   : HostTransferResult{HostTransfer::Refused, 0, lError};
}

} // namespace

bool HostSerialPort::IsPath(const char* /*aName*/) noexcept
{
    return false;
}

bool HostSerialPort::Open(const char* aPath) noexcept
{
    Close();
    std::unique_ptr<Port> lPort(new (std::nothrow) Port);
    mRefusal = lPort == nullptr ? ERROR_NOT_ENOUGH_MEMORY : 0;
    if (lPort == nullptr || aPath == nullptr)
    {
        return false;
    }
    lPort->mHandle = gSystem.mOpenPort(aPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr);
    if (lPort->mHandle == nullptr || lPort->mHandle == INVALID_HANDLE_VALUE)
    {
        mRefusal = ::GetLastError();
        return false;
    }
    lPort->mReadEvent = gSystem.mMakeEvent(nullptr, TRUE, FALSE, nullptr);
    lPort->mWriteEvent = gSystem.mMakeEvent(nullptr, TRUE, FALSE, nullptr);
    const bool lComplete = lPort->mReadEvent != nullptr && lPort->mWriteEvent != nullptr;
    // The object gets the port before the check: Close() takes back what there is of an incomplete one.
    mObject = lPort.release();
    if (!lComplete)
    {
        mRefusal = ::GetLastError();
        Close();
    }
    return lComplete;
}

std::string HostSerialPort::GetRefusal() const
{
    switch (mRefusal)
    {
    case 0:
        return {};
    case ERROR_ACCESS_DENIED: // how the system says that another program has the port
    case ERROR_SHARING_VIOLATION:
        return "it is in use";
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return "there is no such port";
    default:
        return std::system_category().message(static_cast<int>(mRefusal));
    }
}

void HostSerialPort::Close() noexcept
{
    const std::unique_ptr<Port> lPort(ToPort(std::exchange(mObject, nullptr)));
    if (lPort == nullptr)
    {
        return;
    }
    for (const HANDLE lHandle : {lPort->mHandle, lPort->mReadEvent, lPort->mWriteEvent})
    {
        if (lHandle != nullptr)
        {
            static_cast<void>(gSystem.mCloseHandle(lHandle)); // ignored: there is nothing left to undo
        }
    }
}

bool HostSerialPort::SetTimeouts() noexcept
{
    COMMTIMEOUTS lTimeouts{};
    // Only the time between two bytes is set. The wait for the first byte has no end but a stop.
    lTimeouts.ReadIntervalTimeout = cQuietTime;
    lTimeouts.WriteTotalTimeoutMultiplier = cWriteTimePerByte;
    lTimeouts.WriteTotalTimeoutConstant = cWriteTimeMore;
    return mObject != nullptr && gSystem.mSetTimeouts(ToPort(mObject)->mHandle, &lTimeouts) != FALSE;
}

bool HostSerialPort::ReadLine() noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    Port& lPort = *ToPort(mObject);
    lPort.mFound = DCB{};
    lPort.mFound.DCBlength = sizeof lPort.mFound;
    lPort.mIsFound = gSystem.mGetLine(lPort.mHandle, &lPort.mFound) != FALSE;
    return lPort.mIsFound;
}

bool HostSerialPort::SetLine(const HostLine& aLine) noexcept
{
    if (mObject == nullptr || !ToPort(mObject)->mIsFound)
    {
        return false;
    }
    DCB lLine = ToPort(mObject)->mFound;
    lLine.BaudRate = aLine.mBaudRate;
    lLine.ByteSize = static_cast<BYTE>(aLine.mDataBits);
    // An error of the line must not stop later transfers, and a device without DSR must be heard.
    lLine.fAbortOnError = FALSE;
    lLine.fDsrSensitivity = FALSE;
    lLine.StopBits = aLine.mTwoStopBits ? TWOSTOPBITS : ONESTOPBIT;
    lLine.fParity = aLine.mCheckParity ? TRUE : FALSE;
    if (aLine.mParity != HostLine::Parity::Unchanged)
    {
        lLine.Parity = aLine.mParity == HostLine::Parity::Even ? EVENPARITY : ODDPARITY;
    }
    return gSystem.mSetLine(ToPort(mObject)->mHandle, &lLine) != FALSE;
}

HostTransferResult HostSerialPort::Read(void* aBuffer, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
    {
        return {HostTransfer::Refused, 0, ERROR_INVALID_HANDLE};
    }
    const Port& lPort = *ToPort(mObject);
    OVERLAPPED lOverlapped{};
    lOverlapped.hEvent = lPort.mReadEvent;
    static_cast<void>(gSystem.mResetEvent(lPort.mReadEvent)); // cannot fail for an event that is ours
    DWORD lBytes = 0;
    if (gSystem.mReadPort(lPort.mHandle, aBuffer, aSize, &lBytes, &lOverlapped) != FALSE)
    {
        return {HostTransfer::Done, lBytes, 0};
    }
    return ::GetLastError() == ERROR_IO_PENDING ? Complete(lPort.mHandle, lOverlapped, aStop.GetHandle())
                                                : Refused();
}

HostTransferResult HostSerialPort::Write(const void* aData, uint32_t aSize, StopEvent& aStop) noexcept
{
    if (mObject == nullptr || aStop.GetHandle() == nullptr)
    {
        return {HostTransfer::Refused, 0, ERROR_INVALID_HANDLE};
    }
    const Port& lPort = *ToPort(mObject);
    OVERLAPPED lOverlapped{};
    lOverlapped.hEvent = lPort.mWriteEvent;
    static_cast<void>(gSystem.mResetEvent(lPort.mWriteEvent)); // cannot fail for an event that is ours
    DWORD lBytes = 0;
    if (gSystem.mWritePort(lPort.mHandle, aData, aSize, &lBytes, &lOverlapped) != FALSE)
    {
        return {HostTransfer::Done, lBytes, 0};
    }
    return ::GetLastError() == ERROR_IO_PENDING ? Complete(lPort.mHandle, lOverlapped, aStop.GetHandle())
                                                : Refused();
}

} // namespace KyPlatform
