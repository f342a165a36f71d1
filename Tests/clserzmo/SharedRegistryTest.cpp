#include "KyPlatform/NamedMutex.h"
#include "Tests/Support/AssertRecorder.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <cstring>
#include <thread>
#include <vector>

using KyPlatform::NamedMutex;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

class SharedRegistryTest : public RegistryFixture
{
};

TEST_F(SharedRegistryTest, FreshRegistryListsThirtyTwoFreeEntries)
{
    ASSERT_TRUE(mRegistry->IsValid());
    const std::vector<SharedRegistryEntry> lEntries = mRegistry->GetEntries();
    ASSERT_EQ(lEntries.size(), 32U);
    for (const SharedRegistryEntry& lEntry : lEntries)
    {
        EXPECT_EQ(GetName(lEntry), "Uninitialized");
        EXPECT_EQ(lEntry.mServerId, 0U);
    }
}

TEST_F(SharedRegistryTest, FreshSectionIsLaidOutAsOtherProcessesExpect)
{
    std::vector<uint8_t> lExpected(11008, 0);
    for (size_t lOffset = 0; lOffset < lExpected.size(); lOffset += 344)
    {
        lExpected[lOffset + 8] = 1;
        lExpected[lOffset + 12] = 1;
        std::memcpy(&lExpected[lOffset + 88], "Uninitialized", 13);
    }
    const uint8_t* const lBytes = MapSection();
    ASSERT_TRUE(mMemory.HasSizeOf(11008));
    EXPECT_EQ(std::memcmp(lBytes, lExpected.data(), lExpected.size()), 0);
}

TEST_F(SharedRegistryTest, RegisteredEntryIsLaidOutAsOtherProcessesExpect)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_TRUE(mRegistry->SetServerActive("A", true));
    SharedRegistryEntry* lEntry = nullptr;
    ASSERT_TRUE(mRegistry->Find("A", lEntry));
    lEntry->mSupportedBaudRates = 0x13;
    std::vector<uint8_t> lExpected(344, 0);
    lExpected[0] = 1;
    lExpected[4] = 1;
    lExpected[8] = 0x13;
    lExpected[12] = 1;
    lExpected[16] = 1;
    lExpected[84] = PrivateSession::cFirstNumber;
    lExpected[88] = 'A';
    EXPECT_EQ(std::memcmp(MapSection(), lExpected.data(), lExpected.size()), 0);
}

TEST_F(SharedRegistryTest, ServersAreNumberedAndEnteredOnce)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_TRUE(mRegistry->Register("B"));
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_TRUE(mRegistry->Register("a"));
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
    EXPECT_EQ(GetEntry("B").mServerId, 2U);
    EXPECT_EQ(GetEntry("a").mServerId, 3U);
    EXPECT_EQ(mRegistry->GetEntries()[3].mServerId, 0U);
}

TEST_F(SharedRegistryTest, NextNumberIsOneAboveTheLargest)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    SharedRegistryEntry* lEntry = nullptr;
    ASSERT_TRUE(mRegistry->Find("A", lEntry));
    lEntry->mServerId = 700;
    EXPECT_TRUE(mRegistry->Register("B"));
    EXPECT_EQ(GetEntry("B").mServerId, 701U);
    lEntry->mServerId = 0xFFFFFFFFU; // there is no larger one
    EXPECT_FALSE(mRegistry->Register("C"));
}

TEST_F(SharedRegistryTest, ThirtyThirdNameIsRefused)
{
    for (int lIndex = 0; lIndex < 32; ++lIndex)
    {
        EXPECT_TRUE(mRegistry->Register("Server" + std::to_string(lIndex)));
    }
    EXPECT_FALSE(mRegistry->Register("One too many"));
    EXPECT_TRUE(mRegistry->Register("Server31"));
}

TEST_F(SharedRegistryTest, LongNameIsCutToItsFirst255Characters)
{
    EXPECT_TRUE(mRegistry->Register(std::string(300, 'n')));
    EXPECT_EQ(GetName(mRegistry->GetEntries()[0]), std::string(255, 'n'));
    SharedRegistryEntry* lEntry = nullptr;
    EXPECT_TRUE(mRegistry->Find(std::string(255, 'n'), lEntry));
    EXPECT_FALSE(mRegistry->Find(std::string(256, 'n'), lEntry));
    EXPECT_EQ(lEntry, nullptr);
}

