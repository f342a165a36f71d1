#pragma once

#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/NamedSemaphore.h"
#include "KyPlatform/SharedMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KySerialLib
{

/// One server, as every process finds it in the registry's section.
struct SharedRegistryEntry
{
    uint32_t mRegistered;         ///< 1 once a server has taken the entry.
    uint32_t mServerId;           ///< 0: free.
    uint32_t mSupportedBaudRates; ///< Camera Link bits of the speeds that the server offers.
    uint32_t mRequestedBaudRate;  ///< Camera Link bit of the speed that the client asks for.
    uint32_t mServerActive;       ///< 1 while the server serves.
    uint8_t mReserved[64];        ///< 0.
    uint32_t mServerSessionId;    ///< Session of the server's process.
    char mName[256];              ///< At most 255 characters and a NUL; of no use without one.
};

static_assert(offsetof(SharedRegistryEntry, mRegistered) == 0 &&
              offsetof(SharedRegistryEntry, mServerId) == 4 &&
              offsetof(SharedRegistryEntry, mSupportedBaudRates) == 8 &&
              offsetof(SharedRegistryEntry, mRequestedBaudRate) == 12 &&
              offsetof(SharedRegistryEntry, mServerActive) == 16 &&
              offsetof(SharedRegistryEntry, mReserved) == 20 &&
              offsetof(SharedRegistryEntry, mServerSessionId) == 84 &&
              offsetof(SharedRegistryEntry, mName) == 88 && sizeof(SharedRegistryEntry) == 344);

/// The machine's table of bridge servers, in shared memory: 32 entries, found by name, never freed.
///
/// A server is present while it holds its client semaphore open; the sweep marks the entries of servers that
/// have gone as not active. The entries are shared with every process that the system lets in: what is read
/// from them may be anything, and nothing that they say makes this class touch memory outside the section.
///
/// States: valid or not, from construction on. An invalid one fails at everything.
/// Threads: every operation by any thread. Each takes the registry's lock and waits at most 5000 ms for it.
class SharedRegistry
{
public:
    static constexpr uint32_t cEntryCount = 32;

    /// Opens the registry of this machine, or makes it, and sweeps. May sleep up to 500 ms.
    /// \param aCreate  Whether a registry that has to be made gets its entries initialised.
    /// Throws std::bad_alloc only.
    explicit SharedRegistry(bool aCreate);
    ~SharedRegistry() = default;
    SharedRegistry(const SharedRegistry&) = delete;
    SharedRegistry& operator=(const SharedRegistry&) = delete;

    /// Whether the section is mapped and the lock is open.
    bool IsValid() const noexcept;

    /// Sweeps, then enters a server. A name that is already in the table stays as it is.
    /// \param aName  What follows the 255th character is not stored.
    /// \return True: an entry carries the name. False: all entries are taken, lock not to be had, invalid.
    bool Register(const std::string& aName);

    /// \return False: no entry carries the name, lock not to be had, invalid.
    bool SetServerActive(const std::string& aName, bool aActive);

    /// \param aEntry  Receives the entry inside the section, which may be used until this object is
    ///                destroyed; null on failure.
    /// \return False: no entry carries the name, lock not to be had, invalid.
    bool Find(const std::string& aName, SharedRegistryEntry*& aEntry);

    /// Marks the entries of servers that have gone as not active.
    void Sweep();

    /// Sweeps, then copies all 32 entries in their order.
    /// \return Empty: lock not to be had, invalid.
    std::vector<SharedRegistryEntry> GetEntries();

    /// The prefix of the names of a server's objects, as seen from this process.
    std::string GetPrefix(const SharedRegistryEntry& aEntry) const;

    /// Makes this process the server of that name.
    /// \param aServerSemaphore  Receives the proof of that; closed on failure.
    /// \param aClientSemaphore  Receives what shows clients that the server lives; it may be open on failure
    /// too. \return False: another server of that name lives, no entry is free, lock not to be had, invalid.
    bool AcquireServer(const std::string& aName, KyPlatform::NamedSemaphore& aServerSemaphore,
                       KyPlatform::NamedSemaphore& aClientSemaphore);

    /// Makes this process the client of the server of that name.
    /// \param aClientSemaphore  Receives the proof of that; closed on failure.
    /// \return False: no such server, another client has it, lock not to be had, invalid.
    bool AcquireClient(const std::string& aName, KyPlatform::NamedSemaphore& aClientSemaphore);

    /// Frees the place of a client that has ended without giving it back, as one that was killed. By the server.
    /// \param aClientSemaphore  The server's own, from AcquireServer().
    /// \return True: the place was freed. False: the client lives, no client is there, or the lock is not to be had.
    bool FreeDeadClient(KyPlatform::NamedSemaphore& aClientSemaphore);

    /// Why the registry is not valid, or why the calling thread's last AcquireServer() has failed, other than
    /// by another server of that name.
    /// \return A sentence in English; empty: nothing is known. Throws std::bad_alloc only.
    std::string GetObstacle() const;

    /// Ends being the server. Both must be open; they are closed.
    static void ReleaseServer(KyPlatform::NamedSemaphore& aServerSemaphore,
                              KyPlatform::NamedSemaphore& aClientSemaphore);

    /// Ends being the client. It must be open; it is closed.
    static void ReleaseClient(KyPlatform::NamedSemaphore& aClientSemaphore);

private:
    class Scope;

    static std::string FindPrefix();
    void OpenMutex(const std::string& aName);
    void OpenSection(const std::string& aName, bool aCreate);
    void Repair() noexcept;
    SharedRegistryEntry* FindEntry(const std::string& aName) noexcept;
    std::string GetSemaphoreName(const char* aBase, const SharedRegistryEntry& aEntry) const;

    KyPlatform::NamedMutex mMutex;
    KyPlatform::SharedMemory mMemory;
    SharedRegistryEntry* mEntries = nullptr;
    std::atomic<const char*> mObstacle{nullptr}; // of the registry's own making
};

} // namespace KySerialLib
