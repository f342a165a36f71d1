#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

namespace
{

/// Not declared by the system's headers for programs, but documented for them: PUBLIC_OBJECT_BASIC_INFORMATION.
struct BasicInformation
{
    ULONG mAttributes;
    ACCESS_MASK mGrantedAccess;
    ULONG mHandleCount;
    ULONG mPointerCount;
    ULONG mReserved[10];
};

using QueryObject = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

bool CountHandles(HANDLE aObject, uint32_t* aCount)
{
    const HMODULE lSystem = ::GetModuleHandleA("ntdll.dll");
    const FARPROC lFound = lSystem != nullptr ? ::GetProcAddress(lSystem, "NtQueryObject") : nullptr;
    const auto lQuery = reinterpret_cast<QueryObject>(reinterpret_cast<void*>(lFound));
    BasicInformation lInformation{};
    constexpr int cBasicInformation = 0;
    if (lQuery == nullptr ||
        lQuery(aObject, cBasicInformation, &lInformation, sizeof lInformation, nullptr) < 0)
    {
        return false;
    }
    *aCount = lInformation.mHandleCount;
    return true;
}

} // namespace

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
    lReal.mCountHandles = &CountHandles;
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
