#pragma once

#include <Platform/Console.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// The key that the commands of an interactive terminal begin with.
class EscapeKey
{
public:
    /// Ctrl-].
    EscapeKey() = default;

    /// "^]" or "Ctrl-]" (any of @ A to Z [ \ ] ^ _, small letters too), "0x1d" (0x00 to 0xff), or "none".
    static std::optional<EscapeKey> Parse(const std::string& aText);

    /// Where the key is among these bytes; aSize when it is not.
    size_t FindIn(const uint8_t* aData, size_t aSize) const;

    /// "Ctrl-]", "0x80"; "none" without a key.
    std::string Text() const;

private:
    std::optional<uint8_t> mByte = 0x1D;
};

/// Takes an input apart: bytes for the port, and commands, which are a key after the escape key.
///
/// Threads: one.
class KeyReader
{
public:
    using ReadResult = KyToolPlatform::Console::ReadResult;
    /// As Console::Read(): buffer, its size, number of bytes read, milliseconds.
    using Source = std::function<ReadResult(uint8_t*, size_t, size_t&, uint32_t)>;

    /// What came: bytes, or a command; neither unless mResult is Data.
    struct Event
    {
        ReadResult mResult = ReadResult::Data;
        std::vector<uint8_t> mBytes{};
        /// The key; Ctrl with a letter counts as the small letter. Empty: no command.
        std::optional<char> mCommand{};
    };

    /// \param aEscape  Empty: the input has no commands.
    KeyReader(Source aSource, std::optional<EscapeKey> aEscape);

    /// Waits for something. The escape key twice is one byte for the port.
    Event Next();

    /// Reads a line that a user types: Backspace deletes, Enter ends, Ctrl-C and Esc give up.
    /// \param aEcho  Gets what the user is to see.
    /// \return Nothing when the user gave up, or the input ended.
    std::optional<std::string> ReadLine(const std::function<void(const std::string&)>& aEcho);

    /// Whether Ctrl-C or Esc was typed, without waiting. Takes all keys that were.
    bool WantsToStop();

private:
    ReadResult Fill(uint32_t aTimeout);

    const Source mSource;
    const std::optional<EscapeKey> mEscape;
    std::vector<uint8_t> mBuffer{}; // read, not yet taken
};

} // namespace KySerialTool
