#ifndef KYSERIALC_LOG_H
#define KYSERIALC_LOG_H

#include <KySerialC/Result.h>
#include <stdint.h>

/// \file
/// The library's log. There is one in a process, shared by every user of the library.

#ifdef __cplusplus
extern "C"
{
#endif

    /// Priorities. Any number between them is a valid level too.
    enum
    {
        KY_LOG_DEBUG = 10000,   ///< Each interrupt, each chunk.
        KY_LOG_INFO = 20000,    ///< Progress, and what a device can do.
        KY_LOG_WARNING = 30000, ///< Surprises that are dealt with.
        KY_LOG_ERROR = 40000,   ///< Failures.
        KY_LOG_FATAL = 50000    ///< States that must not occur.
    };

    /// One line of the log. It and its texts end with the call that gives it.
    typedef struct KyLogRecord
    {
        uint32_t mSize;    ///< Bytes of this structure, as the library knows it; fields are added at the end.
        int32_t mPriority; ///< Failures that become results are KY_LOG_ERROR.
        const char* mCategory; ///< "KySerialLib" throughout this library.
        const char* mFile;     ///< The source module.
        const char* mFunction; ///< The qualified name of the operation.
        const char* mMessage;  ///< The text, without a line end.
        int32_t mLine;         ///< In mFile.
    } KyLogRecord;

    /// Takes a line: any thread, one call at a time. It must not log, nor call KyLogSetSink().
    typedef void (*KyLogFunction)(void* aContext, const KyLogRecord* aRecord);

    /// Sends every later line of the process to a function. When the call returns, no thread is inside the
    /// former one any more.
    /// \param aFunction  Null restores the default: standard error.
    /// \param aContext  Passed on.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyLogSetSink(KyLogFunction aFunction, void* aContext);

    /// Writes lines of this priority and above; KY_LOG_WARNING at the start of the process. Above
    /// KY_LOG_FATAL nothing is written.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyLogSetPriority(int32_t aPriority);

    /// The level that was set last.
    KYSERIALC_API int32_t KyLogGetPriority(void);

#ifdef __cplusplus
}
#endif

#endif
