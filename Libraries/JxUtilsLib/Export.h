#pragma once

#include "KyBase/Export.h"

/// \file
/// The utility library is a shared library of its own: the log's sink and level are process wide, so every
/// module of a process has to reach the same ones.

#if defined(JXUTILSLIB_STATIC)
#define JXUTILSLIB_API
#elif defined(JXUTILSLIB_BUILD)
#define JXUTILSLIB_API KY_EXPORT
#else
#define JXUTILSLIB_API KY_IMPORT
#endif

// Lets the compiler check arguments against their format text; numbers count from 1, the object being 1.
#if defined(__MINGW32__)
#define JXUTILSLIB_PRINTF(aFormat, aFirst) __attribute__((format(__MINGW_PRINTF_FORMAT, aFormat, aFirst)))
#elif defined(__GNUC__)
#define JXUTILSLIB_PRINTF(aFormat, aFirst) __attribute__((format(printf, aFormat, aFirst)))
#else
#define JXUTILSLIB_PRINTF(aFormat, aFirst)
#endif
