#include "Platform/Console.h"

#include "Platform/Windows/ServiceControl.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>
#include <windows.h>

namespace KyToolPlatform
{

namespace
{

/// What the reading thread and the console share. The thread may be inside a read that nothing can end
/// when the program leaves, so it owns a share.
struct Input
{
    // The standard lock, not JxUtilsLib's: the simulated camera's program has a console and no serial library.
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<uint8_t> mBytes; ///< Read, not yet taken. The thread reads on when it is empty.
    bool mEnded = false;
    bool mInterrupted = false;
    bool mAbandoned = false;
};

/// The console that watches interrupts; the handler runs on a thread of the system's own.
std::mutex gWatcherMutex;
std::condition_variable gWatcherGone;
std::shared_ptr<Input> gWatcher;

void Interrupt(Input& aInput)
{
    const std::lock_guard lLock(aInput.mMutex);
    aInput.mInterrupted = true;
    aInput.mChanged.notify_all();
}

BOOL WINAPI OnControl(DWORD aEvent)
{
    constexpr std::chrono::seconds cLongest(10); // the system's own patience is shorter
    if (aEvent == CTRL_LOGOFF_EVENT && ServiceControl::IsService())
    {
        return TRUE; // a service hears of each user that logs off, and goes on
    }
    std::unique_lock lLock(gWatcherMutex);
    // No console watches, so the system's own handler ends the program as usual.
    if (gWatcher == nullptr)
    {
        return FALSE;
    }
    Interrupt(*gWatcher);
    if (aEvent != CTRL_C_EVENT && aEvent != CTRL_BREAK_EVENT)
    {
        // The process ends when this returns.
        gWatcherGone.wait_for(lLock, cLongest, [] { return gWatcher == nullptr; });
    }
    return TRUE;
}

/// Reads one piece of the standard input. \return False at its end.
bool ReadPiece(std::vector<uint8_t>& aPiece)
{
    aPiece.resize(4096);
    DWORD lRead = 0;
    // The call leaves the last error alone where it succeeds, and it is asked below.
    ::SetLastError(ERROR_SUCCESS);
    const BOOL lDone = ::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), aPiece.data(),
                                  static_cast<DWORD>(aPiece.size()), &lRead, nullptr);
    aPiece.resize(lRead);
    // Ctrl-C at a console ends the read, not the input.
    return lRead > 0 || (lDone != FALSE && ::GetLastError() == ERROR_OPERATION_ABORTED);
}

/// The reading thread: no wait of the system ends for pipes, files and consoles alike.
void ReadInput(const std::shared_ptr<Input>& aInput)
{
    std::vector<uint8_t> lPiece;
    bool lMore = true;
    while (lMore)
    {
        lMore = ReadPiece(lPiece);
        std::unique_lock lLock(aInput->mMutex);
        aInput->mBytes.swap(lPiece);
        aInput->mEnded = !lMore;
        aInput->mChanged.notify_all();
        // One piece ahead at most: a fast input must not fill memory while a slow port takes it.
        aInput->mChanged.wait(lLock, [&] { return aInput->mBytes.empty() || aInput->mAbandoned; });
        lMore = lMore && !aInput->mAbandoned;
    }
}

bool IsTerminal(DWORD aWhich)
{
    DWORD lMode = 0;
    return ::GetConsoleMode(::GetStdHandle(aWhich), &lMode) != FALSE;
}

std::optional<Console::Size> SizeOf(DWORD aWhich)
{
    CONSOLE_SCREEN_BUFFER_INFO lInfo{};
    if (::GetConsoleScreenBufferInfo(::GetStdHandle(aWhich), &lInfo) == FALSE)
    {
        return {};
    }
    return Console::Size{static_cast<unsigned>(lInfo.srWindow.Right - lInfo.srWindow.Left + 1),
                         static_cast<unsigned>(lInfo.srWindow.Bottom - lInfo.srWindow.Top + 1)};
}

} // namespace

struct Console::State
{
    std::shared_ptr<Input> mInput = std::make_shared<Input>();
    std::thread mReader;
    bool mWatching = false;
    bool mRaw = false;
    DWORD mFormerMode = 0;
    DWORD mFormerOutputMode = 0; // 0: left alone
};

Console::Console() : mThis(new State)
{
    for (const int lFile : {0, 1, 2})
    {
        // Bytes go through as they are: text mode would turn line ends over and take 0x1A for the end.
        ::_setmode(lFile, _O_BINARY);
    }
    // Not every run-time library leaves it unbuffered when it is a file, as the language wants it.
    std::setvbuf(stderr, nullptr, _IONBF, 0);
}

Console::~Console()
{
    LeaveRawMode();
    if (mThis->mWatching)
    {
        ::SetConsoleCtrlHandler(OnControl, FALSE);
        const std::lock_guard lLock(gWatcherMutex);
        gWatcher = nullptr;
        gWatcherGone.notify_all();
    }
    if (mThis->mReader.joinable())
    {
        {
            const std::lock_guard lLock(mThis->mInput->mMutex);
            mThis->mInput->mAbandoned = true;
            mThis->mInput->mChanged.notify_all();
        }
        mThis->mReader.detach(); // it may be inside a read that only the other side can end
    }
    delete mThis;
}

