#pragma once

#include "JxUtilsLib/Assert.h"

/// \file
/// Calls into the kernel that must not fail. Support people look for the texts of their assertions, so each text
/// is fixed, whatever the call is named in this source. A system short of memory, or another process of the
/// user, can make such a call fail, so the assertions are expectations.

#if defined(NDEBUG)
#define CLSERZMO_VERIFY(aDone, aText) static_cast<void>(aDone)
#else
#define CLSERZMO_VERIFY(aDone, aText) JX_EXPECT_WITH_TEXT(aDone, aText)
#endif
