#include "kyserial/Terminal/TermSession.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Output.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

constexpr uint32_t cQuietPoll = 5; // milliseconds

const char* OnOff(bool aOn)
{
    return aOn ? "on" : "off";
}

/// On the error output: the standard output may be a file.
void PrintPrompt(const std::string& aText)
{
    std::fputs(aText.c_str(), stderr);
    std::fflush(stderr);
}

Screen::Write ToConsole(Console& aConsole)
{
    return [&aConsole](const std::string& aText)
    { return aConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size()); };
}

} // namespace

/// A key after the escape key.
struct TermSession::Command
{
    char mKey;
    const char* mText;
    void (*mRun)(TermSession& aSession); ///< Null: leaves.
};

const std::vector<TermSession::Command>& TermSession::Commands()
{
    static const std::vector<Command> cCommands = {
        {'?', "show this list",
         [](TermSession& aSession) { aSession.mNotice(CommandList(aSession.mSettings.mEscape)); }},
        {'q', "leave", nullptr},
        {'x', "leave", nullptr},
        {'v', "show the settings and counts", [](TermSession& aSession) { aSession.ShowSettings(); }},
        {'e', "local echo on or off",
         [](TermSession& aSession)
         {
             aSession.mSettings.mEcho = !aSession.mSettings.mEcho;
             aSession.Switch("local echo", OnOff(aSession.mSettings.mEcho));
         }},
        {'h', "hexadecimal output on or off",
         [](TermSession& aSession)
         {
             ScreenSettings lScreen = aSession.mScreen.GetSettings();
             lScreen.mHex = !lScreen.mHex;
             // A line of the dump that is not full yet is shown in the old form.
             aSession.mScreen.Flush();
             aSession.mScreen.Change(lScreen);
             aSession.Switch("hexadecimal output", OnOff(lScreen.mHex));
         }},
        {'i', "hexadecimal input on or off",
         [](TermSession& aSession)
         {
             aSession.mSettings.mHexInput = !aSession.mSettings.mHexInput;
             // Half a byte of the other kind of input means nothing in the new one.
             aSession.mHexReader.Drop();
             aSession.Switch("hexadecimal input", OnOff(aSession.mSettings.mHexInput));
         }},
        {'t', "next kind of time stamps: none, utc, elapsed, step",
         [](TermSession& aSession)
         {
             ScreenSettings lScreen = aSession.mScreen.GetSettings();
             lScreen.mTimeStamps = static_cast<TimeStamps>((static_cast<int>(lScreen.mTimeStamps) + 1) % 4);
             aSession.mScreen.Change(lScreen);
             aSession.Switch("time stamps", TimeStampsName(lScreen.mTimeStamps));
         }},
        {'n', "next line end for what is sent: asis, cr, lf, crlf",
         [](TermSession& aSession)
         {
             aSession.mSendEnds = LineEndMap(NextLineEnd(aSession.mSendEnds.GetEnd()));
             aSession.Switch("line ends sent", LineEndName(aSession.mSendEnds.GetEnd()));
         }},
        {'m', "next line end for what is shown: asis, cr, lf, crlf",
         [](TermSession& aSession)
         {
             ScreenSettings lScreen = aSession.mScreen.GetSettings();
             lScreen.mLineEnd = NextLineEnd(lScreen.mLineEnd);
             aSession.mScreen.Change(lScreen);
             aSession.Switch("line ends shown", LineEndName(lScreen.mLineEnd));
         }},
        {'b', "set the bits per second", [](TermSession& aSession) { aSession.AskForRate(); }},
        {'s', "send a file", [](TermSession& aSession) { aSession.AskForFile(); }},
        {'l', "clear the screen", [](TermSession& /*aSession*/) { PrintPrompt("\x1B[H\x1B[2J"); }}};
    return cCommands;
}

std::string TermSession::CommandList(const EscapeKey& aEscape)
{
    const std::string lEscape = aEscape.Text();
    std::string lText = "keys after " + lEscape + " (" + lEscape + " twice sends it):";
    for (const Command& lCommand : Commands())
    {
        lText += std::string("\n  ") + lCommand.mKey + "  " + lCommand.mText;
    }
    return lText;
}

TermSession::TermSession(Console& aConsole, BytePort& aPort, TrafficLog& aLog, const TermSettings& aSettings,
                         std::function<void(const std::string&)> aNotice)
    : mConsole(aConsole)
    , mPort(aPort)
    , mSettings(aSettings)
    , mNotice(std::move(aNotice))
    , mKeys([this](uint8_t* aBuffer, size_t aSize, size_t& aRead, uint32_t aTimeout)
            { return mConsole.Read(aBuffer, aSize, aRead, aTimeout); },
            // A file or pipe has no key for commands: every byte of it is for the port.
            aSettings.mInteractive ? std::optional(aSettings.mEscape) : std::nullopt)
    , mSendEnds(aSettings.mSendEnd)
    , mScreen(ToConsole(aConsole), aSettings.mScreen)
    , mStatus(mScreen, aSettings.mStatus)
    , mSender(
          aPort, aLog,
          // The input of a script waits for a port that is away. A user can do something better than wait.
          [this] { return mConsole.IsInterrupted() || (mSettings.mInteractive && mPort.IsAway()); },
          aSettings.mBusyLimit)
    , mReceiver(aPort, aLog,
                {[this](const std::vector<uint8_t>& aBytes) { return Show(aBytes); },
                 [this] { mConsole.Interrupt(); }})
{
}

