#ifndef KYSERIALC_RESULT_H
#define KYSERIALC_RESULT_H

#include <KySerialC/Export.h>
#include <stdint.h>

/// \file
/// What functions give back: a code, and a text of the calling thread.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A result: one of the constants below, or a number of an adapter's own, which is passed through.
    typedef uint32_t KyCode;

    enum
    {
        KY_OK = 0x0000,            ///< Done.
        KY_NO_CONNECTION = 0x0017, ///< Closed, a disconnected device, or a bridge that is not running.
        KY_NOT_READABLE = 0x0019,  ///< A feature that has to be read cannot be.
        KY_UNSUPPORTED = 0x001A,   ///< The device does not offer what was asked for.
        KY_BUFFER_TOO_SMALL =
            0x001B,              ///< No room: in the device's message register, or in the caller's buffer.
        KY_WRONG_STATE = 0x001C, ///< Not now: already open or started, started as something else, or in use.
        KY_TIMED_OUT = 0x001E,   ///< Nothing came, or nothing was confirmed, in time.
        KY_NOT_OPEN = 0x0605,    ///< Opening has to come first.
        KY_FAILURE = 0x4000,     ///< The device or the system refused; the text says which step.
        KY_BAD_PARAMETER = 0x4001, ///< An argument that can never work.
        KY_INVALID_HANDLE = 0x4010 ///< 0, the handle of something that is gone, or of another kind of thing.
    };

    /// Why the last call of the calling thread failed, in words.
    /// \return Never null; empty when the call was successful or its code says it all. At most 511 bytes.
    ///         Changes with the thread's next call of a function that returns a KyCode.
    KYSERIALC_API const char* KyGetLastText(void);

    /// Sets what KyGetLastText() gives. An adapter's function calls it before it returns a failure: the text
    /// goes to whoever the failure is passed on to, and into the log.
    /// \param aText  Copied, longer ones cut; null is empty.
    KYSERIALC_API void KySetLastText(const char* aText);

    /// A code's name, "TIMED_OUT" for example.
    /// \return Never null; "UNKNOWN" for a number without a name. Stays.
    KYSERIALC_API const char* KyGetCodeName(KyCode aCode);

    /// The version of the library that was loaded: major << 16 | minor << 8 | patch.
    KYSERIALC_API uint32_t KyGetVersion(void);

#ifdef __cplusplus
}
#endif

#endif
