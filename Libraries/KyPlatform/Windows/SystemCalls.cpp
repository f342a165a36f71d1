#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

SystemCalls GetRealSystem() noexcept
{
    SystemCalls lReal{};
    lReal.mCreateMutex = &::CreateMutexA;
    lReal.mOpenMutex = &::OpenMutexA;
    lReal.mReleaseMutex = &::ReleaseMutex;
    lReal.mCreateEvent = &::CreateEventA;
    lReal.mOpenEvent = &::OpenEventA;
    lReal.mSetEvent = &::SetEvent;
    lReal.mResetEvent = &::ResetEvent;
    lReal.mCreateSemaphore = &::CreateSemaphoreA;
    lReal.mOpenSemaphore = &::OpenSemaphoreA;
    lReal.mReleaseSemaphore = &::ReleaseSemaphore;
    lReal.mCreateMapping = &::CreateFileMappingA;
    lReal.mOpenMapping = &::OpenFileMappingA;
    lReal.mMapView = &::MapViewOfFile;
    lReal.mUnmapView = &::UnmapViewOfFile;
    lReal.mQueryView = &::VirtualQuery;
    lReal.mCloseHandle = &::CloseHandle;
    lReal.mWait = &::WaitForSingleObject;
    lReal.mWaitForAll = &::WaitForMultipleObjects;
    lReal.mGetSession = &::ProcessIdToSessionId;
    lReal.mMakeEvent = &::CreateEventA;
    lReal.mOpenPort = &::CreateFileA;
    lReal.mSetTimeouts = &::SetCommTimeouts;
    lReal.mGetLine = &::GetCommState;
    lReal.mSetLine = &::SetCommState;
    lReal.mReadPort = &::ReadFile;
    lReal.mWritePort = &::WriteFile;
    lReal.mGetResult = &::GetOverlappedResult;
    lReal.mCancel = &::CancelIoEx;
    lReal.mCreateThread = &::CreateThread;
    return lReal;
}

SystemCalls gSystem = GetRealSystem();

} // namespace KyPlatform
