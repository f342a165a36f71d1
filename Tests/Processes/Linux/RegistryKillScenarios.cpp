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

    PrivateSession mSession;
    SharedRegistry mRegistry{true};
    std::optional<SharedRegistry> mSecond;
    SharedRegistryEntry* mFound = nullptr;
    NamedSemaphore mOtherServer;
    NamedSemaphore mOtherClient;

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

KillCase MakeCase(
    const char* aName, Deed aSteps, Deed aBefore = [](auto&) {})
{
    return {aName, [=]() -> std::unique_ptr<KillScenario> {
                return std::make_unique<RegistryScenario>(aBefore, aSteps);
            }};
}

void AcquireServer(RegistryScenario& aScene)
{
    aScene.mRegistry.AcquireServer("Other", aScene.mOtherServer, aScene.mOtherClient);
}

void AcquireClient(RegistryScenario& aScene)
{
    aScene.mRegistry.AcquireClient("Alive", aScene.mOtherClient);
}

} // namespace

std::vector<KillCase> GetRegistryKillCases()
{
    return {MakeCase("OpenRegistry", [](auto& aScene) { aScene.mSecond.emplace(true); }),
            MakeCase("Register", [](auto& aScene) { aScene.mRegistry.Register("Other"); }),
            MakeCase("Find", [](auto& aScene) { aScene.mRegistry.Find("Alive", aScene.mFound); }),
            MakeCase(
                "Sweep", [](auto& aScene) { aScene.mRegistry.Sweep(); },
                [](auto& aScene)
                {
                    aScene.mRegistry.Register("Gone");
                    aScene.mRegistry.SetServerActive("Gone", true);
                }),
            MakeCase("AcquireServer", &AcquireServer),
            MakeCase(
                "ReleaseServer",
                [](auto& aScene) { SharedRegistry::ReleaseServer(aScene.mOtherServer, aScene.mOtherClient); },
                &AcquireServer),
            MakeCase("AcquireClient", &AcquireClient),
            MakeCase(
                "ReleaseClient", [](auto& aScene) { SharedRegistry::ReleaseClient(aScene.mOtherClient); },
                &AcquireClient),
            {"CreateRegistry",
             []() -> std::unique_ptr<KillScenario> { return std::make_unique<RegistryMakerDies>(); }}};
}
