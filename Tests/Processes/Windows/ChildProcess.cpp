#include "Tests/Processes/ChildProcess.h"

#include <array>
#include <stdexcept>
#include <windows.h>

struct ChildProcess::State
{
    HANDLE mProcess = nullptr;
    HANDLE mInput = nullptr;  // the child's standard output
    HANDLE mOutput = nullptr; // the child's standard input
    bool mKilled = false;

    int Reap()
    {
        DWORD lCode = 0;
        ::WaitForSingleObject(mProcess, INFINITE);
        ::GetExitCodeProcess(mProcess, &lCode);
        ::CloseHandle(mProcess);
        mProcess = nullptr;
        return mKilled ? -1 : static_cast<int>(lCode);
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& aArguments) : mState(std::make_unique<State>())
{
    SECURITY_ATTRIBUTES lInherit = {sizeof(lInherit), nullptr, TRUE};
    STARTUPINFOA lStart = {};
    lStart.cb = sizeof(lStart);
    lStart.dwFlags = STARTF_USESTDHANDLES;
    lStart.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    if (!::CreatePipe(&mState->mInput, &lStart.hStdOutput, &lInherit, 0) ||
        !::CreatePipe(&lStart.hStdInput, &mState->mOutput, &lInherit, 0))
    {
        throw std::runtime_error("CreatePipe");
    }
    ::SetHandleInformation(mState->mInput, HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(mState->mOutput, HANDLE_FLAG_INHERIT, 0);
    std::array<char, MAX_PATH> lProgram{};
    ::GetModuleFileNameA(nullptr, lProgram.data(), MAX_PATH);
    std::string lCommand = "\"" + std::string(lProgram.data()) + "\" --peer";
    for (const std::string& lArgument : aArguments)
    {
        lCommand += " " + lArgument;
    }
    PROCESS_INFORMATION lNew = {};
    const BOOL lDone = ::CreateProcessA(nullptr, lCommand.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                        &lStart, &lNew);
    ::CloseHandle(lStart.hStdInput);
    ::CloseHandle(lStart.hStdOutput);
    if (!lDone)
    {
        throw std::runtime_error("CreateProcess");
    }
    ::CloseHandle(lNew.hThread);
    mState->mProcess = lNew.hProcess;
}

ChildProcess::~ChildProcess()
{
    Kill();
    ::CloseHandle(mState->mInput);
    ::CloseHandle(mState->mOutput);
}

std::string ChildProcess::ReadLine()
{
    std::string lLine;
    char lLetter = 0;
    DWORD lRead = 0;
    while (::ReadFile(mState->mInput, &lLetter, 1, &lRead, nullptr) && lRead == 1 && lLetter != '\n')
    {
        if (lLetter != '\r')
        {
            lLine += lLetter;
        }
    }
    return lLine;
}

void ChildProcess::WriteLine(const std::string& aLine)
{
    const std::string lText = aLine + "\n";
    DWORD lWritten = 0;
    if (!::WriteFile(mState->mOutput, lText.data(), static_cast<DWORD>(lText.size()), &lWritten, nullptr))
    {
        throw std::runtime_error("peer is gone");
    }
}

void ChildProcess::Kill()
{
    if (mState->mProcess != nullptr)
    {
        mState->mKilled = true;
        ::TerminateProcess(mState->mProcess, 9);
        mState->Reap();
    }
}

int ChildProcess::Wait()
{
    return mState->Reap();
}

int ChildProcess::ScaleRounds(int aRounds)
{
    return aRounds / 5;
}
