#include "sharedregistry.h"

#include "JxUtilsLib/Thread.h"
#include "KernelCall.h"
#include "KyPlatform/Session.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <string_view>

using KyPlatform::NamedSemaphore;
using KyPlatform::Session;
using KyPlatform::WaitResult;

namespace KySerialLib
{

namespace
{

constexpr uint32_t cLockTimeout = 5000;
constexpr uint64_t cSectionSize = uint64_t{SharedRegistry::cEntryCount} * sizeof(SharedRegistryEntry);
static_assert(cSectionSize == 11008);

constexpr char cMutexName[] = "KySerialBridgeRegistryMutex";
constexpr char cSectionName[] = "KySerialBridgeRegistryMemory";
constexpr char cServerSemaphoreName[] = "KySerialBridgeServerSemaphore";
constexpr char cClientSemaphoreName[] = "KySerialBridgeClientSemaphore";
constexpr char cFreshName[] = "Uninitialized";

/// Sessions in which a registry is looked for.
constexpr uint32_t cSessions = 32;

/// Flags that other processes look at without the lock.
void StoreWord(uint32_t& aWord, uint32_t aValue)
{
    std::atomic_ref<uint32_t>(aWord).store(aValue, std::memory_order_release);
}

void SetFresh(SharedRegistryEntry& aEntry)
{
    aEntry = SharedRegistryEntry{};
    // The entry offers 9600 bit/s until a server says what its device can run at.
    aEntry.mSupportedBaudRates = 1;
    aEntry.mRequestedBaudRate = 1;
    std::memcpy(aEntry.mName, cFreshName, sizeof(cFreshName));
}

bool HasName(const SharedRegistryEntry& aEntry, std::string_view aName)
{
    // The bytes are shared: a name without its NUL must not lead outside the field.
    return aName.size() < sizeof(aEntry.mName) &&
           std::memcmp(aEntry.mName, aName.data(), aName.size()) == 0 && aEntry.mName[aName.size()] == '\0';
}

bool OpenOrMake(NamedSemaphore& aSemaphore, const std::string& aName)
{
    return aSemaphore.Open(aName) || aSemaphore.Create(aName, 1, 1);
}

} // namespace

/// Holds the registry's lock if it is to be had.
class SharedRegistry::Scope
{
public:
    explicit Scope(SharedRegistry& aRegistry) noexcept : mRegistry(aRegistry)
    {
        const WaitResult lLock =
            aRegistry.IsValid() ? aRegistry.mMutex.Wait(cLockTimeout) : WaitResult::Failed;
        mOwned = IsOwned(lLock);
        if (lLock == WaitResult::OwnerDied)
        {
            aRegistry.Repair();
        }
    }
    ~Scope()
    {
        if (mOwned)
        {
            CLSERZMO_VERIFY(mRegistry.mMutex.Release(), "::ReleaseMutex( mMutex )");
        }
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    bool IsLocked() const noexcept { return mOwned; }

private:
    SharedRegistry& mRegistry;
    bool mOwned;
};

SharedRegistry::SharedRegistry(bool aCreate)
{
    // Only what is in the way of this registry may be named as its obstacle.
    Session::ForgetObstacle();
    const std::string lPrefix = FindPrefix();
    OpenMutex(lPrefix + cMutexName);
    OpenSection(lPrefix + cSectionName, aCreate);
    Sweep();
}

/// A service's registry, in a session of its own, is found by everybody; else each session has its own.
std::string SharedRegistry::FindPrefix()
{
    uint32_t lService = 0;
    const uint32_t lLast = Session::GetService(lService) ? cSessions + 1 : cSessions;
    for (uint32_t lTurn = 0; lTurn < lLast; ++lTurn)
    {
        const uint32_t lNumber = lTurn < cSessions ? lTurn : lService;
        std::string lPrefix = Session::GetPrefix(lNumber);
        KyPlatform::NamedMutex lProbe;
        if (lProbe.Open(lPrefix + cMutexName))
        {
            uint32_t lCurrentSessionId = 0;
            CLSERZMO_VERIFY(Session::GetOwnNumber(lCurrentSessionId),
                            "ProcessIdToSessionId( ::GetCurrentProcessId(), &lCurrentSessionId )");
            // The own session goes by its local prefix, by which AcquireServer() knows it.
            return lNumber != lCurrentSessionId ? lPrefix : Session::cLocalPrefix;
        }
    }
    return Session::cLocalPrefix;
}

void SharedRegistry::OpenMutex(const std::string& aName)
{
    constexpr int cAttempts = 5;
    for (int lAttempt = 0; lAttempt < cAttempts; ++lAttempt)
    {
        // In a folder that belongs to somebody else a later try fails too, so no time is spent on it.
        if (mMutex.Create(aName) || mMutex.Open(aName) || Session::IsShutOut())
        {
            break;
        }
        JxUtilsLib::Thread::Sleep(100);
    }
    CLSERZMO_VERIFY(mMutex.IsValid(), "( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )");
}

void SharedRegistry::OpenSection(const std::string& aName, bool aCreate)
{
    // Under the lock nobody finds entries that are not initialised yet.
    const WaitResult lLock = mMutex.Wait(cLockTimeout);
    if (!IsOwned(lLock))
    {
        return;
    }
    bool lNew = false;
    if (!mMemory.Open(aName))
    {
        mMemory.Create(aName, cSectionSize, lNew);
    }
    // A section of another size has another layout, and nothing in it can be used.
    if (mMemory.HasSizeOf(cSectionSize))
    {
        mEntries = static_cast<SharedRegistryEntry*>(mMemory.GetBase());
        if (aCreate && lNew)
        {
            std::for_each_n(mEntries, cEntryCount, &SetFresh);
        }
        if (lLock == WaitResult::OwnerDied)
        {
            Repair();
        }
    }
    else
    {
        mMemory.Close();
    }
    CLSERZMO_VERIFY(mMutex.Release(), "::ReleaseMutex( mMutex )");
}

/// Takes back what a process has begun that died in Register() or while it initialised the entries. An entry
/// is taken by its number, which is given last; one without is to be as it was.
void SharedRegistry::Repair() noexcept
{
    for (uint32_t lIndex = 0; lIndex < cEntryCount; ++lIndex)
    {
        SharedRegistryEntry& lEntry = mEntries[lIndex];
        if (lEntry.mServerId == 0 && (lEntry.mRegistered != 0 || !HasName(lEntry, cFreshName)))
        {
            SetFresh(lEntry);
        }
    }
}

bool SharedRegistry::IsValid() const noexcept
{
    return mMemory.IsValid() && mEntries != nullptr && mMutex.IsValid();
}

SharedRegistryEntry* SharedRegistry::FindEntry(const std::string& aName) noexcept
{
    SharedRegistryEntry* const lEnd = mEntries + cEntryCount;
    SharedRegistryEntry* const lFound = std::find_if(
        mEntries, lEnd, [&aName](const SharedRegistryEntry& aEntry) { return HasName(aEntry, aName); });
    return lFound != lEnd ? lFound : nullptr;
}

bool SharedRegistry::Register(const std::string& aName)
{
    const Scope lScope(*this); // around the sweep too: a lock that is not to be had is waited for once
    if (!lScope.IsLocked())
    {
        mObstacle = "The lock of the registry is held by a process that does not go on.";
        return false;
    }
    Sweep();
    if (FindEntry(aName) != nullptr)
    {
        return true;
    }
    uint32_t lLargest = 0;
    SharedRegistryEntry* lPtr = nullptr;
    for (uint32_t lIndex = 0; lIndex < cEntryCount; ++lIndex)
    {
        const uint32_t lServerId = mEntries[lIndex].mServerId;
        lLargest = std::max(lLargest, lServerId);
        lPtr = lPtr == nullptr && lServerId == 0 ? &mEntries[lIndex] : lPtr;
    }
    if (lPtr == nullptr || lLargest == std::numeric_limits<uint32_t>::max())
    {
        mObstacle =
            "All entries of the registry are taken; they are free again when every process that uses it "
            "has ended.";
        return false; // the next number would be that of a free entry
    }
    // The number goes last: until then the entry counts as free, whatever happens to this process.
    StoreWord(lPtr->mRegistered, 1);
    std::memset(lPtr->mName, 0, sizeof(lPtr->mName));
    // A name that is too long is cut, since one without a NUL is of no use.
    std::memcpy(lPtr->mName, aName.data(), std::min(aName.size(), sizeof(lPtr->mName) - 1));
    uint32_t lSessionId = 0;
    CLSERZMO_VERIFY(Session::GetOwnNumber(lSessionId),
                    "ProcessIdToSessionId( ::GetCurrentProcessId(), &lPtr->mServerSessionId )");
    lPtr->mServerSessionId = lSessionId;
    StoreWord(lPtr->mServerId, lLargest + 1);
    return true;
}

bool SharedRegistry::SetServerActive(const std::string& aName, bool aActive)
{
    const Scope lScope(*this);
    SharedRegistryEntry* const lEntry = lScope.IsLocked() ? FindEntry(aName) : nullptr;
    if (lEntry == nullptr)
    {
        return false;
    }
    StoreWord(lEntry->mServerActive, aActive ? 1 : 0);
    return true;
}

bool SharedRegistry::Find(const std::string& aName, SharedRegistryEntry*& aEntry)
{
    const Scope lScope(*this);
    aEntry = lScope.IsLocked() ? FindEntry(aName) : nullptr;
    return aEntry != nullptr;
}

void SharedRegistry::Sweep()
{
    const Scope lScope(*this);
    for (uint32_t lIndex = 0; lScope.IsLocked() && lIndex < cEntryCount; ++lIndex)
    {
        SharedRegistryEntry& lEntry = mEntries[lIndex];
        // A server that lives holds its clients' semaphore open. Apart from it only a client does.
        if (lEntry.mServerId != 0 && !NamedSemaphore::Exists(GetSemaphoreName(cClientSemaphoreName, lEntry)))
        {
            StoreWord(lEntry.mServerActive, 0);
        }
    }
}

std::vector<SharedRegistryEntry> SharedRegistry::GetEntries()
{
    const Scope lScope(*this);
    if (!lScope.IsLocked())
    {
        return {};
    }
    Sweep();
    return std::vector<SharedRegistryEntry>(mEntries, mEntries + cEntryCount);
}

std::string SharedRegistry::GetPrefix(const SharedRegistryEntry& aEntry) const
{
    uint32_t lCurrentSessionId = 0;
    CLSERZMO_VERIFY(Session::GetOwnNumber(lCurrentSessionId),
                    "::ProcessIdToSessionId( ::GetCurrentProcessId(), &lCurrentSessionId )");
    const uint32_t lServerSessionId = aEntry.mServerSessionId;
    return lServerSessionId == lCurrentSessionId ? Session::cLocalPrefix
                                                 : Session::GetPrefix(lServerSessionId);
}

std::string SharedRegistry::GetSemaphoreName(const char* aBase, const SharedRegistryEntry& aEntry) const
{
    return GetPrefix(aEntry) + aBase + std::to_string(aEntry.mServerId);
}

bool SharedRegistry::AcquireServer(const std::string& aName, NamedSemaphore& aServerSemaphore,
                                   NamedSemaphore& aClientSemaphore)
{
    aServerSemaphore.Close();
    aClientSemaphore.Close();
    if (!IsValid())
    {
        return false; // the reason is known since then
    }
    mObstacle = nullptr;
    Session::ForgetObstacle();
    const Scope lScope(*this);
    SharedRegistryEntry* const lEntry = Register(aName) ? FindEntry(aName) : nullptr;
    if (lEntry == nullptr)
    {
        return false;
    }
    // In a session of others nothing can be made, and a name may have been entered from there before.
    const bool lForeign = GetPrefix(*lEntry) != Session::cLocalPrefix;
    const bool lServerOpen = OpenOrMake(aServerSemaphore, GetSemaphoreName(cServerSemaphoreName, *lEntry));
    CLSERZMO_VERIFY(lServerOpen || lForeign,
                    "( ( *aServerSemaphore != 0 ) && ( *aServerSemaphore != ((HANDLE)(LONG_PTR)-1) ) )");
    const bool lTaken = aServerSemaphore.TryTake();
    if (!lTaken)
    {
        CLSERZMO_VERIFY(aServerSemaphore.Close(), "::CloseHandle( *aServerSemaphore )");
    }
    const bool lClientOpen = OpenOrMake(aClientSemaphore, GetSemaphoreName(cClientSemaphoreName, *lEntry));
    CLSERZMO_VERIFY(lClientOpen || lForeign,
                    "( ( *aClientSemaphore != 0 ) && ( *aClientSemaphore != ((HANDLE)(LONG_PTR)-1) ) )");
    return lTaken;
}

bool SharedRegistry::AcquireClient(const std::string& aName, NamedSemaphore& aClientSemaphore)
{
    aClientSemaphore.Close();
    const Scope lScope(*this);
    SharedRegistryEntry* const lEntry = lScope.IsLocked() ? FindEntry(aName) : nullptr;
    if (lEntry == nullptr || !aClientSemaphore.Open(GetSemaphoreName(cClientSemaphoreName, *lEntry)))
    {
        return false;
    }
    if (!aClientSemaphore.TryTake())
    {
        // A process that is no client must not hold it open: a dead server would look alive.
        CLSERZMO_VERIFY(aClientSemaphore.Close(), "::CloseHandle( *aClientSemaphore )");
        return false;
    }
    return true;
}

bool SharedRegistry::FreeDeadClient(NamedSemaphore& aClientSemaphore)
{
    if (aClientSemaphore.IsHeldByOthers()) // mostly, and without the lock
    {
        return false;
    }
    // Clients open and take it under the lock, so that no living one is between the two.
    const Scope lScope(*this);
    if (!lScope.IsLocked() || aClientSemaphore.IsHeldByOthers())
    {
        return false;
    }
    // The count is taken if it is there, and given back in any case. What
    // the dead client took is there again.
    const bool lWasFree = aClientSemaphore.TryTake();
    return aClientSemaphore.Release() && !lWasFree;
}

std::string SharedRegistry::GetObstacle() const
{
    const char* const lOwn = mObstacle;
    return lOwn != nullptr ? std::string(lOwn) : Session::GetObstacle();
}

void SharedRegistry::ReleaseServer(NamedSemaphore& aServerSemaphore, NamedSemaphore& aClientSemaphore)
{
    CLSERZMO_VERIFY(aServerSemaphore.IsValid(),
                    "( ( *aServerSemaphore != 0 ) && ( *aServerSemaphore != ((HANDLE)(LONG_PTR)-1) ) )");
    CLSERZMO_VERIFY(aClientSemaphore.IsValid(),
                    "( ( *aClientSemaphore != 0 ) && ( *aClientSemaphore != ((HANDLE)(LONG_PTR)-1) ) )");
    CLSERZMO_VERIFY(aServerSemaphore.Release(), "::ReleaseSemaphore( *aServerSemaphore, 1, 0 )");
    CLSERZMO_VERIFY(aServerSemaphore.Close(), "::CloseHandle( *aServerSemaphore )");
    CLSERZMO_VERIFY(aClientSemaphore.Close(), "::CloseHandle( *aClientSemaphore )");
}

void SharedRegistry::ReleaseClient(NamedSemaphore& aClientSemaphore)
{
    CLSERZMO_VERIFY(aClientSemaphore.Release(), "::ReleaseSemaphore( *aClientSemaphore, 1, 0 )");
    CLSERZMO_VERIFY(aClientSemaphore.Close(), "::CloseHandle( *aClientSemaphore )");
}

} // namespace KySerialLib
