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
};

} // namespace KyToolPlatform
