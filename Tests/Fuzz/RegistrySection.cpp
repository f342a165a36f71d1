// Whatever other processes write into the registry's section: every operation finds, changes and copies the
// entries that a plain reading of the 32 entries says, and nothing else.

#include "Fuzz/FuzzInput.h"
#include "JxUtilsLib/Logger.h"
#include "Tests/Support/PrivateSession.h"
#include "clserzmo/sharedregistry.h"

#include <cstring>
#include <string>
#include <string_view>

using namespace KyTest;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

using Entries = std::vector<SharedRegistryEntry>;

constexpr uint32_t cCount = SharedRegistry::cEntryCount;

bool IsSame(const Entries& aFirst, const SharedRegistryEntry* aSecond)
{
    return std::memcmp(aFirst.data(), aSecond, cCount * sizeof(SharedRegistryEntry)) == 0;
}

// What the section has to be, by the plain reading.
class RegistryModel
{
public:
    RegistryModel() : mEntries(cCount) {}

    SharedRegistryEntry* Find(const std::string& aName)
    {
        for (SharedRegistryEntry& lEntry : mEntries)
        {
            if (std::string_view(lEntry.mName, ::strnlen(lEntry.mName, sizeof lEntry.mName)) == aName &&
                aName.size() < sizeof lEntry.mName)
            {
                return &lEntry;
            }
        }
        return nullptr;
    }

    // Nobody serves: in this session no server has a semaphore open but those that the run holds.
    void Sweep(uint32_t aHeldNumber, uint32_t aHeldSession)
    {
        for (SharedRegistryEntry& lEntry : mEntries)
        {
            const bool lHeld = lEntry.mServerId == aHeldNumber && lEntry.mServerSessionId == aHeldSession;
            if (lEntry.mServerId != 0 && !lHeld)
            {
                lEntry.mServerActive = 0;
            }
        }
    }

    bool Register(const std::string& aName)
    {
        if (Find(aName) != nullptr)
        {
            return true;
        }
        uint32_t lLargest = 0;
        SharedRegistryEntry* lFree = nullptr;
        for (SharedRegistryEntry& lEntry : mEntries)
        {
            lLargest = std::max(lLargest, lEntry.mServerId);
            lFree = lFree == nullptr && lEntry.mServerId == 0 ? &lEntry : lFree;
        }
        if (lFree == nullptr || lLargest == UINT32_MAX)
        {
            return false;
        }
        lFree->mRegistered = 1;
        lFree->mServerId = lLargest + 1;
        lFree->mServerSessionId = PrivateSession::cFirstNumber;
        const std::string lName = aName.substr(0, sizeof lFree->mName - 1);
        std::fill(std::begin(lFree->mName), std::end(lFree->mName), '\0');
        std::copy(lName.begin(), lName.end(), lFree->mName);
        return true;
    }

    Entries mEntries;
};

std::string TakeName(FuzzInput& aInput)
{
    const uint8_t lKind = aInput.TakeByte();
    if (lKind < 8)
    {
        return std::string(250 + lKind, 'x'); // around the longest
    }
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(lKind % 8U);
    const std::string lName(lBytes.begin(), lBytes.end());
    return lName.substr(0, lName.find('\0')); // names are texts
}

struct Run
{
    SharedRegistry& mRegistry;
    SharedRegistryEntry* mSection;
    RegistryModel mModel{};
    NamedSemaphore mServer{};
    NamedSemaphore mClient{};
    uint32_t mHeldNumber = 0;
    uint32_t mHeldSession = 0;

    // Another process writes somewhere.
    void Scribble(FuzzInput& aInput)
    {
        const uint32_t lEntry = aInput.TakeByte() % cCount;
        const uint8_t lField = aInput.TakeByte();
        const uint32_t lOffset = (lField & 0x80U) != 0 ? 88U + lField % 128U * 2U : lField % 24U * 4U;
        const std::vector<uint8_t> lBytes = aInput.TakeBytes(1U + aInput.TakeByte() % 8U);
        const size_t lPlace = lEntry * sizeof(SharedRegistryEntry) + lOffset;
        const size_t lCount = std::min(lBytes.size(), cCount * sizeof(SharedRegistryEntry) - lPlace);
        std::copy_n(lBytes.begin(), lCount, reinterpret_cast<uint8_t*>(mSection) + lPlace);
        std::copy_n(lBytes.begin(), lCount, reinterpret_cast<uint8_t*>(mModel.mEntries.data()) + lPlace);
    }

