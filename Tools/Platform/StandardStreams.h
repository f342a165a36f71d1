#pragma once

namespace KyToolPlatform
{

/// The three streams that a program is started with.
class StandardStreams
{
public:
    StandardStreams() = delete;

    /// Opens the null device in the place of each standard stream that is closed. The first call of main():
    /// the next file or terminal that is opened would take the place, and get what is printed.
    ///
    /// Windows: the C runtime keeps the numbers of closed streams to itself, so that there is nothing to do.
    /// \return False: the system refused; the program must open nothing and end.
    static bool Complete() noexcept;

    /// Whether the error output is the system's journal, which adds the time to each line and takes its level from "<N>" at
    /// the start. Linux: systemd's, which says so with JOURNAL_STREAM. Windows: there is nothing of the kind.
    static bool IsErrorJournal() noexcept;
};

} // namespace KyToolPlatform
