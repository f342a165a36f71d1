#pragma once

#include <JxUtilsLib/Mutex.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace KySerialTool
{

/// A file with what went over a port: time (UTC), direction, bytes in hexadecimal and as characters.
///
///     2025-11-21T08:53:01.123456Z > 53 54 41 54 55 53 3f 0d 0a                       STATUS?..
///
/// '>' is what was sent, '<' what was received. Long pieces take several lines with one time. Lines are added
/// to a file that exists already, and each piece is in the file when Add() returns. Any thread.
class TrafficLog
{
public:
    static constexpr char cSent = '>';
    static constexpr char cReceived = '<';

    TrafficLog() = default;

    /// \return False when the file cannot be written.
    bool Open(const std::string& aPath);

    /// Adds bytes with the present time. Without an open file, nothing.
    void Add(char aDirection, const uint8_t* aData, size_t aSize);

    /// Whether a line got lost because the file could not be written.
    bool HasFailed() const;

    /// The lines for a piece.
    static std::string Lines(std::chrono::system_clock::time_point aTime, char aDirection,
                             const uint8_t* aData, size_t aSize);

private:
    mutable JxUtilsLib::Mutex mLock;
    std::ofstream mFile JX_GUARDED_BY(mLock);
    bool mOpen JX_GUARDED_BY(mLock) = false;
};

} // namespace KySerialTool
