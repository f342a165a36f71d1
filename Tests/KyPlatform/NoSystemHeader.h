#pragma once

/// \file
/// Included after a contract header: nothing of a system may have come in with it.

#if defined(_WINDOWS_) || defined(_WINDEF_) || defined(_WINBASE_) || defined(WINAPI)
#error "a contract header lets windows.h out"
#endif
#if defined(MAP_SHARED) || defined(LOCK_EX) || defined(FUTEX_WAIT) || defined(O_TMPFILE) || defined(TCSANOW)
#error "a contract header lets headers of the system out"
#endif
