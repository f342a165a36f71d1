#pragma once

#include "JxUtilsLib/Logger.h"
#include "KyBase/KyResult.h"

/// \file
/// How a failure is logged and becomes a result.
///
/// A source file that logs defines `constexpr char cSourceFile[]`, its module's path without ending.

namespace KySerialLib
{

/// The category of every log line of this library.
inline constexpr char cLogCategory[] = "KySerialLib";

/// A utility result as a KyResult: the same code, and the description if there is one.
inline KyResult ToKyResult(const JxUtilsLib::Result& aResult) noexcept
{
    if (aResult.GetDescription() != nullptr)
    {
        return KyResult(aResult.GetCode(), KyString(aResult.GetDescription()));
    }
    return KyResult(aResult.GetCode());
}

} // namespace KySerialLib

/// Logs a failure, aFormat and its arguments, and is the KyResult to return.
#define KY_LOG_RESULT(aLogger, aCode, aFunction, ...)                                                        \
    ::KySerialLib::ToKyResult((aLogger).LogResult(aCode, cSourceFile, __LINE__, aFunction, __VA_ARGS__))

/// Logs a line below PriorityFatal; the arguments are evaluated only when the priority is enabled.
#define KY_LOG(aLogger, aPriority, aFunction, ...)                                                           \
    do                                                                                                       \
    {                                                                                                        \
        if ((aLogger).IsPriorityEnabled(aPriority))                                                          \
        {                                                                                                    \
            (aLogger).Log(aPriority, cSourceFile, __LINE__, aFunction, __VA_ARGS__);                         \
        }                                                                                                    \
    } while (false)

/// Logs a state that must not occur.
#define KY_LOG_FATAL(aLogger, aFunction, ...)                                                                \
    (aLogger).Log(::JxUtilsLib::PriorityFatal, cSourceFile, __LINE__, aFunction, __VA_ARGS__)
