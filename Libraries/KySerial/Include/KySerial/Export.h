#pragma once

#include <KyBase/Export.h>

/// \file
/// KYSERIAL_API marks the classes that the shared library exports. Applications define nothing; the build
/// defines KYSERIAL_BUILD for the library itself and KYSERIAL_STATIC where it is linked statically.

#if defined(KYSERIAL_STATIC)
#define KYSERIAL_API
#elif defined(KYSERIAL_BUILD)
#define KYSERIAL_API KY_EXPORT
#else
#define KYSERIAL_API KY_IMPORT
#endif
