#pragma once

#include "JxUtilsLib/Export.h"

namespace JxUtilsLib
{

/// Called with the text of a broken assertion, as it stands in the source, and its place.
/// Returning goes on behind the assertion as if it had held. Must not throw.
using AssertHandler = void (*)(const char* aText, const char* aFile, int aLine);

/// Replaces the process-wide handler of broken assertions.
/// \param aHandler  Null restores the default: print to standard error and abort.
/// Any thread; a handler may be called by several threads at once.
JXUTILSLIB_API void SetAssertHandler(AssertHandler aHandler);

/// Gives a broken assertion to the handler. Called by the macros below.
JXUTILSLIB_API void AssertFailed(const char* aText, const char* aFile, int aLine);

/// Whether this build checks assertions (Debug) or only evaluates those with effects (Release).
#if defined(NDEBUG)
inline constexpr bool cAssertionsEnabled = false;
#else
inline constexpr bool cAssertionsEnabled = true;
#endif

} // namespace JxUtilsLib

/// An internal invariant. A release build compiles it without evaluating it, so that what it names is used.
#if defined(NDEBUG)
#define JX_ASSERT(aExpression) static_cast<void>(sizeof((aExpression) ? 1 : 0))
#else
#define JX_ASSERT(aExpression)                                                                               \
    ((aExpression) ? static_cast<void>(0) : ::JxUtilsLib::AssertFailed(#aExpression, __FILE__, __LINE__))
#endif

/// A call that must not fail. A release build makes it and does not look at the result.
#if defined(NDEBUG)
#define JX_VERIFY(aCall) static_cast<void>(aCall)
#else
#define JX_VERIFY(aCall) JX_ASSERT(aCall)
#endif
