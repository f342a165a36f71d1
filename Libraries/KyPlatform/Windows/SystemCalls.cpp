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
    return lReal;
}

SystemCalls gSystem = GetRealSystem();

} // namespace KyPlatform