TermSession::End TermSession::Run()
{
    // The file goes out before any key, so that a script's input can be the commands after it.
    const bool lFileSent = mSettings.mFile.empty() || SendFile(mSettings.mFile);
    End lEnd = lFileSent ? SendInput() : End::Interrupted;
    // A script that pipes a question in wants the answer, which comes after the input has ended.
    if (lEnd == End::InputEnded && !mSettings.mInteractive)
    {
        lEnd = AwaitQuiet();
    }
    // Stopped first: after that nothing more is shown, and the failure is final.
    mReceiver.Stop();
    mStatus.End();
    const std::string lFailure = mReceiver.GetFailure();
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    if (!mScreen.Flush())
    {
        throw OperationError("cannot write to the standard output");
    }
    return lEnd;
}

TermSession::End TermSession::SendInput()
{
    for (;;)
    {
        const KeyReader::Event lEvent = mKeys.Next();
        if (lEvent.mResult != Console::ReadResult::Data)
        {
            // Half a byte at the end of a file is a mistake; at a keyboard the user has only stopped typing.
            if (mHexReader.Drop() && !mSettings.mInteractive)
            {
                throw OperationError("--hex-input: the input ends within a byte");
            }
            return lEvent.mResult == Console::ReadResult::Interrupted ? End::Interrupted : End::InputEnded;
        }
        if (lEvent.mCommand.has_value() ? !Obey(*lEvent.mCommand) : !SendKeys(lEvent.mBytes))
        {
            return lEvent.mCommand.has_value() ? End::Escaped : End::Interrupted;
        }
    }
}

/// On the receiver's thread.
bool TermSession::Show(const std::vector<uint8_t>& aBytes)
{
    mReceived += aBytes.size();
    mStatus.Show(mSettings.mTitle + (mPort.IsAway() ? ", away" : "") + "  received " +
                 std::to_string(mReceived) + " bytes  " + mSettings.mEscape.Text() + " ? shows the keys");
    return mScreen.Show(aBytes.data(), aBytes.size());
}

TermSession::End TermSession::AwaitQuiet() const
{
    const uint64_t lInputEnd = JxUtilsLib::Thread::GetTickCount();
    while (!mConsole.IsInterrupted())
    {
        // The quiet time begins with the end of the input when nothing has come since.
        const uint64_t lLast = std::max(lInputEnd, mReceiver.GetLastTime());
        if (!mSettings.mForever && JxUtilsLib::Thread::GetTickCount() >= lLast + mSettings.mQuietTime)
        {
            break;
        }
        JxUtilsLib::Thread::Sleep(cQuietPoll);
    }
    return End::InputEnded; // everything was sent: to stop listening is no interruption
}

/// \return False when the session was interrupted.
bool TermSession::SendKeys(const std::vector<uint8_t>& aBytes)
{
    // Formed before it is shown: input that is refused leaves no echo.
    const std::string lBytes = FormInput(aBytes);
    if (mSettings.mEcho && !mScreen.Echo(aBytes.data(), aBytes.size()))
    {
        throw OperationError("cannot write to the standard output");
    }
    return SendBytes(lBytes);
}

bool TermSession::SendBytes(const std::string& aBytes)
{
    const uint64_t lBefore = mSender.GetSent();
    if (mSender.Send(reinterpret_cast<const uint8_t*>(aBytes.data()), aBytes.size()))
    {
        return true;
    }
    // A part may have gone out before the sender gave up.
    mDropped += aBytes.size() - (mSender.GetSent() - lBefore);
    return !mConsole.IsInterrupted(); // otherwise the device is away, and a user can do better than wait
}

std::string TermSession::FormInput(const std::vector<uint8_t>& aBytes)
{
    if (!mSettings.mHexInput)
    {
        return mSendEnds.Map(aBytes.data(), aBytes.size());
    }
    std::vector<uint8_t> lBytes;
    size_t lTaken = 0;
    while ((lTaken += mHexReader.Add(aBytes.data() + lTaken, aBytes.size() - lTaken, lBytes)) < aBytes.size())
    {
        const std::string lWhat = '"' + PrintableBytes(&aBytes[lTaken], 1) + "\" is no hexadecimal digit";
        // A script's mistake ends the session before anything else goes out. A person has mistyped and goes
        // on.
        if (!mSettings.mInteractive)
        {
            throw OperationError("--hex-input: " + lWhat);
        }
        mHexReader.Drop();
        mNotice(lWhat);
        ++lTaken;
    }
    return {lBytes.begin(), lBytes.end()};
}

