#pragma once

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Terminal/PortStreams.h"
#include "kyserial/Terminal/TrafficLog.h"
#include "kyserial/Text/Hex.h"

#include <Platform/Console.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// The key that leaves an interactive terminal.
class EscapeKey
{
public:
    /// Ctrl-].
    EscapeKey() = default;

    /// "^]" or "Ctrl-]" (any of @ A to Z [ \ ] ^ _, small letters too), "0x1d" (0x00 to 0xff), or "none".
    static std::optional<EscapeKey> Parse(const std::string& aText);

    /// Where the key is among these bytes; aSize when it is not.
    size_t FindIn(const uint8_t* aData, size_t aSize) const;

    /// "Ctrl-]", "0x80"; "none" when no key leaves.
    std::string Text() const;

private:
    std::optional<uint8_t> mByte = 0x1D;
};

/// How a terminal session behaves.
struct TermSettings
{
    bool mInteractive = false; ///< Keys of a terminal in raw mode; the escape key leaves.
    EscapeKey mEscape{};
    bool mHex = false;          ///< What comes is shown as a hexadecimal dump.
    bool mPartialLines = false; ///< A dump's line is shown when nothing more comes for a moment.
    bool mForever = false;      ///< Goes on after the end of the input until it is interrupted.
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
        Escaped,    ///< By the escape key.
        Interrupted ///< Ctrl-C or a request to end, with input still to come.
    };

    /// The arguments must outlive the object.
    TermSession(KyToolPlatform::Console& aConsole, BytePort& aPort, TrafficLog& aLog,
                const TermSettings& aSettings);

    /// Runs until something ends it. Throws OperationError when a side breaks. Once only.
    End Run();

    uint64_t GetSent() const { return mSender.GetSent(); }
    uint64_t GetReceived() const { return mReceiver.GetReceived(); }

private:
    End SendInput();
    End AwaitQuiet() const;
    bool Take(const std::vector<uint8_t>& aBytes);
    bool Write(const std::string& aText);

    KyToolPlatform::Console& mConsole;
    const TermSettings mSettings;
    HexDump mDump; // the receiver's thread, until it is stopped
    PortSender mSender;
    PortReceiver mReceiver; // last: its thread uses the others
};

} // namespace KySerialTool
