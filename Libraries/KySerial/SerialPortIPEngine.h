#pragma once

#include "DeviceSerialPort.h"

namespace KySerialLib
{

/// Drives one of the two UARTs through registers and interrupt events.
///
/// Each byte is one register write, confirmed by the device's transmit-done interrupt; received bytes come
/// inside interrupt events. Meant for short command strings.
///
/// States: closed (no device) and open. Open() is open from the claim on, even when a later step fails;
/// Close() closes only while the device is connected.
class SerialPortIPEngine : public DeviceSerialPort
{
public:
    SerialPortIPEngine();
    /// Does not close: the owner does that before.
    ~SerialPortIPEngine() override;

    /// Whether the device has this UART. Never fails: logs the reason of a false.
    /// \param aDevice  Null gives false.
    /// \param aPort    UART 0 or 1; others are a broken assertion and give false.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// \param aDevice  Null is NO_CONNECTION.
    /// \return OK; NO_CONNECTION; UNSUPPORTED; FAILURE when the port is in use, or when the interrupts could
    ///         not be enabled: the engine is open then and has to be closed.
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort) override;

    /// Puts the interrupt enable bits back to those found at open, releases the claim, empties the buffer.
    /// \return OK; NO_CONNECTION without a device or with a disconnected one: nothing is released.
    KyResult Close() override;

    /// Sends byte by byte; waits up to 1020 ms for each transmit-done interrupt.
    /// \param aBytesWritten  Bytes handed to the device, with the one whose interrupt did not come.
    /// \return OK; NO_CONNECTION; BAD_PARAMETER for a null buffer; FAILURE at the first byte that fails.
    KyResult Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten) override;

    /// Takes received bytes and the transmit-done signal from an interrupt event. Event thread.
    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;

private:
    [[nodiscard]] KyResult EnableInterrupts(bool aRestore);
    [[nodiscard]] KyResult WriteByte(uint8_t aByte, uint32_t aIndex, uint32_t& aBytesWritten);
    void DrainRx();
    void PushLowBytes(const void* aWords, uint32_t aCount);
    uint32_t GetDataRegister() const;

    JxUtilsLib::Event mTxEvent;
    bool mSavedTxEnable = false;
    bool mSavedRxEnable = false;
};

} // namespace KySerialLib
