#ifndef KYSERIALC_EXPORT_H
#define KYSERIALC_EXPORT_H

#include <KyBase/Export.h>

/// \file
/// KYSERIALC_API marks what the C interface's library exports; KYSERIALC_BUILD is defined by the library's
/// own build, programs define nothing.

#if defined(KYSERIALC_BUILD)
#define KYSERIALC_API KY_EXPORT
#else
#define KYSERIALC_API KY_IMPORT
#endif

#endif
