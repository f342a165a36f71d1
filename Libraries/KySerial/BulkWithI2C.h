#pragma once

#include "DeviceSerialPort.h"

namespace KySerialLib
{

/// An engine of a bulk port, with the control flags of I2C transfers. The bus sets them before each transmit;
/// the engine carries them to the device in its own control word. All false for plain serial use.
///
/// Threads: set by the thread that then calls Write().
class BulkWithI2C : public DeviceSerialPort
{
public:
    BulkWithI2C();
    ~BulkWithI2C() override;

    /// The transfer runs at fast-mode speed (400 kHz), else at standard speed (100 kHz).
    void SetI2CFastMode(bool aFastMode) { mI2CFastMode = aFastMode; }
    /// The transfer ends with a stop condition; false holds the bus for a repeated start.
    void SetI2CStop(bool aStop) { mI2CStop = aStop; }
    /// The third control flag; the bus sets it on every transfer.
    void SetI2CFlag3(bool aFlag) { mI2CFlag3 = aFlag; }
    /// The transmit is an I2C transaction and is timed as one; the bus sets it on every transfer.
    void SetI2CTransfer(bool aTransfer) { mI2CTransfer = aTransfer; }

protected:
    bool mI2CFastMode = false;
    bool mI2CStop = false;
    bool mI2CFlag3 = false;
    bool mI2CTransfer = false;
};

} // namespace KySerialLib
