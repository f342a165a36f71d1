#include "KyPlatform/Linux/TerminalLine.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <cerrno>
#include <cstring>

namespace KyPlatform
{

namespace
{

// A transparent line does none of these checks and conversions of received bytes.
constexpr tcflag_t cReceived =
    IGNBRK | BRKINT | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF;

tcflag_t GetRateFlag(uint32_t aBaudRate) noexcept
{
    switch (aBaudRate)
    {
    case 9600:
        return B9600;
    case 19200:
        return B19200;
    case 38400:
        return B38400;
    case 57600:
        return B57600;
    case 115200:
        return B115200;
    default:
        return BOTHER; // the number itself counts
    }
}

tcflag_t GetControl(tcflag_t aFound, const HostLine& aLine) noexcept
{
    // The input rate is cleared, so that the line receives at the rate that it sends at.
    const tcflag_t lChanged = CBAUD | (CBAUD << IBSHIFT) | CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;
    tcflag_t lFlags = (aFound & ~lChanged) | CREAD | CLOCAL; // without a modem's permission
    lFlags |= GetRateFlag(aLine.mBaudRate);
    lFlags |= aLine.mDataBits == 7 ? CS7 : CS8;
    lFlags |= aLine.mTwoStopBits ? CSTOPB : 0U;
    if (aLine.mParity != HostLine::Parity::Unchanged)
    {
        lFlags |= PARENB | (aLine.mParity == HostLine::Parity::Odd ? PARODD : 0U);
    }
    return lFlags;
}

// A driver takes the nearest rate that it can run at and reports it. A line works up to a few per cent off.
bool IsNear(uint32_t aRate, uint32_t aWanted) noexcept
{
    const uint32_t lOff = aRate > aWanted ? aRate - aWanted : aWanted - aRate;
    return lOff <= aWanted / 30;
}

} // namespace

bool TerminalLine::Read(int aDescriptor) noexcept
{
    static_assert(sizeof(termios2) <= sizeof mState);
    return gSystem.mControl(aDescriptor, TCGETS2, mState.data()) == 0;
}

bool TerminalLine::WriteBack(int aDescriptor) const noexcept
{
    auto lState = mState; // the call takes what it does not change as changeable
    return gSystem.mControl(aDescriptor, TCSETS2, lState.data()) == 0;
}

bool TerminalLine::WriteReadRule(int aDescriptor) noexcept
{
    termios2 lLine{};
    std::memcpy(&lLine, mState.data(), sizeof lLine);
    // A read returns with the first byte, because the port measures the quiet time itself.
    lLine.c_cc[VMIN] = 1;
    lLine.c_cc[VTIME] = 0;
    std::memcpy(mState.data(), &lLine, sizeof lLine);
    return gSystem.mControl(aDescriptor, TCSETS2, mState.data()) == 0;
}

HostLine TerminalLine::GetLine() const noexcept
{
    termios2 lState{};
    std::memcpy(&lState, mState.data(), sizeof lState);
    HostLine lLine;
    lLine.mBaudRate = lState.c_ospeed;
    lLine.mDataBits = (lState.c_cflag & CSIZE) == CS7 ? 7 : 8;
    lLine.mTwoStopBits = (lState.c_cflag & CSTOPB) != 0;
    if ((lState.c_cflag & PARENB) != 0)
    {
        lLine.mParity = (lState.c_cflag & PARODD) != 0 ? HostLine::Parity::Odd : HostLine::Parity::Even;
    }
    return lLine;
}

void TerminalLine::SetLine(const HostLine& aLine) noexcept
{
    termios2 lLine{};
    std::memcpy(&lLine, mState.data(), sizeof lLine);
    lLine.c_iflag = (lLine.c_iflag & ~cReceived) | (aLine.mCheckParity ? INPCK : 0U);
    lLine.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    lLine.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    lLine.c_cflag = GetControl(lLine.c_cflag, aLine);
    lLine.c_ispeed = aLine.mBaudRate;
    lLine.c_ospeed = aLine.mBaudRate;
    lLine.c_cc[VMIN] = 1;
    lLine.c_cc[VTIME] = 0;
    std::memcpy(mState.data(), &lLine, sizeof lLine);
}

bool TerminalLine::Write(int aDescriptor, const HostLine& aLine) noexcept
{
    TerminalLine lWanted = *this;
    lWanted.SetLine(aLine);
    // A driver reports success for a rate that it only comes near, so the line is read back.
    TerminalLine lDone;
    if (!lWanted.WriteBack(aDescriptor) || !lDone.Read(aDescriptor))
    {
        return false;
    }
    if (!IsNear(lDone.GetLine().mBaudRate, aLine.mBaudRate))
    {
        errno = EINVAL;
        return false;
    }
    return true;
}

bool TerminalLine::SetExclusive(int aDescriptor, bool aExclusive) noexcept
{
    return gSystem.mControl(aDescriptor, aExclusive ? TIOCEXCL : TIOCNXCL, nullptr) == 0;
}

} // namespace KyPlatform
