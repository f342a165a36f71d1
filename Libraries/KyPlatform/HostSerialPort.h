#pragma once

#include "KyPlatform/StopEvent.h"

#include <cstdint>
#include <string>

namespace KyPlatform
{

/// The settings of a host line that its users choose; everything else stays as the line had it.
struct HostLine
{
    enum class Parity
    {
        Unchanged, ///< Windows leaves the scheme that the port has; Linux switches parity off.
        Even,
        Odd
    };

    uint32_t mBaudRate = 9600; ///< Bits per second.
    uint32_t mDataBits = 8;    ///< 7 or 8.
    Parity mParity = Parity::Unchanged;
    bool mCheckParity = false; ///< Whether received characters are checked.
    bool mTwoStopBits = false; ///< Else one.
};

/// How a transfer ended.
enum class HostTransfer
{
    Done,        ///< As the operation promises; a count of 0 is possible.
    Stopped,     ///< The stop event ended it.
    Refused,     ///< The system did not take the call.
    Unsuccessful ///< The system took the call, and it failed later.
};

/// What a transfer came to.
struct HostTransferResult
{
    HostTransfer mEnd = HostTransfer::Refused;
    uint32_t mBytes = 0; ///< Bytes transferred, whatever the end.
    uint32_t mError = 0; ///< The system's number of the failure; 0 without one.
};

/// A serial port of the host, for one user at a time.
///
/// Windows: a COM port, with overlapped transfers. Linux: a terminal device, a pty too; it is made
/// transparent (no echo, no line editing, no software flow control). A Linux port that hangs up, because its
/// device was unplugged or the other side of a pty was closed, is opened again by its name at each read, with
/// the settings that it had: when the device comes back under that name, transfers go on.
///
/// States: closed -- Open() --> open -- Close() --> closed.
/// Threads: one reader, one writer and one thread that changes the line, all at the same time; Open() and
/// Close() while nobody else is here.
class HostSerialPort
{
public:
    /// Bytes are delivered once the line has been quiet for so many milliseconds, or the buffer is full.
    static constexpr uint32_t cQuietTime = 10;
    /// Milliseconds that a write may take: so many for each byte, and so many more.
    static constexpr uint32_t cWriteTimePerByte = 1000;
    static constexpr uint32_t cWriteTimeMore = 100;

    HostSerialPort() noexcept = default;
    ~HostSerialPort() { Close(); }
    HostSerialPort(const HostSerialPort&) = delete;
    HostSerialPort& operator=(const HostSerialPort&) = delete;

    /// Whether the system's ports may be given by the path of a device as well as by COM and a number. The
    /// path is taken as it is. \param aName  Null is no path.
    static bool IsPath(const char* aName) noexcept;

    /// Opens a port for reading and writing that nobody else has open. Closes first.
    /// \param aPath  "\\.\COM5", on Linux "/dev/ttyS4", or a path as IsPath() says; null is refused.
    /// \return False: there is no such port, it is in use, or the system refused; the object is closed.
    bool Open(const char* aPath) noexcept;

    /// Why the last Open() has failed, as the end of a sentence: "it is in use".
    /// \return Empty: it has not failed, or the name is not the name of a port. Throws std::bad_alloc only.
    std::string GetRefusal() const;

    /// Closes; harmless when closed. The line keeps its settings.
    void Close() noexcept;

    bool IsOpen() const noexcept { return mObject != nullptr; }

    /// Sets the times that end reads and writes; once after Open(), before the first transfer.
    /// \return False: the system refused.
    bool SetTimeouts() noexcept;

    /// Finds out how the line is set: what SetLine() starts from.
    /// \return False: closed, or the system refused.
    bool ReadLine() noexcept;

    /// Changes the line that ReadLine() has read last.
    /// \return False: closed, not read, or the system cannot run the line like that.
    bool SetLine(const HostLine& aLine) noexcept;

    /// Reads bytes. Blocks until some have come and the line has been quiet for cQuietTime, until aSize bytes
    /// are there, or until aStop is set.
    /// \param aBuffer  Room for aSize bytes, one at least; not null.
    /// \param aStop    An open event.
    /// \return Done, possibly with 0 bytes; Stopped: bytes that had come are lost; a failure at once, so that
    ///         the caller has to pace a line that only fails.
    HostTransferResult Read(void* aBuffer, uint32_t aSize, StopEvent& aStop) noexcept;

    /// Writes bytes. Blocks until the system has taken them, the time for them is over, or aStop is set.
    /// \param aData  aSize bytes, one at least; not null.
    /// \param aStop  An open event.
    /// \return Done, with fewer bytes when the time was over; Stopped; or a failure.
    HostTransferResult Write(const void* aData, uint32_t aSize, StopEvent& aStop) noexcept;

private:
    void* mObject = nullptr; // the backend's; null: closed
    uint32_t mRefusal = 0;   // the system's number of why the last Open() has failed
};

} // namespace KyPlatform