/// \return False when the session was interrupted.
bool TermSession::SendFile(const std::string& aPath)
{
    errno = 0;
    std::ifstream lFile(aPath, std::ios::binary);
    if (!lFile.is_open())
    {
        throw OperationError("cannot read " + aPath + FileFault(aPath));
    }
    std::error_code lUnknown; // a pipe, for example, has no size
    const uint64_t lFileSize = std::filesystem::file_size(aPath, lUnknown);
    std::string lPiece(PortSender::cPiece, '\0');
    uint64_t lDone = 0;
    bool lStopped = false;
    {
        Progress lProgress("sending", lUnknown ? 0 : static_cast<size_t>(lFileSize));
        while (!lStopped &&
               (lFile.read(lPiece.data(), static_cast<std::streamsize>(lPiece.size())) || lFile.gcount() > 0))
        {
            const uint64_t lBefore = mSender.GetSent();
            const bool lGoOn = SendBytes(lPiece.substr(0, static_cast<size_t>(lFile.gcount())));
            const uint64_t lSent = mSender.GetSent() - lBefore;
            lDone += lSent;
            lProgress.Advance(static_cast<size_t>(lSent));
            if (!lGoOn)
            {
                return false;
            }
            // Looked at between two pieces, so that a piece that has begun goes out whole.
            lStopped = mSettings.mInteractive && (mKeys.WantsToStop() || mPort.IsAway());
        }
    }
    if (lFile.bad())
    {
        throw OperationError("cannot read " + aPath + FileFault(aPath));
    }
    if (mSettings.mInteractive)
    {
        mNotice((lStopped ? "stopped, " : "") + std::to_string(lDone) + " bytes of " + aPath + " are sent");
    }
    return true;
}

/// \return False when the user wants to leave.
bool TermSession::Obey(char aCommand)
{
    const auto& lCommands = Commands();
    const auto lCommand = std::find_if(lCommands.begin(), lCommands.end(),
                                       [&](const Command& aOne) { return aOne.mKey == aCommand; });
    if (lCommand == lCommands.end())
    {
        mNotice("no such key; " + mSettings.mEscape.Text() + " ? shows them");
        return true;
    }
    if (lCommand->mRun == nullptr)
    {
        return false;
    }
    lCommand->mRun(*this);
    return true;
}

void TermSession::Switch(const std::string& aWhat, const std::string& aTo)
{
    mNotice(aWhat + ": " + aTo);
}

std::optional<std::string> TermSession::Ask(const std::string& aQuestion)
{
    PrintPrompt('\n' + aQuestion);
    return mKeys.ReadLine(PrintPrompt);
}

void TermSession::AskForFile()
{
    const std::optional<std::string> lPath = Ask("file to send (Esc stops): ");
    if (!lPath.has_value() || lPath->empty())
    {
        return;
    }
    try
    {
        static_cast<void>(SendFile(*lPath)); // the next read finds an interruption
    }
    catch (const OperationError& lError)
    {
        // A device that has gone is noticed by the receiver, which says so itself.
        if (mReceiver.GetFailure().empty() && !mPort.IsAway())
        {
            mNotice(lError.what());
        }
    }
}

void TermSession::AskForRate()
{
    const std::optional<std::string> lText = Ask("bits per second: ");
    if (!lText.has_value() || lText->empty())
    {
        return;
    }
    // Any rate goes to the device, which knows the rates that it has.
    const std::optional<uint64_t> lRate = ParseNumber(*lText, UINT32_MAX);
    if (!lRate.has_value())
    {
        mNotice('"' + *lText + "\" is no number");
        return;
    }
    try
    {
        LineSelection lLine;
        lLine.mBaudRate = static_cast<uint32_t>(*lRate);
        mPort.SetLine(lLine);
        Switch("bits per second", std::to_string(*lRate));
    }
    // A rate that the device refuses leaves the old one, and the session goes on.
    catch (const OperationError& lError)
    {
        mNotice(lError.what());
    }
}

void TermSession::ShowSettings()
{
    const ScreenSettings lScreen = mScreen.GetSettings();
    mNotice(std::string("local echo ") + OnOff(mSettings.mEcho) + ", hexadecimal input " +
            OnOff(mSettings.mHexInput) + ", output " + OnOff(lScreen.mHex) + ", line ends sent " +
            LineEndName(mSendEnds.GetEnd()) + ", shown " + LineEndName(lScreen.mLineEnd) + ", time stamps " +
            TimeStampsName(lScreen.mTimeStamps) + "; sent " + std::to_string(GetSent()) +
            " bytes, received " + std::to_string(GetReceived()) + " bytes");
}

} // namespace KySerialTool
