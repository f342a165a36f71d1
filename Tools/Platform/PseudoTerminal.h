#pragma once

#include "KyPlatform/HostSerialPort.h"

#include <cstdint>

namespace KyToolPlatform
{

/// A serial port of the host whose device is this program: what other programs write to its path is read
/// here, and the other way round. They attach and leave as they like.
///
/// Linux: a pty. Windows: there is nothing of the kind, and Create() fails.
///
/// The line is transparent (no echo, no line editing). Each user finds it so, whatever an earlier one did to
/// it, and finds no bytes that an earlier one has not read: the thread in Read() sees to that at once when a
/// user leaves. A program that attaches before that thread gets a processor finds the terminal as it was left.
///
/// States: closed -- Create() --> open -- Close() --> closed.
/// Threads: one reader and one writer at the same time; Create() and Close() while nobody else is here.
class PseudoTerminal
{
public:
    /// A time that is never over.
    static constexpr uint32_t cForEver = 0xFFFFFFFFU;

    PseudoTerminal() noexcept = default;
    ~PseudoTerminal() { Close(); }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    /// Whether the system has such ports.
    static bool IsSupported() noexcept;

    /// Makes a port. Closes first.
    /// \return False: the system has none, or refused; the object is closed.
    bool Create() noexcept;

    /// Takes the port away from those who have it open; harmless when closed.
    void Close() noexcept;

    bool IsOpen() const noexcept { return mObject != nullptr; }

    /// Where other programs find the port, "/dev/pts/5"; empty when closed.
    const char* GetPath() const noexcept;

    /// Whether a program has the port open now; false when closed.
    bool IsAttached() const noexcept;

    /// Cleans the terminal when the last program has left it, as Read() does. Does not block. The thread in Read() only, between
    /// two reads, for the time that it does not read.
    void CleanIfLeft() noexcept;

    /// Takes what programs have written. Blocks until some of it is there, over programs that leave and
    /// attach, until aStop is set, or until the time is over.
    /// \param aBuffer  Room for aSize bytes, one at least; not null.
    /// \param aStop    An open event.
    /// \param aTime    Milliseconds; cForEver waits for ever.
    /// \return Done, without bytes when the time was over; Stopped; or a failure, Refused when closed.
    KyPlatform::HostTransferResult Read(void* aBuffer, uint32_t aSize, KyPlatform::StopEvent& aStop,
                                        uint32_t aTime = cForEver) noexcept;

    /// The rate, data bits, parity and stop bits that the program at the terminal has chosen. The bytes do not depend on
    /// them. Any thread.
    /// \return False, with aLine untouched: nobody has the terminal open, or it is closed.
    bool GetLine(KyPlatform::HostLine& aLine) const noexcept;

    /// What GetLine() gives for programs that choose nothing, from the next one on. The thread in Read() only, between two reads.
    /// \return False: a program has the terminal open, so that nothing is changed; or it is closed.
    bool SetLine(const KyPlatform::HostLine& aLine) noexcept;

    /// Gives bytes to the program that is attached. Blocks until the system has taken them, the program has
    /// left, or aStop is set.
    /// \param aData  aSize bytes, one at least; not null.
    /// \param aStop  An open event.
    /// \return Done, with fewer bytes when nobody was there for the rest; Stopped; or a failure, Refused when
    ///         closed.
    KyPlatform::HostTransferResult Write(const void* aData, uint32_t aSize,
                                         KyPlatform::StopEvent& aStop) noexcept;

    /// Bytes that Write() has given to programs, and that they have left without reading. Counted when a
    /// program leaves, by the thread in Read(). Any thread.
    uint64_t GetUnread() const noexcept;

    /// Takes away what the program that is attached has not read, and counts it as unread. Before the end,
    /// while nobody is in Read() or Write(). A program that keeps the terminal for itself (exclusive mode)
    /// keeps these bytes too, uncounted, unless this process may open it all the same.
    void DropUnread() noexcept;

    /// Takes away what programs have written and nobody has read yet. As DropUnread().
    /// \return Number of bytes.
    uint64_t DropWritten() noexcept;

private:
    void* mObject = nullptr; // the backend's; null: closed
};

} // namespace KyToolPlatform
