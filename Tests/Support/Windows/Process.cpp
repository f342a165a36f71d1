#include "Support/Process.h"

#include <cstdio>
#include <windows.h>

namespace KyTest
{

struct Process::Child
{
    HANDLE mProcess = nullptr;
    HANDLE mInput = nullptr; // our end of the pipe
};

namespace
{

HANDLE OpenInheritable(const std::string& aPath, DWORD aAccess)
{
    SECURITY_ATTRIBUTES lInheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE lFile = ::CreateFileA(aPath.c_str(), aAccess, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                       &lInheritable, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return lFile != INVALID_HANDLE_VALUE ? lFile : nullptr;
}

/// A pipe of which the started program inherits one end.
void MakePipe(bool aTheyRead, HANDLE& aOurs, HANDLE& aTheirs)
{
    HANDLE lRead = nullptr;
    HANDLE lWrite = nullptr;
    ::CreatePipe(&lRead, &lWrite, nullptr, 0);
    aTheirs = aTheyRead ? lRead : lWrite;
    aOurs = aTheyRead ? lWrite : lRead;
    ::SetHandleInformation(aTheirs, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
}

/// One argument as the run-time library of the started program takes it apart again.
std::string Quoted(const std::string& aArgument)
{
    std::string lResult = "\"";
    size_t lBackslashes = 0;
    for (const char lCharacter : aArgument)
    {
        if (lCharacter == '"')
        {
            lResult.append(lBackslashes + 1, '\\');
        }
        lBackslashes = lCharacter == '\\' ? lBackslashes + 1 : 0;
        lResult += lCharacter;
    }
    lResult.append(lBackslashes, '\\');
    return lResult + "\"";
}

BOOL WINAPI IgnoreControl(DWORD /*aEvent*/)
{
    return TRUE;
}

void Close(HANDLE& aHandle)
{
    if (aHandle != nullptr)
    {
        ::CloseHandle(aHandle);
        aHandle = nullptr;
    }
}

std::vector<std::string> OwnEnvironment()
{
    std::vector<std::string> lEntries;
    char* const lBlock = ::GetEnvironmentStringsA();
    for (const char* lEntry = lBlock; lEntry != nullptr && *lEntry != '\0';
         lEntry += lEntries.back().size() + 1)
    {
        lEntries.emplace_back(lEntry);
    }
    ::FreeEnvironmentStringsA(lBlock);
    return lEntries;
}

} // namespace

Process::Process() : mChild(std::make_unique<Child>()) {}

Process::~Process()
{
    CloseInput();
    Kill();
    for (const std::string& lPath : {mPaths.mInput, mPaths.mOutput, mPaths.mError})
    {
        ::DeleteFileA(lPath.c_str());
    }
}

bool Process::StartChild(const std::string& aProgram, const std::vector<std::string>& aArguments,
                         const Files& aFiles)
{
    STARTUPINFOA lStart = {};
    lStart.cb = sizeof(lStart);
    lStart.dwFlags = STARTF_USESTDHANDLES;
    if (aFiles.mInput == Input::Pipe)
    {
        MakePipe(true, mChild->mInput, lStart.hStdInput);
    }
    else
    {
        lStart.hStdInput = OpenInheritable(mPaths.mInput, GENERIC_READ);
    }
    if (aFiles.mBrokenOutput)
    {
        HANDLE lOurs = nullptr;
        MakePipe(false, lOurs, lStart.hStdOutput);
        Close(lOurs);
    }
    else
    {
        lStart.hStdOutput = OpenInheritable(mPaths.mOutput, FILE_APPEND_DATA);
    }
    lStart.hStdError = OpenInheritable(mPaths.mError, FILE_APPEND_DATA);
    HANDLE* const lStreams[] = {&lStart.hStdInput, &lStart.hStdOutput, &lStart.hStdError};
    for (unsigned lStream = 0; lStream < 3; ++lStream)
    {
        if ((aFiles.mClosed >> lStream & 1U) != 0)
        {
            Close(*lStreams[lStream]);
            *lStreams[lStream] = aFiles.mInvalid ? INVALID_HANDLE_VALUE : nullptr;
        }
    }
    std::string lCommand = Quoted(aProgram + ".exe");
    for (const std::string& lArgument : aArguments)
    {
        lCommand += " " + Quoted(lArgument);
    }
    std::string lEnvironment; // entries with their ends, and one end more
    for (const std::string& lEntry : Environment(OwnEnvironment(), aFiles))
    {
        lEnvironment += lEntry + '\0';
    }
    lEnvironment += '\0';
    PROCESS_INFORMATION lInformation = {};
    // With an invisible console of its own: a control event reaches the programs of one console. A program without a
    // stream has no console either: the system would make that its stream.
    const DWORD lFlags = aFiles.mClosed != 0 ? DETACHED_PROCESS : CREATE_NO_WINDOW;
    const BOOL lStarted = ::CreateProcessA(nullptr, lCommand.data(), nullptr, nullptr, TRUE, lFlags,
                                           lEnvironment.data(), nullptr, &lStart, &lInformation);
    for (HANDLE* const lHandle : lStreams)
    {
        if (*lHandle != INVALID_HANDLE_VALUE)
        {
            Close(*lHandle);
        }
    }
    Close(lInformation.hThread);
    mChild->mProcess = lInformation.hProcess;
    return lStarted != FALSE && aFiles.mInput != Input::Terminal;
}

bool Process::Feed(const std::string& aText)
{
    DWORD lWritten = 0;
    return ::WriteFile(mChild->mInput, aText.data(), static_cast<DWORD>(aText.size()), &lWritten, nullptr) !=
               FALSE &&
           lWritten == aText.size();
}

void Process::CloseInput()
{
    Close(mChild->mInput);
}

bool Process::AskToEnd()
{
    // From inside the program's console; the event comes to this program too.
    ::SetConsoleCtrlHandler(IgnoreControl, TRUE);
    ::FreeConsole();
    const bool lAsked = ::AttachConsole(::GetProcessId(mChild->mProcess)) != FALSE &&
                        ::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) != FALSE;
    ::FreeConsole();
    return lAsked;
}

bool Process::Terminate()
{
    return false; // the events of a shutdown are the system's to send
}

void Process::Kill()
{
    if (mChild->mProcess != nullptr)
    {
        ::TerminateProcess(mChild->mProcess, 255); // without effect on one that has ended
        ::WaitForSingleObject(mChild->mProcess, cPatience);
        Close(mChild->mProcess);
    }
}

bool Process::HangUp()
{
    return false;
}

bool Process::Pause()
{
    return false;
}

bool Process::Continue()
{
    return false;
}

std::optional<int> Process::Wait(uint32_t aTimeout)
{
    DWORD lStatus = 0;
    if (::WaitForSingleObject(mChild->mProcess, aTimeout) != WAIT_OBJECT_0 ||
        ::GetExitCodeProcess(mChild->mProcess, &lStatus) == FALSE)
    {
        return std::nullopt;
    }
    // What the system ends a program with that does not handle its control events.
    return lStatus != static_cast<DWORD>(STATUS_CONTROL_C_EXIT)
               ? std::optional<int>(static_cast<int>(lStatus))
               : std::nullopt;
}

std::string Process::TerminalText()
{
    return {};
}

bool Process::HasNullStreams()
{
    return false;
}

bool Process::HasTerminals()
{
    return false;
}

std::string Process::ProgramFolder()
{
    char lPath[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, lPath, MAX_PATH);
    const std::string lProgram = lPath;
    return lProgram.substr(0, lProgram.find_last_of('\\') + 1);
}

} // namespace KyTest
