#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace KyToolPlatform
{

/// The terminal, or the files or pipes, that a command-line program talks to.
///
/// One object per program: signals and the terminal's mode belong to the process.
/// Threads: Read() by one thread, Write() by one thread, which may be another; Interrupt(),
/// IsInterrupted() and WaitForInterrupt() by any; everything else while no other call runs.
class Console
{
public:
    /// Time-out of Read() that never ends.
    static constexpr uint32_t cInfinite = 0xFFFFFFFFU;

    /// How a Read() ended.
    enum class ReadResult
    {
        Data,       ///< Bytes were read.
        End,        ///< The input is at its end, or broken; no more bytes will come.
        TimedOut,   ///< Nothing came in time.
        Interrupted ///< Interrupt() was called, or the program was asked to end (see WatchInterrupts()).
    };

    /// Puts the standard files into binary mode where the system translates line ends, and the error output
    /// into unbuffered mode. From now on a broken output is a result of Write() and does not end the process.
    Console();
    /// Leaves raw mode; Ctrl-C and requests to end do again what they did before.
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Whether the standard input, output or error output is a terminal. Any thread.
    static bool IsInputTerminal();
    static bool IsOutputTerminal();
    static bool IsErrorTerminal();

    /// Columns and rows of a terminal.
    struct Size
    {
        unsigned mColumns;
        unsigned mRows;
    };

    /// The size of the terminal that the standard output, or the error output, is; nothing when it is another
    /// file, or the terminal does not know. Any thread.
    static std::optional<Size> GetOutputSize();
    static std::optional<Size> GetErrorSize();

    /// Switches the input terminal to single keys without echo, so that every key reaches the program, Ctrl-C
    /// too. An output terminal follows escape sequences from now on, where that has to be switched on.
    /// \return False, with nothing changed, when the input is no terminal.
    bool EnterRawMode();
    /// Restores what EnterRawMode() found. Without it, nothing.
    void LeaveRawMode();

    /// From now on Ctrl-C, and a request to end the process, call Interrupt() instead of ending the process
    /// at once. A request that the program cannot decline (Windows: the console window is closed, the user
    /// logs off) is held up until the object is destroyed, as long as the system lets it.
    /// \return False when the system refused.
    bool WatchInterrupts();

    /// Reads what is there, waiting for the first byte.
    /// \param aBuffer   Destination; not null.
    /// \param aSize     Capacity of aBuffer; not 0.
    /// \param aRead     Receives the number of bytes; 0 unless the result is Data.
    /// \param aTimeout  Milliseconds; 0 only looks, cInfinite waits for ever.
    /// Bytes that are there win over the time-out, an interruption wins over both.
    ReadResult Read(uint8_t* aBuffer, size_t aSize, size_t& aRead, uint32_t aTimeout);

    /// Makes the Read() that runs, and every later one, return Interrupted. Does not block.
    void Interrupt();

    /// Whether Interrupt() was called.
    bool IsInterrupted() const;

    /// Waits until Interrupt() is called, without a look at the input.
    /// \param aTimeout  Milliseconds; 0 only looks, cInfinite waits for ever.
    /// \return IsInterrupted().
    bool WaitForInterrupt(uint32_t aTimeout) const;

    /// Writes all bytes to the standard output, past the buffers of the language's library.
    /// \param aData  May be null when aSize is 0.
    /// \return False when the output is broken, or when it takes nothing any more after an interruption; a
    ///         part may be written then. Blocks while the reader of a pipe does not read.
    bool Write(const uint8_t* aData, size_t aSize);

private:
    struct State;
    State* mThis;
};

} // namespace KyToolPlatform
