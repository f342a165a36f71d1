#ifndef KYSERIALC_LINESETTINGS_H
#define KYSERIALC_LINESETTINGS_H

#include <KySerialC/Result.h>
#include <stdint.h>

/// \file
/// The line settings of a serial link.

#ifdef __cplusplus
extern "C"
{
#endif

    /// Parity of a serial line.
    enum
    {
        KY_PARITY_NONE = 0,
        KY_PARITY_EVEN = 1,
        KY_PARITY_ODD = 2
    };

    /// Line settings: a value, which talks to no device.
    typedef struct KyLineSettings
    {
        uint32_t mSize;        ///< sizeof(KyLineSettings); another size is refused.
        uint32_t mBaudRate;    ///< Bits per second: 9600, 14400, 19200, 28800, 38400, 57600 or 115200.
        int32_t mParity;       ///< None, even or odd; -1 with a baud rate of 0: nothing has been set.
        uint32_t mBitsPerByte; ///< Data bits of a character: 7 or 8.
        uint32_t mStopBits;    ///< Stop bits of a character: 1 or 2.
    } KyLineSettings;

    /// Fills in 9600 bit/s, no parity, 8 data bits, 1 stop bit, and the size.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYSERIALC_API KyCode KyLineSettingsInit(KyLineSettings* aSettings);

    /// Checks baud rate, parity, data bits and stop bits, in this order, up to the first that is wrong.
    /// \return KY_OK. KY_BAD_PARAMETER: null, another size, or a wrong value; the text names those allowed.
    KYSERIALC_API KyCode KyLineSettingsCheck(const KyLineSettings* aSettings);

#ifdef __cplusplus
}
#endif

#endif
