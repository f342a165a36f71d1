#pragma once

#include <KySerial/KySerialPortConfiguration.h>

#include <cstdint>

/// What the host side of a bridge wants changed before the bytes that follow.
struct KySerialBridgeRequest
{
    uint32_t mBaudRate = 0;          ///< Bits per second; 0: as it is.
    bool mSetsParity = false;        ///< Whether mParity counts.
    KyParity mParity = KyParityNone; ///< Another value than the three is ignored.
    uint32_t mStopBits = 0;          ///< 1 or 2; any other value: as it is.
    bool mClearsReceived = false;    ///< Drops the bytes that wait in the device port; they count as cleared.
};

/// A host side that the application brings: the end of a bridge that is neither a serial port nor Camera Link
/// clients. Given to KySerialBridge::Start(), open; not owned.
///
/// Threads: Read() on one thread of the bridge and Write() on another, at the same time; NotifySettings() on the
/// first, and on the caller's during Start(). EndTransfers() on the caller's of Stop(), while the others run. No call comes
/// before Start() or after Stop().
///
/// An exception that leaves a call is caught: the call counts as one that has given, or taken, nothing.
class IKySerialBridgeHost
{
public:
    /// What Read() has found.
    enum class ReadEnd
    {
        Bytes,   ///< aRead bytes.
        Request, ///< aRequest; NotifySettings() answers it.
        Nothing  ///< Neither; it is asked again, more and more slowly if it has not waited.
    };

    /// Waits for bytes or a request, in the order in which they came; should not return without either, except after
    /// EndTransfers().
    /// \param aBuffer   Destination; not null.
    /// \param aSize     Capacity of aBuffer; not 0.
    /// \param aRead     0; receives the number of bytes. More than aSize counts as aSize.
    /// \param aRequest  Empty; receives the request.
    /// The bytes go to the device in one write, so they should be a message where the host side knows messages.
    virtual ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead,
                         KySerialBridgeRequest& aRequest) = 0;

    /// Takes bytes from the device. Waits until it has taken all of them, or gives up.
    /// \param aData  aSize bytes, at least one.
    /// \return How many it has taken; more than aSize counts as aSize. The rest counts as refused. While this waits, newer
    ///         bytes stay in the receive buffer of the device port, which drops the oldest when it is full.
    virtual uint32_t Write(const uint8_t* aData, uint32_t aSize) = 0;

    /// Ends the Read() and the Write() that wait, and every later one, at once. Must not block.
    virtual void EndTransfers() noexcept = 0;

    /// The settings that the device port has: at the start, and after each request, whatever became of it.
    /// \param aSettings  Rate 0, parity -1 and stop bits 0 where the device does not say.
    virtual void NotifySettings(const KySerialPortConfiguration& aSettings) { static_cast<void>(aSettings); }

protected:
    ~IKySerialBridgeHost() = default; // not deleted through this
};