TEST_F(SharedRegistryTest, FindWantsTheExactName)
{
    EXPECT_TRUE(mRegistry->Register("Camera 1"));
    SharedRegistryEntry* lEntry = nullptr;
    EXPECT_FALSE(mRegistry->Find("Camera", lEntry));
    EXPECT_FALSE(mRegistry->Find("camera 1", lEntry));
    EXPECT_FALSE(mRegistry->Find("Camera 11", lEntry));
    EXPECT_TRUE(mRegistry->Find("Camera 1", lEntry));
}

TEST_F(SharedRegistryTest, FoundEntryIsTheOneInTheSection)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    SharedRegistryEntry* lEntry = nullptr;
    ASSERT_TRUE(mRegistry->Find("A", lEntry));
    MapSection()[12] = 8; // a client asks for another speed
    EXPECT_EQ(lEntry->mRequestedBaudRate, 8U);
}

TEST_F(SharedRegistryTest, SetServerActiveWantsAKnownName)
{
    EXPECT_FALSE(mRegistry->SetServerActive("A", true));
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_TRUE(mRegistry->SetServerActive("A", true));
    EXPECT_EQ(GetEntry("A").mServerActive, 1U);
    EXPECT_TRUE(mRegistry->SetServerActive("A", false));
    EXPECT_EQ(GetEntry("A").mServerActive, 0U);
}

TEST_F(SharedRegistryTest, SweepMarksServersThatHaveGone)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(mRegistry->AcquireServer("Alive", lServer, lClient));
    EXPECT_TRUE(mRegistry->Register("Gone"));
    EXPECT_TRUE(mRegistry->SetServerActive("Alive", true));
    EXPECT_TRUE(mRegistry->SetServerActive("Gone", true));
    mRegistry->Sweep();
    EXPECT_EQ(GetEntry("Alive").mServerActive, 1U);
    EXPECT_EQ(GetEntry("Gone").mServerActive, 0U);
    SharedRegistry::ReleaseServer(lServer, lClient);
    EXPECT_EQ(mRegistry->GetEntries()[0].mServerActive, 0U); // the list is swept before
    EXPECT_TRUE(mRegistry->SetServerActive("Alive", true));
    EXPECT_TRUE(mRegistry->Register("Next")); // and so is the table before a new entry
    EXPECT_EQ(GetEntry("Alive").mServerActive, 0U);
    EXPECT_EQ(GetEntry("Alive").mServerId, 1U); // an entry is never freed
    EXPECT_TRUE(mRegistry->SetServerActive("Alive", true));
    SharedRegistry lOther(false); // and so it is when a registry is opened
    EXPECT_EQ(GetEntry("Alive").mServerActive, 0U);
}

TEST_F(SharedRegistryTest, OneServerOfANameAtATime)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    NamedSemaphore lSecondServer;
    NamedSemaphore lSecondClient;
    ASSERT_TRUE(mRegistry->AcquireServer("A", lServer, lClient));
    EXPECT_FALSE(mRegistry->AcquireServer("A", lSecondServer, lSecondClient));
    EXPECT_FALSE(lSecondServer.IsValid());
    EXPECT_TRUE(lSecondClient.IsValid()); // not taken, only held
    lSecondClient.Close();
    EXPECT_TRUE(mRegistry->AcquireServer("B", lSecondServer, lSecondClient));
    SharedRegistry::ReleaseServer(lServer, lClient);
    EXPECT_FALSE(lServer.IsValid());
    EXPECT_FALSE(lClient.IsValid());
    EXPECT_TRUE(mRegistry->AcquireServer("A", lServer, lClient));
}

