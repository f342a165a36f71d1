// Calls of two clients and two servers in any order, none of which waits: every result, every byte and every
// count is the one that the header promises.

#include "Fuzz/FuzzInput.h"
#include "JxUtilsLib/Logger.h"
#include "Tests/Support/PrivateSession.h"
#include "clserzmo/clser.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

using namespace KyTest;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

constexpr size_t cRoom = 1023; // of a FIFO
using Queue = std::deque<char>;

// A server as a bridge is one, without its threads.
struct Server
{
    void Start(SharedRegistry& aRegistry)
    {
        KY_REQUIRE(aRegistry.AcquireServer(mName, mServer, mClient));
        const std::string lNumber = std::to_string(mEntry->mServerId);
        mDown = std::make_unique<SharedFifo>("KySerialBridgeDownFifo" + lNumber, "Local\\", 1024, true);
        mUp = std::make_unique<SharedFifo>("KySerialBridgeUpFifo" + lNumber, "Local\\", 1024, true);
        KY_REQUIRE(mDown->IsValid() && mUp->IsValid() && aRegistry.SetServerActive(mName, true));
        mRuns = true;
    }

    void Stop()
    {
        if (!mRuns)
        {
            return;
        }
        mDown = nullptr;
        mUp = nullptr;
        SharedRegistry::ReleaseServer(mServer, mClient);
        mRuns = false;
        Forget();
    }

    // An object that no process holds open is gone.
    void Forget()
    {
        if (!mRuns && !mHasClient)
        {
            mDownBytes.clear();
            mUpBytes.clear();
        }
    }

    std::string mName{};
    SharedRegistryEntry* mEntry = nullptr;
    bool mRuns = false;
    bool mHasClient = false;
    Queue mDownBytes{};
    Queue mUpBytes{};
    NamedSemaphore mServer{};
    NamedSemaphore mClient{};
    std::unique_ptr<SharedFifo> mDown{};
    std::unique_ptr<SharedFifo> mUp{};
};

struct Client
{
    hSerRef mReference = nullptr;
    Server* mServer = nullptr;
    Queue mPending{}; // fetched from the FIFO
};

// Registries are looked for in one session after the other: this is found soon.
struct EarlySession
{
    EarlySession() { PrivateSession::SetOwnNumber(1); }

    PrivateSession mSession{};
};

class World
{
public:
    World() : mRegistry(true)
    {
        for (size_t lIndex = 0; lIndex < mServers.size(); ++lIndex)
        {
            Server& lServer = mServers[lIndex];
            lServer.mName = std::string(lIndex + 1, 'S');
            KY_REQUIRE(mRegistry.Register(lServer.mName) && mRegistry.Find(lServer.mName, lServer.mEntry));
        }
    }

    void Begin()
    {
        for (Server& lServer : mServers)
        {
            lServer.mEntry->mSupportedBaudRates = 1;
            lServer.mEntry->mRequestedBaudRate = 1;
        }
        CountPorts();
        mNumber = 0;
    }

    void End()
    {
        for (Client& lClient : mClients)
        {
            Close(lClient);
        }
        for (Server& lServer : mServers)
        {
            lServer.Stop();
        }
    }

    void Do(uint8_t aCode, FuzzInput& aInput);

private:
    std::vector<Server*> GetRunning()
    {
        std::vector<Server*> lRunning;
        for (Server& lServer : mServers)
        {
            if (lServer.mRuns)
            {
                lRunning.push_back(&lServer);
            }
        }
        return lRunning;
    }

    // The server that an index means: of the last count, or of a new one when that one is gone.
    Server* GetListed(uint32_t aIndex)
    {
        if (aIndex >= mListed.size() || !mListed[aIndex]->mRuns)
        {
            mListed = GetRunning();
            if (aIndex >= mListed.size())
            {
                return nullptr;
            }
        }
        return mListed[aIndex];
    }

    void CountPorts()
    {
        CLUINT32 lCount = 0xDEAD;
        KY_REQUIRE(clGetNumSerialPorts(&lCount) == CL_ERR_NO_ERR);
        mListed = GetRunning();
        KY_REQUIRE(lCount == mListed.size());
    }

    void Identify(uint32_t aIndex, uint32_t aSize)
    {
        const std::vector<char> lBefore(aSize, '#');
        std::vector<char> lText = lBefore;
        CLUINT32 lSize = aSize;
        const CLINT32 lResult = clGetSerialPortIdentifier(aIndex, aSize > 0 ? lText.data() : nullptr, &lSize);
        const Server* const lServer = GetListed(aIndex);
        if (lServer == nullptr)
        {
            KY_REQUIRE(lResult == CL_ERR_INVALID_INDEX && lText == lBefore);
            return;
        }
        const size_t lNeeded = lServer->mName.size() + 1;
        KY_REQUIRE(lSize == lNeeded);
        KY_REQUIRE(lResult == (aSize < lNeeded ? CL_ERR_BUFFER_TOO_SMALL : CL_ERR_NO_ERR));
        KY_REQUIRE(aSize < lNeeded ? lText == lBefore : std::string(lText.data()) == lServer->mName);
    }

