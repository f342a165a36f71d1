#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedregistry.h"

#include <optional>
#include <string_view>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

/// What the dying process does with the registry.
enum class Deed
{
    Open,
    Register,
    Find,
    Sweep,
    AcquireServer,
    ReleaseServer,
    AcquireClient,
    ReleaseClient
};

/// "Alive" is served by the survivor, "Other" by the dying process.
class RegistryScenario : public KillScenario
{
public:
    explicit RegistryScenario(Deed aDeed) : mDeed(aDeed)
    {
        mRegistry.AcquireServer("Alive", mServer, mClient);
        mRegistry.SetServerActive("Alive", true);
        if (aDeed == Deed::Sweep)
        {
            mRegistry.Register("Gone");
            mRegistry.SetServerActive("Gone", true);
        }
    }

    void Before() override
    {
        if (mDeed == Deed::ReleaseServer)
        {
            mRegistry.AcquireServer("Other", mOtherServer, mOtherClient);
        }
        if (mDeed == Deed::ReleaseClient)
        {
            mRegistry.AcquireClient("Alive", mOtherClient);
        }
    }

    void Steps() override
    {
        SharedRegistryEntry* lEntry = nullptr;
        switch (mDeed)
        {
        case Deed::Open:
            mSecond.emplace(true);
            break;
        case Deed::Register:
            mRegistry.Register("Other");
            break;
        case Deed::Find:
            mRegistry.Find("Alive", lEntry);
            break;
        case Deed::Sweep:
            mRegistry.Sweep();
            break;
        case Deed::AcquireServer:
            mRegistry.AcquireServer("Other", mOtherServer, mOtherClient);
            break;
        case Deed::ReleaseServer:
            SharedRegistry::ReleaseServer(mOtherServer, mOtherClient);
            break;
        case Deed::AcquireClient:
            mRegistry.AcquireClient("Alive", mOtherClient);
            break;
        case Deed::ReleaseClient:
            SharedRegistry::ReleaseClient(mOtherClient);
            break;
        }
    }

    std::string Check() override
    {
        const std::vector<SharedRegistryEntry> lEntries = mRegistry.GetEntries();
        NoteIfLate(GetDeath(), cBeyondTimeout, "the lock came");
        if (lEntries.size() != 32)
        {
            return "the lock did not come";
        }
        for (const SharedRegistryEntry& lEntry : lEntries)
        {
            const std::string_view lName = lEntry.mName;
            const bool lOurs = lName == "Alive" || lName == "Other" || lName == "Gone";
            if (lEntry.mServerId == 0 ? lName != "Uninitialized" || lEntry.mRegistered != 0
                                      : !lOurs || lEntry.mRegistered != 1 ||
                                            lEntry.mServerSessionId != PrivateSession::cFirstNumber)
            {
                return "an entry is half made";
            }
            if (lEntry.mServerActive != (lName == "Alive" ? 1U : 0U))
            {
                return "an entry is wrongly active or not";
            }
        }
        return CheckPresence();
    }

private:
    /// Where the dead was, the next can be.
    std::string CheckPresence()
    {
        NamedSemaphore lServer;
        NamedSemaphore lClient;
        if (mRegistry.AcquireServer("Alive", lServer, lClient))
        {
            return "a server that lives was replaced";
        }
        lClient.Close();
        if (!mRegistry.AcquireServer("Other", lServer, lClient))
        {
            return "a server that is dead cannot be replaced";
        }
        NoteIfLate(GetDeath(), cProgress, "the dead was replaced");
        SharedRegistry::ReleaseServer(lServer, lClient);
        // A dead client's place is kept as long as its server lives.
        SharedRegistry::ReleaseServer(mServer, mClient);
        if (!mRegistry.AcquireServer("Alive", mServer, mClient) || !mRegistry.AcquireClient("Alive", lClient))
        {
            return "a dead client's place is lost";
        }
        return {};
    }

    const Deed mDeed;
    PrivateSession mSession;
    SharedRegistry mRegistry{true};
    std::optional<SharedRegistry> mSecond;
    NamedSemaphore mServer;
    NamedSemaphore mClient;
    NamedSemaphore mOtherServer;
    NamedSemaphore mOtherClient;
};

/// The first process of all dies while it makes the registry.
class RegistryMakerDies : public KillScenario
{
public:
    void Steps() override { const SharedRegistry lRegistry(true); }

    std::string Check() override
    {
        SharedRegistry lRegistry(true);
        const std::vector<SharedRegistryEntry> lEntries = lRegistry.GetEntries();
        for (const SharedRegistryEntry& lEntry : lEntries)
        {
            if (std::string_view(lEntry.mName) != "Uninitialized" || lEntry.mRequestedBaudRate != 1)
            {
                return "an entry is not initialised";
            }
        }
        const bool lRegistered = lRegistry.Register("A");
        NoteIfLate(GetDeath(), cProgress, "a name was registered");
        return lEntries.size() == 32 && lRegistered ? "" : "the registry refuses";
    }

private:
    PrivateSession mSession;
};

KillCase MakeCase(const char* aName, Deed aDeed)
{
    return {aName,
            [aDeed]() -> std::unique_ptr<KillScenario> { return std::make_unique<RegistryScenario>(aDeed); }};
}

} // namespace

std::vector<KillCase> GetRegistryKillCases()
{
    return {MakeCase("OpenRegistry", Deed::Open),
            MakeCase("Register", Deed::Register),
            MakeCase("Find", Deed::Find),
            MakeCase("Sweep", Deed::Sweep),
            MakeCase("AcquireServer", Deed::AcquireServer),
            MakeCase("ReleaseServer", Deed::ReleaseServer),
            MakeCase("AcquireClient", Deed::AcquireClient),
            MakeCase("ReleaseClient", Deed::ReleaseClient),
            {"CreateRegistry",
             []() -> std::unique_ptr<KillScenario> { return std::make_unique<RegistryMakerDies>(); }}};
}
