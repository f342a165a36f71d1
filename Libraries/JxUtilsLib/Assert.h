#pragma once

#include "JxUtilsLib/Export.h"

#include <atomic>

/// \file
/// Assertions, of two kinds. An invariant (JX_ASSERT) breaks through a defect of the libraries only; an
/// expectation (JX_EXPECT) breaks through a caller, a device, its configuration or a system short of
/// something, and the code after it works all the same. A Debug build checks both, a Release build neither.

namespace JxUtilsLib
{

/// Called with the text of a broken assertion of either kind, as it stands in the source, and its place, each
/// time it is broken. Returning goes on after the assertion as if it had held. Must not throw.
using AssertHandler = void (*)(const char* aText, const char* aFile, int aLine);

/// Replaces the process-wide handler of broken assertions.
/// \param aHandler  Null restores the default: a broken invariant is printed to standard error and aborts the
///                  process; a broken expectation is printed once for each place, and the program goes on.
/// Any thread; a handler may be called by several threads at once.
JXUTILSLIB_API void SetAssertHandler(AssertHandler aHandler);

/// Gives a broken invariant to the handler. Called by JX_ASSERT.
JXUTILSLIB_API void AssertFailed(const char* aText, const char* aFile, int aLine);

/// Gives a broken expectation to the handler. Called by JX_EXPECT.
/// \param aPrinted  Whether this place has been printed; one for each place, false at first.
JXUTILSLIB_API void ExpectationFailed(const char* aText, const char* aFile, int aLine,
                                      std::atomic<bool>& aPrinted);

/// Whether this build checks assertions (Debug) or only evaluates those with effects (Release).
#if defined(NDEBUG)
inline constexpr bool cAssertionsEnabled = false;
#else
inline constexpr bool cAssertionsEnabled = true;
#endif

} // namespace JxUtilsLib

/// An invariant. A release build compiles it and does not evaluate it, so what only it names stays used.
#if defined(NDEBUG)
#define JX_ASSERT(aExpression) static_cast<void>(sizeof((aExpression) ? 1 : 0))
#else
#define JX_ASSERT(aExpression)                                                                               \
    ((aExpression) ? static_cast<void>(0) : ::JxUtilsLib::AssertFailed(#aExpression, __FILE__, __LINE__))
#endif

/// An expectation; otherwise as JX_ASSERT.
#define JX_EXPECT(aExpression) JX_EXPECT_WITH_TEXT(aExpression, #aExpression)

/// An expectation whose text is fixed, whatever the expression looks like.
#if defined(NDEBUG)
#define JX_EXPECT_WITH_TEXT(aExpression, aText) static_cast<void>(sizeof((aExpression) ? 1 : 0))
#else
#define JX_EXPECT_WITH_TEXT(aExpression, aText)                                                              \
    ((aExpression) ? static_cast<void>(0)                                                                    \
                   : []                                                                                      \
     {                                                                                                       \
         static std::atomic<bool> sPrinted{false};                                                           \
         ::JxUtilsLib::ExpectationFailed(aText, __FILE__, __LINE__, sPrinted);                               \
     }())
#endif

/// A call that must not fail. A release build makes it and does not look at the result.
#if defined(NDEBUG)
#define JX_VERIFY(aCall) static_cast<void>(aCall)
#else
#define JX_VERIFY(aCall) JX_ASSERT(aCall)
#endif
