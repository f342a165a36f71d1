#pragma once

#include "KyPlatform/HostSerialPort.h"

#include <array>
#include <cstddef>

namespace KyPlatform
{

/// The settings of a terminal device, as the system keeps them.
///
/// The system's structure is not the C library's: that one knows no rates but the classic ones, and 14400 is
/// not among them. Its header cannot stand beside the C library's, so only the source file sees it.
class TerminalLine
{
public:
    /// \return False with errno: not a terminal, or it is gone.
    bool Read(int aDescriptor) noexcept;

    /// Sets what has been read with the rule that a read takes what there is, one byte at least.
    /// \return False with errno.
    bool WriteReadRule(int aDescriptor) noexcept;

    /// Sets what has been read, changed to a transparent line with these settings.
    /// \return False with errno: EINVAL for a rate that the line does not run at.
    bool Write(int aDescriptor, const HostLine& aLine) noexcept;

    /// Rate, data bits, parity and stop bits of what has been read.
    HostLine GetLine() const noexcept;

    /// Changes what has been read to a transparent line with these settings, without a call of the system.
    void SetLine(const HostLine& aLine) noexcept;

    /// Sets exactly what has been read. The line may also be named by the other end of a pty.
    /// \return False with errno.
    bool WriteBack(int aDescriptor) const noexcept;

    /// Keeps others from opening the terminal, or lets them again. \return False with errno.
    static bool SetExclusive(int aDescriptor, bool aExclusive) noexcept;

    /// Whether the same settings have been read.
    bool operator==(const TerminalLine& aOther) const noexcept = default;

private:
    alignas(std::max_align_t) std::array<unsigned char, 64> mState{};
};

} // namespace KyPlatform
