#include "KyPlatform/NamedSemaphore.h"

#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/Obstacle.h"

#include <atomic>
#include <memory>

namespace KyPlatform
{

namespace
{

constexpr char cKind[] = ".semaphore";
constexpr uint32_t cMark = 0x3153794BU; // "KyS1"
constexpr uint32_t cLargest = 0x7FFFFFFFU;

struct Record
{
    uint32_t mMark;
    uint32_t mMaximum;
    uint32_t mCount;
};

bool FillRecord(void* aBase, const void* aContext)
{
    auto* const lRecord = static_cast<Record*>(aBase);
    *lRecord = *static_cast<const Record*>(aContext);
    return true;
}

Record* GetRecord(void* aObject)
{
    return static_cast<Record*>(static_cast<NamedFile*>(aObject)->GetBase());
}

/// A holder without a place would look dead to the others.
NamedFile* TakePlace(NamedFile* aFile) noexcept
{
    std::unique_ptr<NamedFile> lFile(aFile);
    return lFile != nullptr && lFile->TakePlace() ? lFile.release() : nullptr;
}

} // namespace

bool NamedSemaphore::Create(const std::string& aName, uint32_t aCount, uint32_t aMaximum) noexcept
{
    Close();
    const Record lNew{cMark, aMaximum, aCount};
    if (aMaximum != 0 && aMaximum <= cLargest && aCount <= aMaximum)
    {
        mObject = TakePlace(CreateRecord(aName, cKind, sizeof(Record), cMark, &FillRecord, &lNew));
    }
    return mObject != nullptr;
}

bool NamedSemaphore::Open(const std::string& aName) noexcept
{
    Close();
    mObject = TakePlace(OpenRecord(aName, cKind, sizeof(Record), cMark));
    return mObject != nullptr;
}

bool NamedSemaphore::Exists(const std::string& aName) noexcept
{
    const Obstacle lBefore = Obstacle::Get();
    Obstacle::Forget();
    const std::unique_ptr<NamedFile> lFile(OpenRecord(aName, cKind, sizeof(Record), cMark));
    const bool lIsThere = lFile != nullptr || Obstacle::Get().IsShortage();
    if (lBefore.mWhat != nullptr) // the thread's first obstacle stays the first
    {
        Obstacle::Forget();
        Obstacle::Note(lBefore.mWhat, lBefore.mError);
    }
    return lIsThere;
}

bool NamedSemaphore::Close() noexcept
{
    auto* const lFile = static_cast<NamedFile*>(std::exchange(mObject, nullptr));
    const bool lDone = lFile == nullptr || lFile->Close();
    delete lFile;
    return lDone;
}

bool NamedSemaphore::TryTake() noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    const std::atomic_ref<uint32_t> lCount(GetRecord(mObject)->mCount);
    uint32_t lOld = lCount.load();
    while (lOld != 0 && !lCount.compare_exchange_weak(lOld, lOld - 1))
    {
    }
    return lOld != 0;
}

bool NamedSemaphore::Release() noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    Record* const lRecord = GetRecord(mObject);
    const std::atomic_ref<uint32_t> lCount(lRecord->mCount);
    uint32_t lOld = lCount.load();
    while (lOld < lRecord->mMaximum && !lCount.compare_exchange_weak(lOld, lOld + 1))
    {
    }
    return lOld < lRecord->mMaximum;
}

bool NamedSemaphore::IsHeldByOthers() const noexcept
{
    return mObject == nullptr || static_cast<const NamedFile*>(mObject)->IsTaken(1, NamedFile::cLastPlace);
}

} // namespace KyPlatform