    void Sweep() { mModel.Sweep(mHeldNumber, mHeldSession); }

    void Serve(const std::string& aName)
    {
        Stop();
        Sweep();
        const bool lFound = mModel.Register(aName) && mModel.Find(aName) != nullptr;
        if (mRegistry.AcquireServer(aName, mServer, mClient))
        {
            const SharedRegistryEntry* const lEntry = mModel.Find(aName);
            KY_REQUIRE(lFound && lEntry != nullptr && mServer.IsValid() && mClient.IsValid());
            // An entry of another session has its server there, where the system lets this process in.
            mHeldNumber = lEntry->mServerId;
            mHeldSession = lEntry->mServerSessionId;
            NamedSemaphore lSecond;
            KY_REQUIRE(mRegistry.AcquireClient(aName, lSecond)); // one client
            NamedSemaphore lThird;
            KY_REQUIRE(!mRegistry.AcquireClient(aName, lThird) && !lThird.IsValid());
            SharedRegistry::ReleaseClient(lSecond);
            return;
        }
        // The name that was entered may not be found: it was cut. Or its session is not this one.
        const SharedRegistryEntry* const lEntry = mModel.Find(aName);
        KY_REQUIRE(!lFound || lEntry->mServerSessionId != PrivateSession::cFirstNumber);
        mServer.Close();
        mClient.Close();
    }

    void Stop()
    {
        if (mServer.IsValid())
        {
            SharedRegistry::ReleaseServer(mServer, mClient);
        }
        mHeldNumber = 0;
        mHeldSession = 0;
    }

    void Do(uint8_t aCode, FuzzInput& aInput)
    {
        const std::string lName = TakeName(aInput);
        SharedRegistryEntry* lEntry = nullptr;
        SharedRegistryEntry* const lExpected = mModel.Find(lName);
        switch (aCode % 6U)
        {
        case 0:
            Sweep();
            KY_REQUIRE(mRegistry.Register(lName) == mModel.Register(lName));
            break;
        case 1:
            KY_REQUIRE(mRegistry.Find(lName, lEntry) == (lExpected != nullptr));
            KY_REQUIRE(lEntry ==
                       (lExpected != nullptr ? mSection + (lExpected - mModel.mEntries.data()) : nullptr));
            break;
        case 2:
            KY_REQUIRE(mRegistry.SetServerActive(lName, (aCode & 8U) != 0) == (lExpected != nullptr));
            if (lExpected != nullptr)
            {
                lExpected->mServerActive = (aCode & 8U) != 0 ? 1 : 0;
            }
            break;
        case 3:
            Sweep();
            KY_REQUIRE(IsSame(mModel.mEntries, mRegistry.GetEntries().data()));
            break;
        case 4:
            Serve(lName);
            break;
        default:
            Stop();
            break;
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static const PrivateSession cSession;
    static SharedRegistry sRegistry(true);
    static SharedRegistryEntry* sSection = nullptr;
    if (sSection == nullptr)
    {
        JxUtilsLib::Logger::SetPriority(
            static_cast<JxUtilsLib::PriorityLevel>(JxUtilsLib::PriorityFatal + 1));
        KY_REQUIRE(sRegistry.Register("first") && sRegistry.Find("first", sSection));
    }
    std::memset(static_cast<void*>(sSection), 0, cCount * sizeof(SharedRegistryEntry));
    Run lRun{sRegistry, sSection};
    FuzzInput lInput(aData, aSize);
    while (lInput.HasStep())
    {
        const uint8_t lCode = lInput.TakeByte();
        if ((lCode & 0x80U) != 0)
        {
            lRun.Scribble(lInput);
        }
        else
        {
            lRun.Do(lCode, lInput);
        }
        KY_REQUIRE(IsSame(lRun.mModel.mEntries, sSection));
    }
    lRun.Stop();
    return 0;
}
