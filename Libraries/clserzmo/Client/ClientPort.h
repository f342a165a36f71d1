#pragma once

#include "ClientTurn.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <deque>
#include <memory>
#include <string>

namespace KySerialLib
{

/// How an operation of a client ended.
enum class ClientResult
{
    Done,
    TimedOut,
    Closed, ///< Close() was called.
    InUse,  ///< Another client has the server.
    Gone,   ///< There is no such server.
    Unsupported
};

/// A server as a client sees it before it is attached.
struct ClientServer
{
    std::string mName;

    /// \param aServers  Receives the servers of this machine that are there now, in the order of the registry;
    ///                  none on failure.
    /// \return False: the registry cannot be used.
    static bool GetAll(std::vector<ClientServer>& aServers);

    /// Whether a server lives: it holds its semaphore.
    static bool IsAlive(const std::string& aPrefix, uint32_t aServerId);
    bool IsAlive() const;
};

/// A client's hold of one server: the registry's entry, and the FIFOs' ends.
///
/// Bytes are taken out of the FIFO into this object while a read waits for the rest of them, because a FIFO
/// holds less than a read may want; a read that times out leaves them here for the next one.
///
/// Threads: everything by any thread. The caller keeps the object alive during its calls.
class ClientPort
{
public:
    /// Throws std::bad_alloc only.
    ClientPort();
    /// Detaches.
    ~ClientPort();
    ClientPort(const ClientPort&) = delete;
    ClientPort& operator=(const ClientPort&) = delete;

    /// Attaches to a server and asks for 9600 bit/s, or the lowest rate offered. Once.
    /// \return Done, InUse or Gone.
    ClientResult Attach(const std::string& aName);

    /// Ends the calls that wait, and every later one.
    void Close() { mClosed = true; }

    /// \param aWhole  Whether to take nothing unless aSize bytes come in time.
    /// \param aRead   Receives the bytes taken.
    ClientResult Read(char* aBuffer, uint32_t aSize, bool aWhole, uint32_t aTimeout, uint32_t& aRead);
    ClientResult Write(const char* aData, uint32_t aSize, uint32_t aTimeout, uint32_t& aWritten);
    uint32_t GetAvailable();
    void Flush();
    uint32_t GetSupportedBaudRates() const;
    /// \return Done or Unsupported.
    ClientResult SetBaudRate(uint32_t aMask);

private:
    void Fetch(uint32_t aTimeout);
    uint32_t TakePending(char* aBuffer, uint32_t aSize);
    size_t GetPending();
    bool WaitForServer(const KyPlatform::Deadline& aDeadline);

    SharedRegistry mRegistry;
    SharedRegistryEntry* mEntry = nullptr; // inside the shared section
    std::string mPrefix;                   // of the server's objects
    uint32_t mServerId = 0;
    KyPlatform::NamedSemaphore mSemaphore;
    std::unique_ptr<SharedFifo> mUpFifo;
    std::unique_ptr<SharedFifo> mDownFifo;
    std::atomic<bool> mClosed{false};
    ClientTurn mReadTurn;
    ClientTurn mWriteTurn;
    JxUtilsLib::Mutex mMutex;                        // nothing is called while it is held
    std::deque<char> mPending JX_GUARDED_BY(mMutex); // arrived, not read
};

} // namespace KySerialLib
