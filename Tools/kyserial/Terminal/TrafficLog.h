#pragma once

#include "kyserial/Record/Pcapng.h"
#include "kyserial/Text/RotatingFile.h"

#include <JxUtilsLib/Mutex.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// "2025-11-21T08:53:01.123456Z".
std::string TimeText(std::chrono::system_clock::time_point aTime);

/// A file with what went over a port: time (UTC), direction, bytes in hexadecimal and as characters.
///
///     2025-11-21T08:53:01.123456Z > 53 54 41 54 55 53 3f 0d 0a                       STATUS?..
///
/// '>' is what was sent, '<' what was received, '!' a note. Bytes that follow each other in one direction
/// share lines of sixteen, with the time of the line's first byte; a line ends early when the direction
/// changes, and with Flush(). Lines are added to a file that exists already. Any thread.
///
/// A file whose name ends in ".pcapng" is one for network analysers instead (see PcapngSection): a packet for
/// each Add(), and a new section after those that the file has.
class TrafficLog
{
public:
    /// How large a file becomes before it is set aside; it is a packet or a line larger at the most.
    using Limit = RotatingFile::Limit;

    static constexpr char cSent = '>';
    static constexpr char cReceived = '<';
    static constexpr char cNote = '!';

    TrafficLog() = default;
    /// Flush().
    ~TrafficLog();
    TrafficLog(const TrafficLog&) = delete;
    TrafficLog& operator=(const TrafficLog&) = delete;

    /// \return Why the file is not used, "cannot write it.log: it is a directory"; empty: it is open.
    std::string Open(const std::string& aPath) { return Open(aPath, Limit()); }
    std::string Open(const std::string& aPath, const Limit& aLimit);

    /// Adds bytes with the present time. Without an open file, nothing.
    void Add(char aDirection, const uint8_t* aData, size_t aSize);

    /// Around a call that sends. An answer can come before the call returns: it is kept for so long, so that it stands
    /// after what it answers. EndSending() adds what was sent, with the time of BeginSending().
    void BeginSending();
    void EndSending(const uint8_t* aData, size_t aSize);

    /// Adds a line with the present time, cNote and a text.
    void AddNote(const std::string& aText);

    /// Writes the line that has been begun, so that the file has everything.
    void Flush();

    /// Why lines are lost, "cannot write it.log: No space left on device"; empty: none is.
    std::string GetFailure() const;

    /// One line.
    static std::string Line(std::chrono::system_clock::time_point aTime, char aDirection,
                            const std::vector<uint8_t>& aBytes);

private:
    using Time = std::chrono::system_clock::time_point;

    /// Bytes that were received while others were sent.
    struct Answer
    {
        Time mTime;
        std::vector<uint8_t> mBytes;
    };

    void BeginSection() JX_REQUIRES(mLock);
    void FlushLocked() JX_REQUIRES(mLock);
    void AddLocked(Time aTime, char aDirection, const uint8_t* aData, size_t aSize) JX_REQUIRES(mLock);
    void AddLines(Time aTime, char aDirection, const uint8_t* aData, size_t aSize) JX_REQUIRES(mLock);
    void WriteLocked(const std::string& aText) JX_REQUIRES(mLock);

    mutable JxUtilsLib::Mutex mLock;
    RotatingFile mFile JX_GUARDED_BY(mLock);
    std::optional<PcapngSection> mSection JX_GUARDED_BY(mLock); // of a pcapng file
    std::vector<uint8_t> mLine JX_GUARDED_BY(mLock);
    Time mLineTime JX_GUARDED_BY(mLock);
    char mLineDirection JX_GUARDED_BY(mLock) = cSent;
    std::optional<Time> mSendingSince JX_GUARDED_BY(mLock);
    std::vector<Answer> mAnswers JX_GUARDED_BY(mLock);
};

} // namespace KySerialTool
