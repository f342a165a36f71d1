#pragma once

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Terminal/KeyReader.h"
#include "kyserial/Terminal/PortStreams.h"
#include "kyserial/Terminal/Screen.h"
#include "kyserial/Terminal/StatusRow.h"
#include "kyserial/Terminal/TrafficLog.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/LineEnds.h"

#include <Platform/Console.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// How a terminal session behaves.
struct TermSettings
{
    bool mInteractive = false; ///< Keys of a terminal in raw mode; the escape key begins a command.
    EscapeKey mEscape{};
    bool mEcho = false;               ///< Keys are shown.
    bool mHexInput = false;           ///< The input is hexadecimal digits.
    LineEnd mSendEnd = LineEnd::AsIs; ///< What the ends of the input's lines become.
    ScreenSettings mScreen{};
    bool mStatus = false;      ///< The terminal's last row shows port and counts.
    std::string mTitle{};      ///< For that row.
    std::string mFile{};       ///< Is sent before the input; empty: no file.
    bool mForever = false;     ///< Goes on after the end of the input until it is interrupted.
    uint32_t mQuietTime = 300; ///< Milliseconds without a byte after which it ends, once the input has ended.
    uint32_t mBusyLimit = PortSender::cBusyLimit; ///< See there.
};

/// The standard input to a port, and the port to the standard output.
class TermSession
{
public:
    /// What ended a session.
    enum class End
    {
        InputEnded, ///< The input ended, and then nothing came for the quiet time.
        Escaped,    ///< By a command of the user.
        Interrupted ///< Ctrl-C or a request to end, with input still to come.
    };

    /// The arguments must outlive the object.
    /// \param aNotice  Takes texts for the user of an interactive session.
    TermSession(KyToolPlatform::Console& aConsole, BytePort& aPort, TrafficLog& aLog,
                const TermSettings& aSettings, std::function<void(const std::string&)> aNotice);

    /// Runs until something ends it. Throws OperationError when a side breaks. Once only.
    End Run();

    uint64_t GetSent() const { return mSender.GetSent(); }
    uint64_t GetReceived() const { return mReceiver.GetReceived(); }
    /// Bytes that the user typed while the device was away.
    uint64_t GetDropped() const { return mDropped; }

    /// The commands and what they do, a line each.
    static std::string CommandList(const EscapeKey& aEscape);

private:
    struct Command;

    End SendInput();
    bool Show(const std::vector<uint8_t>& aBytes);
    End AwaitQuiet() const;
    bool SendKeys(const std::vector<uint8_t>& aBytes);
    bool SendBytes(const std::string& aBytes);
    bool SendFile(const std::string& aPath);
    std::string FormInput(const std::vector<uint8_t>& aBytes);
    bool Obey(char aCommand);
    void AskForFile();
    void AskForRate();
    void ShowSettings();
    std::optional<std::string> Ask(const std::string& aQuestion);
    void Switch(const std::string& aWhat, const std::string& aTo);
    static const std::vector<Command>& Commands();

    KyToolPlatform::Console& mConsole;
    BytePort& mPort;
    TermSettings mSettings;
    const std::function<void(const std::string&)> mNotice;
    KeyReader mKeys;
    LineEndMap mSendEnds;
    HexReader mHexReader;
    Screen mScreen;
    StatusRow mStatus;      // the receiver's thread, until it is stopped
    uint64_t mReceived = 0; // the receiver's thread
    uint64_t mDropped = 0;
    PortSender mSender;
    PortReceiver mReceiver; // last: its thread uses the others
};

} // namespace KySerialTool