TEST_F(SharedRegistryTest, SemaphoresAreNamedByTheNumber)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(mRegistry->AcquireServer("A", lServer, lClient));
    NamedSemaphore lProbe;
    ASSERT_TRUE(lProbe.Open("Local\\KySerialBridgeServerSemaphore1"));
    EXPECT_FALSE(lProbe.TryTake());
    ASSERT_TRUE(lProbe.Open("Local\\KySerialBridgeClientSemaphore1"));
    EXPECT_TRUE(lProbe.TryTake());
    EXPECT_FALSE(lProbe.TryTake());
    EXPECT_TRUE(lProbe.Release());
    EXPECT_FALSE(lProbe.Release()); // one is the maximum
}

TEST_F(SharedRegistryTest, PlaceOfAClientThatHasGoneWithoutGivingItBackIsFreedByTheServer)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(mRegistry->AcquireServer("A", lServer, lClient));
    EXPECT_FALSE(mRegistry->FreeDeadClient(lClient)); // there was none
    NamedSemaphore lFirst;
    ASSERT_TRUE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_FALSE(mRegistry->FreeDeadClient(lClient)); // it is there
    EXPECT_TRUE(lFirst.Close());                      // as the system does for a process that is killed
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("A", lSecond));
    EXPECT_TRUE(mRegistry->FreeDeadClient(lClient));
    EXPECT_TRUE(mRegistry->AcquireClient("A", lSecond));
    SharedRegistry::ReleaseClient(lSecond);
    EXPECT_FALSE(mRegistry->FreeDeadClient(lClient));
}

TEST_F(SharedRegistryTest, FullRegistrySaysSo)
{
    EXPECT_EQ(mRegistry->GetObstacle(), "");
    for (int lIndex = 0; lIndex < 32; ++lIndex)
    {
        ASSERT_TRUE(mRegistry->Register(std::to_string(lIndex)));
    }
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    EXPECT_FALSE(mRegistry->AcquireServer("A", lServer, lClient));
    EXPECT_NE(mRegistry->GetObstacle().find("All entries of the registry are taken"), std::string::npos);
    EXPECT_TRUE(mRegistry->AcquireServer("0", lServer, lClient));
    EXPECT_EQ(mRegistry->GetObstacle(), "");
}

TEST_F(SharedRegistryTest, OneClientOfAServerAtATime)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    NamedSemaphore lFirst;
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst)); // entered, but nobody serves
    EXPECT_FALSE(lFirst.IsValid());
    ASSERT_TRUE(mRegistry->AcquireServer("A", lServer, lClient));
    EXPECT_TRUE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_FALSE(mRegistry->AcquireClient("A", lSecond));
    EXPECT_FALSE(lSecond.IsValid());
    SharedRegistry::ReleaseClient(lFirst);
    EXPECT_FALSE(lFirst.IsValid());
    EXPECT_TRUE(mRegistry->AcquireClient("A", lSecond));
}

TEST_F(SharedRegistryTest, ReleaseOfWhatIsNotHeldBreaksAnAssertion)
{
    KyTest::AssertRecorder lAsserts;
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    SharedRegistry::ReleaseServer(lServer, lClient);
    SharedRegistry::ReleaseClient(lClient);
    const std::vector<std::string> lExpected = {
        "( ( *aServerSemaphore != 0 ) && ( *aServerSemaphore != ((HANDLE)(LONG_PTR)-1) ) )",
        "( ( *aClientSemaphore != 0 ) && ( *aClientSemaphore != ((HANDLE)(LONG_PTR)-1) ) )",
        "::ReleaseSemaphore( *aServerSemaphore, 1, 0 )", "::ReleaseSemaphore( *aClientSemaphore, 1, 0 )"};
    EXPECT_EQ(lAsserts.Take(), JxUtilsLib::cAssertionsEnabled ? lExpected : std::vector<std::string>());
}

TEST_F(SharedRegistryTest, PrefixNamesTheServersSessionUnlessItIsTheOwn)
{
    SharedRegistryEntry lEntry{};
    lEntry.mServerSessionId = PrivateSession::cFirstNumber;
    EXPECT_EQ(mRegistry->GetPrefix(lEntry), "Local\\");
    lEntry.mServerSessionId = 1;
    EXPECT_EQ(mRegistry->GetPrefix(lEntry), "Session\\1\\");
}