    void Open(Client& aClient, uint32_t aIndex)
    {
        Close(aClient);
        const CLINT32 lResult = clSerialInit(aIndex, &aClient.mReference);
        Server* const lServer = GetListed(aIndex);
        if (lServer == nullptr || lServer->mHasClient)
        {
            KY_REQUIRE(lResult == (lServer != nullptr ? CL_ERR_PORT_IN_USE : CL_ERR_INVALID_INDEX));
            KY_REQUIRE(aClient.mReference == nullptr);
            return;
        }
        KY_REQUIRE(lResult == CL_ERR_NO_ERR && aClient.mReference != nullptr);
        aClient.mServer = lServer;
        lServer->mHasClient = true;
        const uint32_t lRates = lServer->mEntry->mSupportedBaudRates & 0xFFU;
        const uint32_t lLowest = lRates & (~lRates + 1);
        KY_REQUIRE(lServer->mEntry->mRequestedBaudRate == (lLowest != 0 ? lLowest : 1));
    }

    static void Close(Client& aClient)
    {
        clSerialClose(aClient.mReference);
        if (aClient.mServer != nullptr)
        {
            aClient.mServer->mHasClient = false;
            aClient.mServer->Forget();
        }
        CLUINT32 lCount = 1;
        KY_REQUIRE(clGetNumBytesAvail(aClient.mReference, &lCount) == CL_ERR_INVALID_REFERENCE &&
                   lCount == 0);
        aClient = Client();
    }

    void Write(Client& aClient, FuzzInput& aInput);
    static void Read(Client& aClient, uint32_t aSize, bool aWhole);
    static void Rates(Client& aClient, FuzzInput& aInput);
    void Serve(Server& aServer, uint8_t aCode, FuzzInput& aInput);

    std::vector<char> MakeBytes(size_t aCount)
    {
        std::vector<char> lBytes(aCount);
        for (char& lByte : lBytes)
        {
            lByte = static_cast<char>(mNumber++);
        }
        return lBytes;
    }

    EarlySession mSession;
    SharedRegistry mRegistry;
    std::array<Server, 2> mServers;
    std::array<Client, 2> mClients;
    std::vector<Server*> mListed;
    uint8_t mNumber = 0;
};

void World::Write(Client& aClient, FuzzInput& aInput)
{
    std::vector<char> lBytes = MakeBytes(size_t{aInput.TakeByte()} * 8);
    CLUINT32 lCount = static_cast<CLUINT32>(lBytes.size());
    const CLINT32 lResult = clSerialWrite(aClient.mReference, lBytes.data(), &lCount, 0);
    if (aClient.mServer == nullptr)
    {
        KY_REQUIRE(lResult == CL_ERR_INVALID_REFERENCE && lCount == 0);
        return;
    }
    Queue& lDown = aClient.mServer->mDownBytes;
    const size_t lStored = aClient.mServer->mRuns ? std::min(lBytes.size(), cRoom - lDown.size()) : 0;
    KY_REQUIRE(lCount == lStored);
    KY_REQUIRE(lResult == (lStored == lBytes.size() ? CL_ERR_NO_ERR : CL_ERR_TIMEOUT));
    lDown.insert(lDown.end(), lBytes.begin(), lBytes.begin() + static_cast<ptrdiff_t>(lStored));
}

void World::Read(Client& aClient, uint32_t aSize, bool aWhole)
{
    const std::vector<char> lBefore(aSize, '#');
    std::vector<char> lBytes = lBefore;
    CLUINT32 lCount = aSize;
    const CLINT32 lResult = aWhole ? clSerialRead(aClient.mReference, lBytes.data(), &lCount, 0)
                                   : clSerialReadEx(aClient.mReference, lBytes.data(), &lCount, 0);
    if (aClient.mServer == nullptr)
    {
        KY_REQUIRE(lResult == CL_ERR_INVALID_REFERENCE && lCount == 0 && lBytes == lBefore);
        return;
    }
    Queue& lPending = aClient.mPending;
    if (lPending.size() < aSize)
    {
        Queue& lUp = aClient.mServer->mUpBytes;
        lPending.insert(lPending.end(), lUp.begin(), lUp.end());
        lUp.clear();
    }
    const bool lEnough = lPending.size() >= aSize;
    const size_t lExpected = lEnough ? aSize : aWhole ? 0 : lPending.size();
    KY_REQUIRE(lResult == (lEnough ? CL_ERR_NO_ERR : CL_ERR_TIMEOUT) && lCount == lExpected);
    KY_REQUIRE(std::equal(lBytes.begin(), lBytes.begin() + lCount, lPending.begin()));
    KY_REQUIRE(std::equal(lBytes.begin() + lCount, lBytes.end(), lBefore.begin() + lCount));
    lPending.erase(lPending.begin(), lPending.begin() + lCount);
}

