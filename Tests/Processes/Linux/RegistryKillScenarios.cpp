#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedregistry.h"

#include <string_view>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

class RegistryScenario;
using Deed = void (*)(RegistryScenario& aScene);

/// "Alive" is served by the survivor, "Other" by the dying process, "Gone" by nobody any more.
class RegistryScenario : public KillScenario
{
public:
    /// \param aBefore, aSteps  What the dying process does: first in peace, and then when it may be killed.
    RegistryScenario(Deed aBefore, Deed aSteps) : mBefore(aBefore), mSteps(aSteps)
    {
        mRegistry.AcquireServer("Alive", mServer, mClient);
        mRegistry.SetServerActive("Alive", true);
    }

    void Before() override { mBefore(*this); }
    void Steps() override { mSteps(*this); }

    void Check() override
    {
        const std::vector<SharedRegistryEntry> lEntries = mRegistry.GetEntries();
        NoteIfLate(GetDeath(), cBeyondTimeout, "the lock came");
        Require(lEntries.size() == 32, "the lock did not come");
        for (const SharedRegistryEntry& lEntry : lEntries)
        {
            const std::string_view lName = lEntry.mName;
            const bool lOurs = lName == "Alive" || lName == "Other" || lName == "Gone";
            const bool lIsWhole =
                lEntry.mRegistered == 1 && lEntry.mServerSessionId == PrivateSession::cFirstNumber && lOurs;
            const bool lIsFree = lEntry.mRegistered == 0 && lName == "Uninitialized";
            Require(lEntry.mServerId == 0 ? lIsFree : lIsWhole, "an entry is half made");
            Require(lEntry.mServerActive == (lName == "Alive" ? 1U : 0U),
                    "an entry is wrongly active or not");
        }
        CheckPresence();
    }

    PrivateSession mSession;
    SharedRegistry mRegistry{true};
    std::optional<SharedRegistry> mSecond;
    SharedRegistryEntry* mFound = nullptr;
    NamedSemaphore mOtherServer;
    NamedSemaphore mOtherClient;

private:
    /// Where the dead was, the next can be.
    void CheckPresence()
    {
        NamedSemaphore lServer;
        NamedSemaphore lClient;
        Require(!mRegistry.AcquireServer("Alive", lServer, lClient), "a server that lives was replaced");
        lClient.Close();
        if (!Require(mRegistry.AcquireServer("Other", lServer, lClient),
                     "a server that is dead cannot be replaced"))
        {
            return;
        }
        NoteIfLate(GetDeath(), cProgress, "the dead was replaced");
        SharedRegistry::ReleaseServer(lServer, lClient);
        // A dead client's place is kept as long as its server lives.
        SharedRegistry::ReleaseServer(mServer, mClient);
        Require(mRegistry.AcquireServer("Alive", mServer, mClient) &&
                    mRegistry.AcquireClient("Alive", lClient),
                "a dead client's place is lost");
    }

    const Deed mBefore;
    const Deed mSteps;
    NamedSemaphore mServer;
    NamedSemaphore mClient;
};

/// The first process of all dies while it makes the registry.
class RegistryMakerDies : public KillScenario
{
public:
    void Steps() override { const SharedRegistry lRegistry(true); }

    void Check() override
    {
        SharedRegistry lRegistry(true);
        const std::vector<SharedRegistryEntry> lEntries = lRegistry.GetEntries();
        for (const SharedRegistryEntry& lEntry : lEntries)
        {
            Require(std::string_view(lEntry.mName) == "Uninitialized" && lEntry.mRequestedBaudRate == 1,
                    "an entry is not initialised");
        }
        Require(lRegistry.Register("A") && lEntries.size() == 32, "the registry refuses");
        NoteIfLate(GetDeath(), cProgress, "a name was registered");
    }

private:
    PrivateSession mSession;
};

void AcquireServer(RegistryScenario& aScene)
{
    aScene.mRegistry.AcquireServer("Other", aScene.mOtherServer, aScene.mOtherClient);
}

void AcquireClient(RegistryScenario& aScene)
{
    aScene.mRegistry.AcquireClient("Alive", aScene.mOtherClient);
}

void RegisterGone(RegistryScenario& aScene)
{
    aScene.mRegistry.Register("Gone");
    aScene.mRegistry.SetServerActive("Gone", true);
}

} // namespace

std::vector<KillCase> GetRegistryKillCases()
{
    const auto lMake = [](const char* aName, Deed aBefore, Deed aSteps)
    { return MakeKillCase<RegistryScenario>(aName, aBefore, aSteps); };
    const Deed lNothing = [](auto&) {};
    return {lMake("OpenRegistry", lNothing, [](auto& aScene) { aScene.mSecond.emplace(true); }),
            lMake("Register", lNothing, [](auto& aScene) { aScene.mRegistry.Register("Other"); }),
            lMake("Find", lNothing, [](auto& aScene) { aScene.mRegistry.Find("Alive", aScene.mFound); }),
            lMake("Sweep", &RegisterGone, [](auto& aScene) { aScene.mRegistry.Sweep(); }),
            lMake("AcquireServer", lNothing, &AcquireServer),
            lMake("ReleaseServer", &AcquireServer,
                  [](auto& aScene)
                  { SharedRegistry::ReleaseServer(aScene.mOtherServer, aScene.mOtherClient); }),
            lMake("AcquireClient", lNothing, &AcquireClient),
            lMake("ReleaseClient", &AcquireClient,
                  [](auto& aScene) { SharedRegistry::ReleaseClient(aScene.mOtherClient); }),
            MakeKillCase<RegistryMakerDies>("CreateRegistry")};
}
