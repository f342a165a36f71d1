#pragma once

#include "BulkWithI2C.h"
#include "KyBase/KyString.h"

#include <atomic>
#include <cstdlib>

namespace KySerialLib
{

/// Drives a bulk port through GenICam features and events.
///
/// Data for the device is written as messages into the feature "Bulk<i>DownstreamData"; data from the device
/// arrives as an event whose payload shows in "EventBulk<i>UpstreamDataBuffer" and "...Length". One engine
/// carries UART, USRT and I2C traffic (8-byte header), or, when built for it, SPI (12-byte header).
///
/// States: closed (no device) and open, with the device's notification of the upstream event "On".
class IRegisterSerialPort : public BulkWithI2C
{
public:
    /// \param aSPI  Whether messages are SPI transactions.
    explicit IRegisterSerialPort(bool aSPI);
    /// Does not close: the owner does that before.
    ~IRegisterSerialPort() override;

    /// Whether the device offers this bulk port as features. Never fails: logs why it could not ask.
    /// \param aDevice  Null gives false.
    /// \param aPort    Any value; one without a bulk port asks the device for features without a name.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Whether the port is supported and "BulkMode" offers aProtocol ("UART", "I2C", "SPI").
    static bool IsProtocolSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort,
                                    const KyString& aProtocol);

    /// \param aDevice  Null is NO_CONNECTION.
    /// \return OK; NO_CONNECTION; UNSUPPORTED; FAILURE when the port is in use or the event notification
    ///         could not be switched on (no description then; the engine has closed itself).
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort) override;

    /// Puts the event notification back to what it was at open, releases the claim, empties the buffer.
    /// \return OK; NO_CONNECTION without a device or with a disconnected one: nothing is released.
    KyResult Close() override;

    /// WriteAndRead() with nothing to read.
    KyResult Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten) override;

    /// Sends aSize bytes in as many messages as the downstream feature's length asks for, and does not wait
    /// for the device beyond the adapter's operations. What an SPI transaction reads comes in as received
    /// bytes.
    /// \param aBytesWritten  Bytes handed to the device so far, on failures too.
    /// \param aReadSize      SPI: bytes that each message reads (low 8 bits).
    /// \param aSimultaneous  SPI: reads while it writes.
    /// \param aFinal         SPI: the caller's final flag.
    /// \return OK; NO_CONNECTION; BAD_PARAMETER for a null buffer; BUFFER_TOO_SMALL when the downstream
    ///         feature has no room after the header; the adapter's result of a feature access.
    KyResult WriteAndRead(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten, uint32_t aReadSize,
                          bool aSimultaneous, bool aFinal);

    /// Fetches the upstream data of an event. Event thread.
    /// \param aName  The feature that changed; anything but a register feature of the device is ignored.
    void NotifyFeatureInvalidated(const KyString* aName) override;

    /// Gives the buffers of messages and events up, of an engine that has retired. The event thread may be
    /// using its buffer, and gives it up itself then.
    void ReleaseBuffers();

private:
    struct Free
    {
        void operator()(uint8_t* aData) const { std::free(aData); }
    };
    using Buffer = std::unique_ptr<uint8_t[], Free>;

    [[nodiscard]] static bool Grow(Buffer& aBuffer, uint32_t& aLength, uint32_t aNeeded, uint32_t aSlack);
    [[nodiscard]] bool AreFeaturesAvailable() const;
    [[nodiscard]] KyResult SetEventNotification(const char* aValue, KyString* aPrevious);
    [[nodiscard]] KyResult SetFeature(const char* aName, const KyString& aValue);
    [[nodiscard]] KyResult GetFeature(const char* aName, KyString& aValue);
    [[nodiscard]] KyResult PrepareDownstream(uint32_t& aPayload);
    [[nodiscard]] KyResult TransmitSPI(const uint8_t* aData, uint32_t aSize, uint32_t aReadSize,
                                       bool aSimultaneous, bool aFinal);
    [[nodiscard]] KyResult TransmitData(const uint8_t* aData, uint32_t aSize);
    [[nodiscard]] KyResult SendMessage(uint32_t aLength);
    void PutWord(uint32_t aOffset, uint32_t aValue);

    const bool mIsSPI;
    KyString mUpstreamEvent;
    KyString mDownstreamFeature;
    KyString mUpstreamLengthFeature;
    KyString mUpstreamBufferFeature;
    Buffer mDownstreamBuffer;
    uint32_t mDownstreamBufferLength = 0;
    // Null while the event thread, which has the length for itself, works with the buffer.
    std::atomic<uint8_t*> mUpstreamBuffer{nullptr};
    uint32_t mUpstreamBufferLength = 0;
    KyString mOriginalEventNotification;
};

} // namespace KySerialLib
