#include "ClientTable.h"

#include "JxUtilsLib/LockScope.h"
#include "KyBase/KyPermanent.h"

#include <utility>

namespace KySerialLib
{

ClientTable& ClientTable::GetInstance()
{
    static KyPermanent<ClientTable> sInstance;
    // Made after the table, and before every port: a program that leaves ports open does not keep their
    // places. The table itself stays, for objects that close their ports still later.
    struct AtEnd
    {
        ~AtEnd() { sInstance.Get().CloseUnused(); }
    };
    static const AtEnd cAtEnd;
    return sInstance.Get();
}

void ClientTable::CloseUnused()
{
    std::map<void*, Item> lClosed; // detach after the lock is released
    const JxUtilsLib::LockScope lLock(mMutex);
    for (auto lItem = mItems.begin(); lItem != mItems.end();)
    {
        const auto lThis = lItem++;
        // A port that another thread still uses or closes is left to that thread.
        if (lThis->second.mUsers == 0 && !lThis->second.mClosing)
        {
            lClosed.insert(mItems.extract(lThis));
        }
    }
}

bool ClientTable::Renew(uint32_t& aCount)
{
    std::vector<ClientServer> lServers;
    // The registry is read without the table's lock, because the registry's own lock may take seconds.
    const bool lDone = ClientServer::GetAll(lServers);
    const JxUtilsLib::LockScope lLock(mMutex);
    mServers = std::move(lServers);
    aCount = static_cast<uint32_t>(mServers.size());
    return lDone;
}

std::string ClientTable::GetName(uint32_t aIndex)
{
    // The list may be old. The second turn looks into a new one.
    for (int lTry = 0; lTry < 2; ++lTry)
    {
        ClientServer lServer;
        {
            const JxUtilsLib::LockScope lLock(mMutex);
            lServer = aIndex < mServers.size() ? mServers[aIndex] : ClientServer();
        }
        if (!lServer.mName.empty() && lServer.IsAlive())
        {
            return lServer.mName;
        }
        uint32_t lIgnored = 0;
        static_cast<void>(Renew(lIgnored)); // the number does not matter: the next turn looks
    }
    return {};
}

ClientResult ClientTable::Open(uint32_t aIndex, void*& aReference)
{
    aReference = nullptr;
    const std::string lName = GetName(aIndex);
    if (lName.empty())
    {
        return ClientResult::Gone;
    }
    auto lPort = std::make_unique<ClientPort>();
    const ClientResult lResult = lPort->Attach(lName);
    if (lResult != ClientResult::Done)
    {
        return lResult;
    }
    const JxUtilsLib::LockScope lLock(mMutex);
    mLast += 0x10; // looks like a pointer and is not one
    void* const lReference =
        reinterpret_cast<void*>(mLast); // NOLINT(performance-no-int-to-ptr): never followed
    mItems[lReference].mPort = std::move(lPort);
    aReference = lReference;
    return lResult;
}

void ClientTable::Close(void* aReference)
{
    std::unique_ptr<ClientPort> lPort; // detaches after the lock is released
    const JxUtilsLib::LockScope lLock(mMutex);
    const auto lFound = mItems.find(aReference);
    if (lFound == mItems.end() || lFound->second.mClosing)
    {
        return;
    }
    lFound->second.mClosing = true; // no more users from here on
    lFound->second.mPort->Close();
    // The calls that are inside hold the port by a bare pointer. Close() has ended their waits.
    while (lFound->second.mUsers > 0)
    {
        mUnused.Wait(mMutex);
    }
    lPort = std::move(lFound->second.mPort);
    mItems.erase(lFound);
}

ClientTable::Use::Use(ClientTable& aTable, void* aReference)
    : mTable(aTable), mReference(aReference), mPort(nullptr)
{
    const JxUtilsLib::LockScope lLock(mTable.mMutex);
    const auto lFound = mTable.mItems.find(mReference);
    if (lFound != mTable.mItems.end() && !lFound->second.mClosing)
    {
        ++lFound->second.mUsers;
        mPort = lFound->second.mPort.get();
    }
}

ClientTable::Use::~Use()
{
    if (mPort != nullptr)
    {
        const JxUtilsLib::LockScope lLock(mTable.mMutex);
        // The item is still there, since Close() waits for its users.
        --mTable.mItems[mReference].mUsers;
        mTable.mUnused.NotifyAll();
    }
}

} // namespace KySerialLib
