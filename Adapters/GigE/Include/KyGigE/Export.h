#pragma once

#include <KyBase/Export.h>

/// \file
/// KYGIGE_API marks the functions and classes of the adapter's library. The build defines KYGIGE_BUILD for the library
/// itself and KYSERIAL_STATIC where libraries are linked statically.

#if defined(KYGIGE_BUILD)
#define KYGIGE_API KY_EXPORT
#elif defined(KYSERIAL_STATIC)
#define KYGIGE_API
#else
#define KYGIGE_API KY_IMPORT
#endif
