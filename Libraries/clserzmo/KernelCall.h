#pragma once

#include "JxUtilsLib/Assert.h"

/// \file
/// Calls into the kernel that must not fail. The texts of their assertions are those that are looked for in
/// the field, whatever the call is named in this source.

#if defined(NDEBUG)
#define CLSERZMO_VERIFY(aDone, aText) static_cast<void>(aDone)
#else
#define CLSERZMO_VERIFY(aDone, aText)                                                                        \
    ((aDone) ? static_cast<void>(0) : ::JxUtilsLib::AssertFailed(aText, __FILE__, __LINE__))
#endif
