#pragma once

#include "JxUtilsLib/Export.h"
#include "JxUtilsLib/Result.h"

#include <cstdint>

namespace JxUtilsLib
{

/// Log priorities. Any number between them is a valid level too; one above PriorityFatal disables them all.
enum PriorityLevel : int
{
    PriorityDebug = 10000,   ///< Each interrupt, each chunk.
    PriorityInfo = 20000,    ///< Progress, and what a device can do.
    PriorityWarning = 30000, ///< Something unexpected that the library handles.
    PriorityError = 40000,   ///< Failures.
    PriorityFatal = 50000    ///< States that must not occur.
};

/// One line of the log. The texts belong to the caller of Write() and end with the call.
struct LogRecord
{
    const char* mCategory;   ///< The logger's category, "KySerialLib" throughout the serial library.
    PriorityLevel mPriority; ///< Failures that become results are PriorityError.
    const char* mFile;       ///< The source module.
    int mLine;
    const char* mFunction; ///< The qualified name of the operation.
    const char* mMessage;  ///< The text, formatted, without a line end.
};

/// Where log lines go.
class LogSink
{
public:
    /// Takes one line. Called by any thread, one call at a time; the sink must not log, nor change the sink.
    virtual void Write(const LogRecord& aRecord) = 0;

protected:
    LogSink() = default;
    LogSink(const LogSink&) = default;
    LogSink& operator=(const LogSink&) = default;
    ~LogSink() = default;
};

/// Writes the log lines of one category.
///
/// An object is cheap, keeps no memory of its own and may be used by several threads. The sink and the level
/// are process wide.
class Logger
{
public:
    /// \param aCategory       Name of the source of the lines; not null, kept by pointer (use a literal).
    /// \param aConfiguration  Reserved; 0.
    JXUTILSLIB_API explicit Logger(const char* aCategory, int aConfiguration = 0) noexcept;
    JXUTILSLIB_API ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Whether a line of this priority would be written. Ask before plain Log() calls below PriorityFatal, so
    /// that a disabled line costs no formatting.
    JXUTILSLIB_API bool IsPriorityEnabled(PriorityLevel aPriority) const noexcept;

    /// Writes a line in the manner of printf; nothing when the priority is disabled.
    JXUTILSLIB_API void Log(PriorityLevel aPriority, const char* aFile, int aLine, const char* aFunction,
                            const char* aFormat, ...) const noexcept JXUTILSLIB_PRINTF(6, 7);

    /// Writes a failure at PriorityError and makes it a result.
    /// \return aCode with the formatted text as its description, whatever priorities are enabled; without a
    ///         description only when there is no memory for it.
    JXUTILSLIB_API Result LogResult(uint32_t aCode, const char* aFile, int aLine, const char* aFunction,
                                    const char* aFormat, ...) const noexcept JXUTILSLIB_PRINTF(6, 7);

    /// Sends every later line of the process to aSink, which must stay alive until it is replaced.
    /// \param aSink  Null restores the default: standard error, with time, priority, category and function.
    /// When the call returns, no thread is inside the former sink any more. Not from inside a sink.
    JXUTILSLIB_API static void SetSink(LogSink* aSink) noexcept;

    /// Writes lines of this priority and above; PriorityWarning at the start of the process.
    JXUTILSLIB_API static void SetPriority(PriorityLevel aPriority) noexcept;

    /// The level that SetPriority() set last.
    JXUTILSLIB_API static PriorityLevel GetPriority() noexcept;

private:
    const char* mCategory;
};

} // namespace JxUtilsLib
