#include "Support/Process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace KyTest
{

struct Process::Child
{
    pid_t mProcess = -1;
    int mInput = -1; // our end of the pipe or of the terminal
    bool mTerminal = false;
    std::string mTerminalText;
};

namespace
{

/// The standard files of a program to be started.
class FileActions
{
public:
    FileActions()
    {
        ::posix_spawn_file_actions_init(&mActions);
        ::posix_spawnattr_init(&mAttributes);
        // A program under a test reacts to signals as one at a terminal does, whatever started the test.
        sigset_t lDefaults;
        ::sigemptyset(&lDefaults);
        ::sigaddset(&lDefaults, SIGINT);
        ::sigaddset(&lDefaults, SIGPIPE);
        ::posix_spawnattr_setsigdefault(&mAttributes, &lDefaults);
        // A session of its own: a terminal that is opened becomes its terminal.
        ::posix_spawnattr_setflags(&mAttributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    }
    ~FileActions()
    {
        ::posix_spawnattr_destroy(&mAttributes);
        ::posix_spawn_file_actions_destroy(&mActions);
    }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void Open(int aTarget, const std::string& aPath, int aFlags)
    {
        ::posix_spawn_file_actions_addopen(&mActions, aTarget, aPath.c_str(), aFlags, 0);
    }
    void Close(int aTarget) { ::posix_spawn_file_actions_addclose(&mActions, aTarget); }
    void Take(int aTarget, int aFile) { ::posix_spawn_file_actions_adddup2(&mActions, aFile, aTarget); }

    posix_spawn_file_actions_t mActions{};
    posix_spawnattr_t mAttributes{};
};

/// A pipe or a terminal; both ends vanish in a started program unless it takes one.
struct Ends
{
    int mOurs = -1;
    int mTheirs = -1;
    std::string mTerminal;
};

Ends MakePipe(bool aTheyRead)
{
    int lFiles[2] = {-1, -1};
    if (::pipe2(lFiles, O_CLOEXEC) != 0)
    {
        return {};
    }
    return aTheyRead ? Ends{lFiles[1], lFiles[0], {}} : Ends{lFiles[0], lFiles[1], {}};
}

Ends MakeTerminal()
{
    const int lFile = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char lName[128] = {};
    if (lFile < 0 || ::grantpt(lFile) != 0 || ::unlockpt(lFile) != 0 ||
        ::ptsname_r(lFile, lName, sizeof(lName)) != 0)
    {
        return {};
    }
    // Held open on our side too: a terminal that is not open yet counts as hung up.
    return {lFile, ::open(lName, O_RDWR | O_NOCTTY | O_CLOEXEC), lName};
}

/// The texts as the system takes them: their addresses, and a null at the end.
std::vector<char*> Pointers(std::vector<std::string>& aTexts)
{
    std::vector<char*> lPointers;
    lPointers.reserve(aTexts.size() + 1);
    for (std::string& lText : aTexts)
    {
        lPointers.push_back(lText.data());
    }
    lPointers.push_back(nullptr);
    return lPointers;
}

std::vector<std::string> OwnEnvironment()
{
    std::vector<std::string> lEntries;
    for (char** lEntry = environ; *lEntry != nullptr; ++lEntry)
    {
        lEntries.emplace_back(*lEntry);
    }
    return lEntries;
}

pid_t Spawn(const FileActions& aActions, const std::string& aProgram,
            const std::vector<std::string>& aArguments, std::vector<std::string> aEnvironment)
{
    std::vector<std::string> lTexts = aArguments;
    lTexts.insert(lTexts.begin(), aProgram);
    pid_t lProcess = -1;
    const int lError = ::posix_spawn(&lProcess, aProgram.c_str(), &aActions.mActions, &aActions.mAttributes,
                                     Pointers(lTexts).data(), Pointers(aEnvironment).data());
    return lError == 0 ? lProcess : -1;
}

} // namespace

Process::Process() : mChild(std::make_unique<Child>()) {}

Process::~Process()
{
    CloseInput();
    Kill();
    for (const std::string& lPath : {mPaths.mInput, mPaths.mOutput, mPaths.mError})
    {
        ::unlink(lPath.c_str());
    }
}

bool Process::StartChild(const std::string& aProgram, const std::vector<std::string>& aArguments,
                         const Files& aFiles)
{
    FileActions lActions;
    Ends lInput;
    Ends lOutput;
    mChild->mTerminal = aFiles.mInput == Input::Terminal;
    if (mChild->mTerminal)
    {
        lInput = MakeTerminal();
        lActions.Open(STDIN_FILENO, lInput.mTerminal, O_RDWR);
    }
    else if (aFiles.mInput == Input::Pipe)
    {
        lInput = MakePipe(true);
        lActions.Take(STDIN_FILENO, lInput.mTheirs);
    }
    else
    {
        lActions.Open(STDIN_FILENO, mPaths.mInput, O_RDONLY);
    }
    lActions.Open(STDOUT_FILENO, mPaths.mOutput, O_WRONLY | O_APPEND);
    lActions.Open(STDERR_FILENO, aFiles.mErrorTerminal ? lInput.mTerminal : mPaths.mError,
                  O_WRONLY | O_APPEND);
    if (aFiles.mBrokenOutput)
    {
        lOutput = MakePipe(false);
        ::close(lOutput.mOurs);
        lActions.Take(STDOUT_FILENO, lOutput.mTheirs);
    }
    for (int lStream = 0; lStream < 3; ++lStream)
    {
        if ((aFiles.mClosed >> lStream & 1U) != 0)
        {
            lActions.Close(lStream);
        }
    }
    mChild->mInput = lInput.mOurs;
    mChild->mProcess = Spawn(lActions, aProgram, aArguments, Environment(OwnEnvironment(), aFiles));
    for (const int lFile : {lInput.mTheirs, lOutput.mTheirs})
    {
        if (lFile >= 0)
        {
            ::close(lFile);
        }
    }
    return mChild->mProcess > 0;
}

bool Process::Feed(const std::string& aText)
{
    struct sigaction lIgnore = {};
    lIgnore.sa_handler = SIG_IGN;
    struct sigaction lFormer = {};
    ::sigaction(SIGPIPE, &lIgnore, &lFormer);
    size_t lDone = 0;
    ssize_t lWritten = 0;
    while (lDone < aText.size() && (lWritten >= 0 || errno == EINTR))
    {
        lWritten = ::write(mChild->mInput, aText.data() + lDone, aText.size() - lDone);
        lDone += lWritten > 0 ? static_cast<size_t>(lWritten) : 0;
    }
    ::sigaction(SIGPIPE, &lFormer, nullptr);
    return lDone == aText.size();
}

void Process::CloseInput()
{
    if (mChild->mInput >= 0)
    {
        ::close(mChild->mInput);
        mChild->mInput = -1;
    }
}

bool Process::AskToEnd()
{
    return mChild->mProcess > 0 && ::kill(mChild->mProcess, SIGINT) == 0; // not all processes
}

bool Process::Terminate()
{
    return mChild->mProcess > 0 && ::kill(mChild->mProcess, SIGTERM) == 0;
}

void Process::Kill()
{
    if (mChild->mProcess > 0)
    {
        ::kill(mChild->mProcess, SIGKILL);
        ::waitpid(mChild->mProcess, nullptr, 0);
        mChild->mProcess = -1;
    }
}

bool Process::HangUp()
{
    return mChild->mProcess > 0 && ::kill(mChild->mProcess, SIGHUP) == 0;
}

bool Process::Pause()
{
    return mChild->mProcess > 0 && ::kill(mChild->mProcess, SIGSTOP) == 0;
}

bool Process::Continue()
{
    return mChild->mProcess > 0 && ::kill(mChild->mProcess, SIGCONT) == 0;
}

std::optional<int> Process::Wait(uint32_t aTimeout)
{
    const auto lEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(aTimeout);
    int lStatus = 0;
    while (::waitpid(mChild->mProcess, &lStatus, WNOHANG) != mChild->mProcess)
    {
        if (std::chrono::steady_clock::now() > lEnd)
        {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    mChild->mProcess = -1;
    return WIFEXITED(lStatus) ? std::optional<int>(WEXITSTATUS(lStatus)) : std::nullopt;
}

std::string Process::TerminalText()
{
    pollfd lFile = {mChild->mInput, POLLIN, 0};
    char lPiece[4096];
    while (mChild->mTerminal && ::poll(&lFile, 1, 0) > 0 && (lFile.revents & POLLIN) != 0)
    {
        const ssize_t lRead = ::read(mChild->mInput, lPiece, sizeof(lPiece));
        if (lRead <= 0)
        {
            break;
        }
        mChild->mTerminalText.append(lPiece, static_cast<size_t>(lRead));
    }
    return mChild->mTerminalText;
}

bool Process::HasNullStreams()
{
    return true;
}

bool Process::HasTerminals()
{
    return true;
}

std::string Process::ProgramFolder()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/";
}

} // namespace KyTest
