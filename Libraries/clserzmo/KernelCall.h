#pragma once

#include "JxUtilsLib/Assert.h"

/// \file
/// Calls into the kernel that must not fail. The texts of their assertions are those that are looked for in
/// the field, whatever the call is named in this source. A system short of something, or another process of
/// the user, makes them fail all the same, and so they are expectations.

#if defined(NDEBUG)
#define CLSERZMO_VERIFY(aDone, aText) static_cast<void>(aDone)
#else
#define CLSERZMO_VERIFY(aDone, aText) JX_EXPECT_WITH_TEXT(aDone, aText)
#endif
