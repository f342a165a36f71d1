#pragma once

#include <cstdint>

/// A serial facility of the device. Numbers are fixed.
///
/// The two UARTs are driven through registers. Bulk port n is n + 2; the device's GenICam features carry the
/// bulk index n in their names ("Bulk0DownstreamData").
enum KyDeviceSerial : int32_t
{
    KyDeviceSerialInvalid = -1, ///< No port; every Open() refuses it.
    KyDeviceSerialUart0 = 0,    ///< First UART of the video-interface engine.
    KyDeviceSerialUart1 = 1,    ///< Second UART of the video-interface engine.
    KyDeviceSerialBulk0 = 2,    ///< The only bulk port that registers may drive; else through features.
    KyDeviceSerialBulk1 = 3,
    KyDeviceSerialBulk2 = 4,
    KyDeviceSerialBulk3 = 5,
    KyDeviceSerialBulk4 = 6,
    KyDeviceSerialBulk5 = 7,
    KyDeviceSerialBulk6 = 8,
    KyDeviceSerialBulk7 = 9
};

/// Parity of a serial line. Numbers are fixed; the device's enumeration entries are "None", "Even", "Odd".
enum KyParity : int32_t
{
    KyParityNone = 0,
    KyParityEven = 1,
    KyParityOdd = 2
};
