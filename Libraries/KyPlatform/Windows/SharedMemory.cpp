#include "KyPlatform/SharedMemory.h"

#include "KyPlatform/Windows/Obstacle.h"
#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

namespace
{

constexpr uint64_t cPage = 4096;

uint64_t RoundUp(uint64_t aSize)
{
    return (aSize + cPage - 1) / cPage * cPage;
}

/// The bytes that can be touched from aBase on; 0 when the system does not say.
uint64_t GetViewSize(const void* aBase)
{
    MEMORY_BASIC_INFORMATION lView{};
    return gSystem.mQueryView(aBase, &lView, sizeof(lView)) == sizeof(lView) ? lView.RegionSize : 0;
}

} // namespace

bool SharedMemory::Create(const std::string& aName, uint64_t aSize, bool& aNew) noexcept
{
    aNew = false;
    if (Open(aName))
    {
        return true;
    }
    if (aSize == 0 || aSize > SIZE_MAX - cPage)
    {
        return false;
    }
    mObject = Obstacle::Check(gSystem.mCreateMapping(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                     static_cast<DWORD>(aSize >> 32),
                                                     static_cast<DWORD>(aSize & 0xFFFFFFFFU), aName.c_str()));
    // Another process may have made the section since the opening failed, with a size of its own.
    const bool lExisted = mObject != nullptr && ::GetLastError() == ERROR_ALREADY_EXISTS;
    mBase =
        mObject != nullptr ? gSystem.mMapView(mObject, FILE_MAP_WRITE, 0, 0, lExisted ? 0 : aSize) : nullptr;
    mSize = mBase == nullptr ? 0 : lExisted ? GetViewSize(mBase) : aSize;
    if (mSize == 0)
    {
        Close();
        return false;
    }
    aNew = !lExisted;
    return true;
}

bool SharedMemory::Open(const std::string& aName) noexcept
{
    Close();
    mObject = gSystem.mOpenMapping(FILE_MAP_WRITE, FALSE, aName.c_str());
    mBase = mObject != nullptr ? gSystem.mMapView(mObject, FILE_MAP_WRITE, 0, 0, 0) : nullptr;
    mSize = mBase != nullptr ? GetViewSize(mBase) : 0;
    if (mSize == 0)
    {
        Close();
        return false;
    }
    return true;
}

bool SharedMemory::Close() noexcept
{
    bool lDone = mBase == nullptr || gSystem.mUnmapView(mBase) != FALSE;
    lDone = (mObject == nullptr || gSystem.mCloseHandle(mObject) != FALSE) && lDone;
    mObject = nullptr;
    mBase = nullptr;
    mSize = 0;
    return lDone;
}

bool SharedMemory::HasSizeOf(uint64_t aSize) const noexcept
{
    // The system reports the size of a section of another process in whole pages only.
    return mBase != nullptr && RoundUp(mSize) == RoundUp(aSize);
}

} // namespace KyPlatform