bool Console::IsInputTerminal()
{
    return IsTerminal(STD_INPUT_HANDLE);
}

bool Console::IsOutputTerminal()
{
    return IsTerminal(STD_OUTPUT_HANDLE);
}

bool Console::IsErrorTerminal()
{
    return IsTerminal(STD_ERROR_HANDLE);
}

std::optional<Console::Size> Console::GetOutputSize()
{
    return SizeOf(STD_OUTPUT_HANDLE);
}

std::optional<Console::Size> Console::GetErrorSize()
{
    return SizeOf(STD_ERROR_HANDLE);
}

bool Console::EnterRawMode()
{
    if (mThis->mRaw)
    {
        return true;
    }
    const HANDLE lInput = ::GetStdHandle(STD_INPUT_HANDLE);
    if (::GetConsoleMode(lInput, &mThis->mFormerMode) == FALSE)
    {
        return false;
    }
    const DWORD lMode = mThis->mFormerMode &
                        ~static_cast<DWORD>(ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT | ENABLE_PROCESSED_INPUT);
    // Arrow keys as escape sequences, where the system knows how.
    mThis->mRaw = ::SetConsoleMode(lInput, lMode | ENABLE_VIRTUAL_TERMINAL_INPUT) != FALSE ||
                  ::SetConsoleMode(lInput, lMode) != FALSE;
    const HANDLE lOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
    // Without this mode the escape sequences of the session, and those of the device, show as characters.
    DWORD lOutputMode = 0;
    if (mThis->mRaw && ::GetConsoleMode(lOutput, &lOutputMode) != FALSE &&
        ::SetConsoleMode(lOutput, lOutputMode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE)
    {
        mThis->mFormerOutputMode = lOutputMode;
    }
    return mThis->mRaw;
}

void Console::LeaveRawMode()
{
    if (mThis->mRaw)
    {
        ::SetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), mThis->mFormerMode);
        mThis->mRaw = false;
        if (mThis->mFormerOutputMode != 0)
        {
            ::SetConsoleMode(::GetStdHandle(STD_OUTPUT_HANDLE), mThis->mFormerOutputMode);
        }
    }
}

bool Console::WatchInterrupts()
{
    if (!mThis->mWatching)
    {
        {
            const std::lock_guard lLock(gWatcherMutex);
            gWatcher = mThis->mInput;
        }
        // After the watcher is set: the first Ctrl-C must find it.
        mThis->mWatching = ::SetConsoleCtrlHandler(OnControl, TRUE) != FALSE;
    }
    return mThis->mWatching;
}

Console::ReadResult Console::Read(uint8_t* aBuffer, size_t aSize, size_t& aRead, uint32_t aTimeout)
{
    aRead = 0;
    Input& lInput = *mThis->mInput;
    // With the first read: a program that reads nothing leaves the input to others.
    if (!mThis->mReader.joinable())
    {
        mThis->mReader = std::thread(ReadInput, mThis->mInput);
    }
    std::unique_lock lLock(lInput.mMutex);
    const auto lSomething = [&] { return lInput.mInterrupted || !lInput.mBytes.empty() || lInput.mEnded; };
    if (aTimeout == cInfinite)
    {
        lInput.mChanged.wait(lLock, lSomething);
    }
    else if (!lInput.mChanged.wait_for(lLock, std::chrono::milliseconds(aTimeout), lSomething))
    {
        return ReadResult::TimedOut;
    }
    // An interruption counts more than input that waits.
    if (lInput.mInterrupted)
    {
        return ReadResult::Interrupted;
    }
    if (lInput.mBytes.empty())
    {
        return ReadResult::End;
    }
    aRead = std::min(aSize, lInput.mBytes.size());
    std::memcpy(aBuffer, lInput.mBytes.data(), aRead);
    lInput.mBytes.erase(lInput.mBytes.begin(), lInput.mBytes.begin() + static_cast<std::ptrdiff_t>(aRead));
    lInput.mChanged.notify_all(); // the thread reads on
    return ReadResult::Data;
}

void Console::Interrupt()
{
    KyToolPlatform::Interrupt(*mThis->mInput);
}

bool Console::IsInterrupted() const
{
    const std::lock_guard lLock(mThis->mInput->mMutex);
    return mThis->mInput->mInterrupted;
}

bool Console::WaitForInterrupt(uint32_t aTimeout) const
{
    Input& lInput = *mThis->mInput;
    std::unique_lock lLock(lInput.mMutex);
    const auto lInterrupted = [&] { return lInput.mInterrupted; };
    if (aTimeout == cInfinite)
    {
        lInput.mChanged.wait(lLock, lInterrupted);
    }
    return lInput.mChanged.wait_for(lLock, std::chrono::milliseconds(aTimeout), lInterrupted);
}

bool Console::Write(const uint8_t* aData, size_t aSize)
{
    const HANDLE lOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
    while (aSize > 0)
    {
        DWORD lWritten = 0;
        // Consoles refuse large writes.
        const DWORD lPart = static_cast<DWORD>(std::min<size_t>(aSize, 65536));
        if (::WriteFile(lOutput, aData, lPart, &lWritten, nullptr) == FALSE || lWritten == 0)
        {
            return false;
        }
        aData += lWritten;
        aSize -= lWritten;
    }
    return true;
}

} // namespace KyToolPlatform
