#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KyTest
{

/// A second program that a test starts, feeds, watches and waits for. Its output and error output go to files
/// of its own, which vanish with the object. A program that still runs then is killed.
class Process
{
public:
    /// What the program finds as its standard input.
    enum class Input
    {
        Pipe,    ///< A pipe that Feed() writes to and CloseInput() ends.
        File,    ///< A file with Files::mInputText.
        Terminal ///< A terminal that Feed() types on; only where HasTerminals().
    };

    struct Files
    {
        Input mInput = Input::File;
        std::string mInputText{};
        bool mBrokenOutput = false;  ///< The standard output is a pipe whose reader is gone.
        bool mErrorTerminal = false; ///< The error output is the terminal too; see TerminalText().
        /// Variables that differ from those of the test; an empty text takes a variable away. KYSERIAL_DEVICE is
        /// "sim" unless this says otherwise.
        std::map<std::string, std::string> mEnvironment{};
        unsigned mClosed = 0;  ///< Bit N: the program is started without standard stream N.
        bool mInvalid = false; ///< Those are invalid handles, not null; where streams are handles.
    };

    /// Generous: a test that needs it has failed anyway.
    static constexpr uint32_t cPatience = 60000;

    Process();
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// \param aName       Program name without its ending; the program lies beside the running test program.
    /// \param aArguments  Passed on one by one, whatever characters they have.
    bool Start(const std::string& aName, const std::vector<std::string>& aArguments, const Files& aFiles);

    /// Writes to the program's input. \return False when it takes no more.
    bool Feed(const std::string& aText);
    /// Ends an input pipe; hangs up a terminal.
    void CloseInput();

    /// Asks the program to end as Ctrl-C would. \return False where a test cannot do that.
    bool AskToEnd();
    /// Asks it as a system does that shuts down. \return False where a test cannot do that.
    bool Terminate();

    /// Ends it at once, wherever it is, and waits until it is gone.
    void Kill();
    /// Asks it to read its configuration anew. \return False where a system has nothing of the kind.
    bool HangUp();
    /// Keeps it from running, as a machine does that is out of memory. \return False where a test cannot do that.
    bool Pause();
    /// Lets it go on.
    bool Continue();

    /// Waits for the end. \return The exit status; nothing when the program still runs, or was killed.
    std::optional<int> Wait(uint32_t aTimeout = cPatience);

    /// What the program has written so far.
    std::string Output() const;
    std::string Error() const;
    /// What the terminal shows.
    std::string TerminalText();

    /// Waits until the output, the error output or the terminal contains aText.
    bool WaitForOutput(const std::string& aText);
    bool WaitForError(const std::string& aText);
    bool WaitForTerminal(const std::string& aText);

    /// Whether our programs open the null device for closed streams on this system; see StandardStreams.
    static bool HasNullStreams();
    /// Whether this system offers terminals to tests.
    static bool HasTerminals();
    /// Folder of the running program, with the separator at its end.
    static std::string ProgramFolder();
    /// A path for a file of this test alone; the file does not exist yet.
    static std::string TemporaryFile(const std::string& aSuffix);

private:
    struct Child; // the system's half
    struct Paths
    {
        std::string mInput;
        std::string mOutput;
        std::string mError;
    };

    /// The environment of the program.
    /// \param aOwn  That of the test, each entry "NAME=value"; likewise in the answer.
    static std::vector<std::string> Environment(const std::vector<std::string>& aOwn, const Files& aFiles);
    bool StartChild(const std::string& aProgram, const std::vector<std::string>& aArguments,
                    const Files& aFiles);

    Paths mPaths;
    std::unique_ptr<Child> mChild;
};

/// The content of a file; empty when the file does not exist.
std::string ReadFile(const std::string& aPath);
/// Makes a file with this content.
bool WriteFile(const std::string& aPath, const std::string& aContent);

} // namespace KyTest
