#pragma once

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace KyBench
{

/// The two ends of a pseudo terminal: ours, and the path of the other one.
class TerminalPair
{
public:
    TerminalPair() : mEnd(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        std::array<char, 64> lPath{};
        if (mEnd < 0 || ::grantpt(mEnd) != 0 || ::unlockpt(mEnd) != 0 ||
            ::ptsname_r(mEnd, lPath.data(), lPath.size()) != 0)
        {
            throw std::runtime_error("no pseudo terminal");
        }
        mPath = lPath.data();
        // Kept open, so that it neither hangs up nor echoes while the other end is closed.
        mOther = ::open(mPath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios lLine{};
        ::tcgetattr(mOther, &lLine);
        ::cfmakeraw(&lLine);
        ::tcsetattr(mOther, TCSANOW, &lLine);
    }
    ~TerminalPair()
    {
        ::close(mOther);
        ::close(mEnd);
    }
    TerminalPair(const TerminalPair&) = delete;
    TerminalPair& operator=(const TerminalPair&) = delete;

    int GetEnd() const { return mEnd; }
    const std::string& GetPath() const { return mPath; }

private:
    int mEnd;
    int mOther = -1;
    std::string mPath;
};

/// Writes all of it, waiting for room.
inline bool SendAll(int aFile, const void* aData, size_t aSize)
{
    size_t lDone = 0;
    while (lDone < aSize)
    {
        const ssize_t lSent = ::write(aFile, static_cast<const char*>(aData) + lDone, aSize - lDone);
        if (lSent > 0)
        {
            lDone += static_cast<size_t>(lSent);
            continue;
        }
        pollfd lPoll{aFile, POLLOUT, 0};
        if (errno != EAGAIN || ::poll(&lPoll, 1, 5000) <= 0)
        {
            return false;
        }
    }
    return true;
}

/// Reads what is there, waiting up to aTime milliseconds for the first byte. \return 0: nothing came.
inline size_t ReceiveSome(int aFile, void* aBuffer, size_t aSize, int aTime)
{
    pollfd lPoll{aFile, POLLIN, 0};
    if (::poll(&lPoll, 1, aTime) <= 0)
    {
        return 0;
    }
    const ssize_t lGot = ::read(aFile, aBuffer, aSize);
    return lGot > 0 ? static_cast<size_t>(lGot) : 0;
}

} // namespace KyBench
