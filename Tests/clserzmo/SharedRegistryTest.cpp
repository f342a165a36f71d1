#include "KyPlatform/NamedMutex.h"
#include "Tests/Support/AssertRecorder.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

using KyPlatform::NamedMutex;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

using SharedRegistryTest = RegistryFixture;

TEST_F(SharedRegistryTest, SectionIsLaidOutAsOtherProcessesExpect)
{
    std::vector<uint8_t> lExpected(11008, 0); // 32 entries
    for (size_t lOffset = 0; lOffset < lExpected.size(); lOffset += 344)
    {
        lExpected[lOffset + 8] = 1;
        lExpected[lOffset + 12] = 1;
        std::memcpy(&lExpected[lOffset + 88], "Uninitialized", 13);
    }
    const uint8_t* const lBytes = MapSection();
    ASSERT_TRUE(mMemory.HasSizeOf(11008));
    EXPECT_EQ(std::memcmp(lBytes, lExpected.data(), lExpected.size()), 0);
    ASSERT_TRUE(mRegistry->IsValid());
    const std::vector<SharedRegistryEntry> lEntries = mRegistry->GetEntries();
    ASSERT_EQ(lEntries.size(), 32U);
    EXPECT_EQ(std::memcmp(lEntries.data(), lExpected.data(), lExpected.size()), 0);

    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_TRUE(mRegistry->SetServerActive("A", true));
    GetEntry("A").mSupportedBaudRates = 0x13;
    std::fill_n(lExpected.begin(), 344, uint8_t{0});
    lExpected[0] = 1;
    lExpected[4] = 1;
    lExpected[8] = 0x13;
    lExpected[12] = 1;
    lExpected[16] = 1;
    lExpected[84] = PrivateSession::cFirstNumber;
    lExpected[88] = 'A';
    EXPECT_EQ(std::memcmp(lBytes, lExpected.data(), lExpected.size()), 0);
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
    SharedRegistryEntry& lEntry = GetEntry("A");
    lEntry.mServerId = 700;
    EXPECT_TRUE(mRegistry->Register("B"));
    EXPECT_EQ(GetEntry("B").mServerId, 701U);
    lEntry.mServerId = 0xFFFFFFFFU; // there is no larger one
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
    EXPECT_TRUE(Has(std::string(255, 'n')));
    EXPECT_FALSE(Has(std::string(256, 'n')));
}

TEST_F(SharedRegistryTest, FindWantsTheExactName)
{
    EXPECT_TRUE(mRegistry->Register("Camera 1"));
    EXPECT_FALSE(Has("Camera"));
    EXPECT_FALSE(Has("camera 1"));
    EXPECT_FALSE(Has("Camera 11"));
    EXPECT_TRUE(Has("Camera 1"));
}

TEST_F(SharedRegistryTest, FoundEntryIsTheOneInTheSection)
{
    EXPECT_TRUE(mRegistry->Register("A"));
    SharedRegistryEntry& lEntry = GetEntry("A");
    MapSection()[12] = 8; // a client asks for another speed
    EXPECT_EQ(lEntry.mRequestedBaudRate, 8U);
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
    ASSERT_TRUE(mRegistry->AcquireServer("Alive", mServer, mClient));
    EXPECT_TRUE(mRegistry->Register("Gone"));
    EXPECT_TRUE(mRegistry->SetServerActive("Alive", true));
    EXPECT_TRUE(mRegistry->SetServerActive("Gone", true));
    mRegistry->Sweep();
    EXPECT_EQ(GetEntry("Alive").mServerActive, 1U);
    EXPECT_EQ(GetEntry("Gone").mServerActive, 0U);
    SharedRegistry::ReleaseServer(mServer, mClient);
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
    NamedSemaphore lSecondServer;
    NamedSemaphore lSecondClient;
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_FALSE(mRegistry->AcquireServer("A", lSecondServer, lSecondClient));
    EXPECT_FALSE(lSecondServer.IsValid());
    EXPECT_TRUE(lSecondClient.IsValid()); // not taken, only held
    lSecondClient.Close();
    EXPECT_TRUE(mRegistry->AcquireServer("B", lSecondServer, lSecondClient));
    SharedRegistry::ReleaseServer(mServer, mClient);
    EXPECT_FALSE(mServer.IsValid());
    EXPECT_FALSE(mClient.IsValid());
    EXPECT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
}

TEST_F(SharedRegistryTest, SemaphoresAreNamedByTheNumber)
{
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
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
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient)); // there was none
    NamedSemaphore lFirst;
    ASSERT_TRUE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient)); // it is there
    EXPECT_TRUE(lFirst.Close());                      // as the system does for a process that is killed
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("A", lSecond));
    EXPECT_TRUE(mRegistry->FreeDeadClient(mClient));
    EXPECT_TRUE(mRegistry->AcquireClient("A", lSecond));
    SharedRegistry::ReleaseClient(lSecond);
    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient));
}

TEST_F(SharedRegistryTest, FullRegistrySaysSo)
{
    EXPECT_EQ(mRegistry->GetObstacle(), "");
    for (int lIndex = 0; lIndex < 32; ++lIndex)
    {
        ASSERT_TRUE(mRegistry->Register(std::to_string(lIndex)));
    }
    EXPECT_FALSE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_NE(mRegistry->GetObstacle().find("All entries of the registry are taken"), std::string::npos);
    EXPECT_TRUE(mRegistry->AcquireServer("0", mServer, mClient));
    EXPECT_EQ(mRegistry->GetObstacle(), "");
}

TEST_F(SharedRegistryTest, OneClientOfAServerAtATime)
{
    NamedSemaphore lFirst;
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst)); // entered, but nobody serves
    EXPECT_FALSE(lFirst.IsValid());
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
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
    SharedRegistry::ReleaseServer(mServer, mClient);
    SharedRegistry::ReleaseClient(mClient);
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
    ASSERT_TRUE(lService.AcquireServer("A", mServer, mClient));

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
    EXPECT_FALSE(Has("Half"));
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
    {
        const std::jthread lRegister([this] { EXPECT_FALSE(mRegistry->Register("A")); });
        const std::jthread lActivate([this] { EXPECT_FALSE(mRegistry->SetServerActive("A", true)); });
        const std::jthread lList([this] { EXPECT_TRUE(mRegistry->GetEntries().empty()); });
        const std::jthread lFind([this] { EXPECT_FALSE(Has("A")); });
        const std::jthread lAcquire([this] { EXPECT_FALSE(mRegistry->AcquireClient("A", mClient)); });
    }
    EXPECT_TRUE(lMutex.Release());
    EXPECT_EQ(GetEntry("A").mServerActive, 0U);
}

} // namespace