void World::Rates(Client& aClient, FuzzInput& aInput)
{
    CLUINT32 lRates = 0xDEAD;
    const CLINT32 lAsked = clGetSupportedBaudRates(aClient.mReference, &lRates);
    const CLUINT32 lWanted = aInput.TakeFlag() ? 1U << aInput.TakeByte() % 32U : aInput.TakeWord();
    const CLINT32 lSet = clSetBaudRate(aClient.mReference, lWanted);
    if (aClient.mServer == nullptr)
    {
        KY_REQUIRE(lAsked == CL_ERR_INVALID_REFERENCE && lRates == 0 && lSet == CL_ERR_INVALID_REFERENCE);
        return;
    }
    const SharedRegistryEntry& lEntry = *aClient.mServer->mEntry;
    KY_REQUIRE(lAsked == CL_ERR_NO_ERR && lRates == (lEntry.mSupportedBaudRates & 0xFFU));
    uint32_t lBit = 0x80;
    while (lWanted == CL_BAUDRATE_AUTOMAX ? lBit != 0 && (lRates & lBit) == 0 : lBit != 0 && lBit != lWanted)
    {
        lBit >>= 1U;
    }
    const bool lOffered = (lRates & lBit) != 0;
    KY_REQUIRE(lSet == (lOffered ? CL_ERR_NO_ERR : CL_ERR_BAUD_RATE_NOT_SUPPORTED));
    KY_REQUIRE(!lOffered || lEntry.mRequestedBaudRate == lBit);
}

void World::Serve(Server& aServer, uint8_t aCode, FuzzInput& aInput)
{
    if (!aServer.mRuns)
    {
        aServer.Start(mRegistry);
        return;
    }
    uint32_t lCount = 0;
    switch (aCode)
    {
    case 0:
        aServer.Stop();
        break;
    case 1:
    {
        const std::vector<char> lBytes = MakeBytes(size_t{aInput.TakeByte()} * 6);
        static_cast<void>(aServer.mUp->Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lCount, 0));
        KY_REQUIRE(lCount == std::min(lBytes.size(), cRoom - aServer.mUpBytes.size()));
        aServer.mUpBytes.insert(aServer.mUpBytes.end(), lBytes.begin(), lBytes.begin() + lCount);
        break;
    }
    case 2:
    {
        std::vector<char> lBytes(1U + aInput.TakeByte() * 5U);
        static_cast<void>(
            aServer.mDown->Read(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lCount, 0));
        KY_REQUIRE(lCount == std::min(lBytes.size(), aServer.mDownBytes.size()));
        KY_REQUIRE(std::equal(lBytes.begin(), lBytes.begin() + lCount, aServer.mDownBytes.begin()));
        aServer.mDownBytes.erase(aServer.mDownBytes.begin(), aServer.mDownBytes.begin() + lCount);
        break;
    }
    default:
        aServer.mEntry->mSupportedBaudRates = aInput.TakeWord();
        break;
    }
}

void World::Do(uint8_t aCode, FuzzInput& aInput)
{
    Client& lClient = mClients[aCode >> 4U & 1U];
    Server& lServer = mServers[aCode >> 4U & 1U];
    switch (aCode & 0xFU)
    {
    case 0:
        CountPorts();
        break;
    case 1:
        Identify(aCode >> 6U, aInput.TakeByte() % 8U);
        break;
    case 2:
    case 3:
        Open(lClient, aCode >> 6U);
        break;
    case 4:
        Close(lClient);
        break;
    case 5:
        Read(lClient, 1U + aInput.TakeByte() * 4U, (aCode & 0x80U) != 0);
        break;
    case 6:
    case 7:
        Write(lClient, aInput);
        break;
    case 8:
        Rates(lClient, aInput);
        break;
    case 9:
        KY_REQUIRE(clFlushPort(lClient.mReference) ==
                   (lClient.mServer != nullptr ? CL_ERR_NO_ERR : CL_ERR_INVALID_REFERENCE));
        lClient.mPending.clear();
        if (lClient.mServer != nullptr)
        {
            lClient.mServer->mUpBytes.clear();
        }
        break;
    case 10:
    {
        CLUINT32 lCount = 0xDEAD;
        static_cast<void>(clGetNumBytesAvail(lClient.mReference, &lCount));
        KY_REQUIRE(lCount == lClient.mPending.size() +
                                 (lClient.mServer != nullptr ? lClient.mServer->mUpBytes.size() : 0));
        break;
    }
    case 11:
    {
        // A reference that was made up: it is looked up and never followed.
        CLUINT32 lCount = 1;
        char lByte = '#';
        const auto lReference =
            reinterpret_cast<hSerRef>( // NOLINT(performance-no-int-to-ptr): never followed
                uintptr_t{aInput.TakeWord()} | 0x100000000U);
        KY_REQUIRE(clSerialReadEx(lReference, &lByte, &lCount, 0) == CL_ERR_INVALID_REFERENCE);
        clSerialClose(lReference);
        break;
    }
    default:
        Serve(lServer, aCode >> 6U, aInput);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static World sWorld;
    JxUtilsLib::Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(JxUtilsLib::PriorityFatal + 1));
    sWorld.Begin();
    FuzzInput lInput(aData, aSize);
    while (lInput.HasStep())
    {
        const uint8_t lCode = lInput.TakeByte();
        sWorld.Do(lCode, lInput);
    }
    sWorld.End();
    return 0;
}
