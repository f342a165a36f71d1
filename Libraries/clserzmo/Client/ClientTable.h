#pragma once

#include "ClientPort.h"

#include <map>
#include <vector>

namespace KySerialLib
{

/// The process's list of servers, and its open ports by their references.
///
/// References are numbers that are never used twice: a wrong one is not found.
///
/// Threads: any.
class ClientTable
{
public:
    /// The process's table, made on first use and never destroyed. When the program ends, it closes the ports
    /// that are still open.
    static ClientTable& GetInstance();

    /// Makes the list of servers anew.
    /// \param aCount  Receives their number; 0 on failure.
    /// \return False: the registry cannot be used.
    bool Renew(uint32_t& aCount);

    /// \return The name of a server of the list; empty if no server has this index. Renews the list if the index is
    ///         too high or its server is gone.
    std::string GetName(uint32_t aIndex);

    /// Opens a port. \param aReference  Receives its reference; null on failure.
    ClientResult Open(uint32_t aIndex, void*& aReference);

    /// Closes a port when all calls on it have ended; ignores any other number.
    void Close(void* aReference);

    /// An open port for the time of one call.
    class Use
    {
    public:
        Use(ClientTable& aTable, void* aReference);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        /// Null: the reference is not that of an open port.
        ClientPort* GetPort() const { return mPort; }

    private:
        ClientTable& mTable;
        void* const mReference;
        ClientPort* mPort;
    };

private:
    void CloseUnused();

    struct Item
    {
        std::unique_ptr<ClientPort> mPort;
        unsigned mUsers = 0;
        bool mClosing = false;
    };

    JxUtilsLib::Mutex mMutex; // no port is called while it is held
    JxUtilsLib::Condition mUnused;
    std::vector<ClientServer> mServers JX_GUARDED_BY(mMutex);
    std::map<void*, Item> mItems JX_GUARDED_BY(mMutex);
    uintptr_t mLast JX_GUARDED_BY(mMutex) = 0x1000;
};

} // namespace KySerialLib
