#include "KyPlatform/SharedMemory.h"

#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/Obstacle.h"

#include <cerrno>
#include <limits>
#include <memory>
#include <new>

namespace KyPlatform
{

namespace
{

constexpr char cKind[] = ".memory";

/// \param aSize  0 opens only.
NamedFile* Find(const std::string& aName, uint64_t aSize) noexcept
{
    try
    {
        auto lFile = std::make_unique<NamedFile>();
        const bool lHeld =
            aSize != 0 ? lFile->Create(aName, cKind, aSize, nullptr, nullptr) : lFile->Open(aName, cKind);
        return lHeld ? lFile.release() : nullptr;
    }
    catch (const std::bad_alloc&)
    {
        Obstacle::Note("there is no memory", ENOMEM);
        return nullptr;
    }
}

} // namespace

bool SharedMemory::Create(const std::string& aName, uint64_t aSize, bool& aNew) noexcept
{
    aNew = false;
    Close();
    if (aSize == 0 || aSize > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    {
        return false;
    }
    NamedFile* const lFile = Find(aName, aSize);
    mObject = lFile;
    mBase = lFile != nullptr ? lFile->GetBase() : nullptr;
    mSize = lFile != nullptr ? lFile->GetSize() : 0;
    aNew = lFile != nullptr && lFile->IsNew();
    return lFile != nullptr;
}

bool SharedMemory::Open(const std::string& aName) noexcept
{
    Close();
    NamedFile* const lFile = Find(aName, 0);
    mObject = lFile;
    mBase = lFile != nullptr ? lFile->GetBase() : nullptr;
    mSize = lFile != nullptr ? lFile->GetSize() : 0;
    return lFile != nullptr;
}

bool SharedMemory::Close() noexcept
{
    auto* const lFile = static_cast<NamedFile*>(mObject);
    const bool lDone = lFile == nullptr || lFile->Close();
    delete lFile;
    mObject = nullptr;
    mBase = nullptr;
    mSize = 0;
    return lDone;
}

bool SharedMemory::HasSizeOf(uint64_t aSize) const noexcept
{
    return mBase != nullptr && mSize == aSize;
}

} // namespace KyPlatform
