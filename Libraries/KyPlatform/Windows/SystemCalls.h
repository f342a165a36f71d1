#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstdint>

namespace KyPlatform
{

/// Every call into the system that this layer makes, so that a test can put a failing one in its place.
///
/// The entries are the system's own functions, with their own results and GetLastError(). Replace them only
/// while no other thread is in this layer.
struct SystemCalls
{
    HANDLE(WINAPI* mCreateMutex)(SECURITY_ATTRIBUTES*, BOOL, const char*);
    HANDLE(WINAPI* mOpenMutex)(DWORD, BOOL, const char*);
    BOOL(WINAPI* mReleaseMutex)(HANDLE);
    HANDLE(WINAPI* mCreateEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const char*);
    HANDLE(WINAPI* mOpenEvent)(DWORD, BOOL, const char*);
    BOOL(WINAPI* mSetEvent)(HANDLE);
    BOOL(WINAPI* mResetEvent)(HANDLE);
    HANDLE(WINAPI* mCreateSemaphore)(SECURITY_ATTRIBUTES*, LONG, LONG, const char*);
    HANDLE(WINAPI* mOpenSemaphore)(DWORD, BOOL, const char*);
    BOOL(WINAPI* mReleaseSemaphore)(HANDLE, LONG, LONG*);
    HANDLE(WINAPI* mCreateMapping)(HANDLE, SECURITY_ATTRIBUTES*, DWORD, DWORD, DWORD, const char*);
    HANDLE(WINAPI* mOpenMapping)(DWORD, BOOL, const char*);
    void*(WINAPI* mMapView)(HANDLE, DWORD, DWORD, DWORD, SIZE_T);
    BOOL(WINAPI* mUnmapView)(const void*);
    SIZE_T(WINAPI* mQueryView)(const void*, MEMORY_BASIC_INFORMATION*, SIZE_T);
    BOOL(WINAPI* mCloseHandle)(HANDLE);
    DWORD(WINAPI* mWait)(HANDLE, DWORD);
    DWORD(WINAPI* mWaitForAll)(DWORD, const HANDLE*, BOOL, DWORD);
    bool (*mCountHandles)(HANDLE, uint32_t*); ///< How often all processes have an object open.
    BOOL(WINAPI* mGetSession)(DWORD, DWORD*);

    // Host ports, stop events and threads.
    HANDLE(WINAPI* mMakeEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const char*); ///< One without a name.
    HANDLE(WINAPI* mOpenPort)(const char*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE);
    BOOL(WINAPI* mSetTimeouts)(HANDLE, COMMTIMEOUTS*);
    BOOL(WINAPI* mGetLine)(HANDLE, DCB*);
    BOOL(WINAPI* mSetLine)(HANDLE, DCB*);
    BOOL(WINAPI* mReadPort)(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*);
    BOOL(WINAPI* mWritePort)(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*);
    BOOL(WINAPI* mGetResult)(HANDLE, OVERLAPPED*, DWORD*, BOOL);
    BOOL(WINAPI* mCancel)(HANDLE, OVERLAPPED*);
    HANDLE(WINAPI* mCreateThread)(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
};

/// The table in use.
extern SystemCalls gSystem;

/// The table that a process starts with.
SystemCalls GetRealSystem() noexcept;

} // namespace KyPlatform