TEST_F(SharedRegistryTest, RegistryOfAnotherSessionIsFound)
{
    mRegistry.reset();
    mSession.Share();
    PrivateSession::SetOwnNumber(1);
    SharedRegistry lService(true);
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(lService.AcquireServer("A", lServer, lClient));

    PrivateSession::SetOwnNumber(2);
    SharedRegistry lUser(false);
    SharedRegistryEntry* lEntry = nullptr;
    ASSERT_TRUE(lUser.Find("A", lEntry));
    EXPECT_EQ(lEntry->mServerSessionId, 1U);
    EXPECT_EQ(lUser.GetPrefix(*lEntry), "Session\\1\\");
    NamedSemaphore lMine;
    EXPECT_TRUE(lUser.AcquireClient("A", lMine));
    KyPlatform::SharedMemory lLocal;
    EXPECT_FALSE(lLocal.Open("Local\\KySerialBridgeRegistryMemory"));
}

TEST_F(SharedRegistryTest, RegistryOfASessionAbove31IsNotLookedFor)
{
    EXPECT_TRUE(mRegistry->Register("A")); // the fixture's is in session 40
    PrivateSession::SetOwnNumber(2);
    SharedRegistry lUser(true);
    SharedRegistryEntry* lEntry = nullptr;
    EXPECT_FALSE(lUser.Find("A", lEntry));
    EXPECT_TRUE(lUser.IsValid());
}

TEST_F(SharedRegistryTest, RegistryMadeWithoutTheCreateFlagIsNotInitialised)
{
    mRegistry.emplace(true).Register("A");
    mRegistry.reset();
    mRegistry.emplace(false);
    EXPECT_TRUE(mRegistry->IsValid());
    const std::vector<SharedRegistryEntry> lEntries = mRegistry->GetEntries();
    ASSERT_EQ(lEntries.size(), 32U);
    EXPECT_EQ(GetName(lEntries[0]), "");
    EXPECT_EQ(lEntries[0].mSupportedBaudRates, 0U);
    EXPECT_TRUE(mRegistry->Register("A"));
}

TEST_F(SharedRegistryTest, DeadProcessLeavesNoHalfTakenEntry)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    std::thread(
        [this]
        {
            NamedMutex lMutex;
            EXPECT_TRUE(lMutex.Open("Local\\KySerialBridgeRegistryMutex"));
            EXPECT_EQ(lMutex.Wait(0), KyPlatform::WaitResult::Done);
            uint8_t* const lEntry = MapSection() + 344;
            lEntry[0] = 1;
            std::memcpy(lEntry + 88, "Half", 5);
        })
        .join();
    SharedRegistryEntry* lEntry = nullptr;
    EXPECT_FALSE(mRegistry->Find("Half", lEntry));
    EXPECT_EQ(GetName(mRegistry->GetEntries()[1]), "Uninitialized");
    EXPECT_TRUE(mRegistry->Register("Half"));
    EXPECT_EQ(GetEntry("Half").mServerId, 2U);
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
}

TEST_F(SharedRegistryTest, EverythingFailsWhenTheLockIsNotToBeHad)
{
    NamedMutex lMutex;
    ASSERT_TRUE(lMutex.Open("Local\\KySerialBridgeRegistryMutex"));
    EXPECT_TRUE(mRegistry->Register("A"));
    ASSERT_EQ(lMutex.Wait(0), KyPlatform::WaitResult::Done);
    std::vector<std::thread> lThreads;
    lThreads.emplace_back([this] { EXPECT_FALSE(mRegistry->Register("A")); });
    lThreads.emplace_back([this] { EXPECT_FALSE(mRegistry->SetServerActive("A", true)); });
    lThreads.emplace_back([this] { EXPECT_TRUE(mRegistry->GetEntries().empty()); });
    lThreads.emplace_back(
        [this]
        {
            SharedRegistryEntry* lEntry = nullptr;
            EXPECT_FALSE(mRegistry->Find("A", lEntry));
        });
    lThreads.emplace_back(
        [this]
        {
            NamedSemaphore lClient;
            EXPECT_FALSE(mRegistry->AcquireClient("A", lClient));
        });
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
    EXPECT_TRUE(lMutex.Release());
    EXPECT_EQ(GetEntry("A").mServerActive, 0U);
}

} // namespace
