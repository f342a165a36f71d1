#pragma once

#include "kyserial/Device/BytePort.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <functional>

namespace KySerialTool
{

/// Sends a session's bytes to a port and counts what goes out.
///
/// A port that is busy gets the rest when it has room again.
class PortSender
{
public:
    /// Bytes given to the library at once: at 9600 bit/s half a second, after which a request to end is
    /// noticed.
    static constexpr uint32_t cPiece = 512;
    /// Milliseconds without any progress after which a busy port counts as failed.
    static constexpr uint32_t cBusyLimit = 5000;

    /// \param aGiveUp  Asked between pieces; true ends Send() early.
    /// \param aBusyLimit  See cBusyLimit.
    PortSender(BytePort& aPort, TrafficLog& aLog, std::function<bool()> aGiveUp,
               uint32_t aBusyLimit = cBusyLimit);

    /// Sends all bytes. Throws OperationError with the number of bytes of the session that went out.
    /// \return False when it gave up on request.
    bool Send(const uint8_t* aData, size_t aSize);

    /// Bytes of the session that went out.
    uint64_t GetSent() const { return mSent; }

private:
    /// Sends one piece as far as the device takes it. \return Bytes that went out.
    uint32_t SendPiece(const uint8_t* aData, uint32_t aSize);

    BytePort& mPort;
    TrafficLog& mLog;
    const std::function<bool()> mGiveUp;
    const uint32_t mBusyLimit;
    uint64_t mSent = 0;
    uint64_t mBusySince = 0; // tick count; 0 while the port takes bytes
};

} // namespace KySerialTool
