#pragma once

#include <KyBase/KyResult.h>
#include <KySerial/Export.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>

/// The line settings of a serial link: a value that stores and checks, and talks to no device. Example:
/// Examples/LineConfiguration.cpp.
///
/// Threads: as for any plain structure.
class KYSERIAL_API KySerialPortConfiguration
{
public:
    /// 9600 bit/s, no parity, 8 data bits, 1 stop bit.
    KySerialPortConfiguration();

    /// Takes the four values as they are, valid or not; IsValid() judges.
    KySerialPortConfiguration(uint32_t aBaudRate, KyParity aParity, uint32_t aBitsPerByte,
                              uint32_t aStopBits);

    KySerialPortConfiguration(const KySerialPortConfiguration& aOther);
    KySerialPortConfiguration& operator=(const KySerialPortConfiguration& aOther);
    ~KySerialPortConfiguration();

    /// Marks that no configuration has been set: baud rate 0, parity -1. Data and stop bits stay as they are.
    void MakeInvalid();

    /// Checks baud rate, parity, data bits and stop bits, in this order, up to the first that is wrong.
    ///
    /// The list of speeds is fixed: other rates, 4800 for example, are refused even where a device could run
    /// them.
    /// \return OK; or BAD_PARAMETER, logged, with a description that names the values allowed. The object
    ///         stays as it is. Does not block.
    KyResult IsValid() const;

    uint32_t mBaudRate;    ///< Bits per second: 9600, 14400, 19200, 28800, 38400, 57600 or 115200.
    KyParity mParity;      ///< None, even or odd.
    uint32_t mBitsPerByte; ///< Data bits of a character: 7 or 8.
    uint32_t mStopBits;    ///< Stop bits of a character: 1 or 2.
};
