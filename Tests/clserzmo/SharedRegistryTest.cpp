#include "Tests/Support/AssertRecorder.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

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

TEST_F(SharedRegistryTest, ServersAreEnteredOnceAndNumberedOneAboveTheLargest)
{
    for (const char* const lName : {"A", "B", "A", "a"})
    {
        EXPECT_TRUE(mRegistry->Register(lName));
    }
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
    EXPECT_EQ(GetEntry("B").mServerId, 2U);
    EXPECT_EQ(GetEntry("a").mServerId, 3U);
    EXPECT_EQ(mRegistry->GetEntries()[3].mServerId, 0U);
    GetEntry("A").mServerId = 700;
    EXPECT_TRUE(mRegistry->Register("C"));
    EXPECT_EQ(GetEntry("C").mServerId, 701U);
    GetEntry("A").mServerId = 0xFFFFFFFFU; // there is no larger one
    EXPECT_FALSE(mRegistry->Register("D"));
}

TEST_F(SharedRegistryTest, ThirtyThirdNameIsRefused)
{
    EXPECT_EQ(mRegistry->GetObstacle(), "");
    for (int lIndex = 0; lIndex < 32; ++lIndex)
    {
        EXPECT_TRUE(mRegistry->Register(std::to_string(lIndex)));
    }
    EXPECT_FALSE(mRegistry->Register("One too many"));
    EXPECT_TRUE(mRegistry->Register("31"));
    EXPECT_FALSE(mRegistry->AcquireServer("One too many", mServer, mClient));
    EXPECT_NE(mRegistry->GetObstacle().find("All entries of the registry are taken"), std::string::npos);
    EXPECT_TRUE(mRegistry->AcquireServer("0", mServer, mClient));
    EXPECT_EQ(mRegistry->GetObstacle(), "");
}

TEST_F(SharedRegistryTest, FindWantsTheExactNameAndGivesTheEntryInTheSection)
{
    EXPECT_TRUE(mRegistry->Register("Camera 1"));
    for (const char* const lOther : {"Camera", "camera 1", "Camera 11"})
    {
        EXPECT_FALSE(Has(lOther)) << lOther;
    }
    SharedRegistryEntry& lEntry = GetEntry("Camera 1");
    MapSection()[12] = 8; // a client asks for another speed
    EXPECT_EQ(lEntry.mRequestedBaudRate, 8U);
    EXPECT_TRUE(mRegistry->Register(std::string(300, 'n'))); // is cut to its first 255 characters
    EXPECT_EQ(GetName(mRegistry->GetEntries()[1]), std::string(255, 'n'));
    EXPECT_TRUE(Has(std::string(255, 'n')));
    EXPECT_FALSE(Has(std::string(256, 'n')));
}

TEST_F(SharedRegistryTest, SetServerActiveWantsAKnownName)
{
    EXPECT_FALSE(mRegistry->SetServerActive("A", true));
    EXPECT_TRUE(mRegistry->Register("A"));
    for (const bool lActive : {true, false})
    {
        EXPECT_TRUE(mRegistry->SetServerActive("A", lActive));
        EXPECT_EQ(GetEntry("A").mServerActive, lActive ? 1U : 0U);
    }
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

TEST_F(SharedRegistryTest, OneServerOfANameAtATimeHasTheSemaphoresOfItsNumber)
{
    NamedSemaphore lSecondServer;
    NamedSemaphore lSecondClient;
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_FALSE(mRegistry->AcquireServer("A", lSecondServer, lSecondClient));
    EXPECT_FALSE(lSecondServer.IsValid());
    EXPECT_TRUE(lSecondClient.IsValid()); // not taken, only held
    lSecondClient.Close();
    NamedSemaphore lProbe;
    ASSERT_TRUE(lProbe.Open("Local\\KySerialBridgeServerSemaphore1"));
    EXPECT_FALSE(lProbe.TryTake());
    ASSERT_TRUE(lProbe.Open("Local\\KySerialBridgeClientSemaphore1"));
    EXPECT_TRUE(lProbe.TryTake());
    EXPECT_FALSE(lProbe.TryTake());
    EXPECT_TRUE(lProbe.Release());
    EXPECT_FALSE(lProbe.Release()); // one is the maximum
    EXPECT_TRUE(mRegistry->AcquireServer("B", lSecondServer, lSecondClient));
    SharedRegistry::ReleaseServer(mServer, mClient);
    EXPECT_FALSE(mServer.IsValid());
    EXPECT_FALSE(mClient.IsValid());
    EXPECT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
}

TEST_F(SharedRegistryTest, OneClientOfAServerUntilItLeavesOrItsPlaceIsFreed)
{
    NamedSemaphore lFirst;
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_TRUE(mRegistry->Register("A"));
    EXPECT_FALSE(mRegistry->AcquireClient("A", lFirst)); // entered, but nobody serves
    EXPECT_FALSE(lFirst.IsValid());
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient)); // there was no client
    EXPECT_TRUE(mRegistry->AcquireClient("A", lFirst));
    EXPECT_FALSE(mRegistry->AcquireClient("A", lSecond));
    EXPECT_FALSE(lSecond.IsValid());
    SharedRegistry::ReleaseClient(lFirst);
    EXPECT_FALSE(lFirst.IsValid());
    EXPECT_TRUE(mRegistry->AcquireClient("A", lFirst));

    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient)); // it is there
    EXPECT_TRUE(lFirst.Close());                      // as the system does for a process that is killed
    EXPECT_FALSE(mRegistry->AcquireClient("A", lSecond));
    EXPECT_TRUE(mRegistry->FreeDeadClient(mClient));
    EXPECT_TRUE(mRegistry->AcquireClient("A", lSecond));
    SharedRegistry::ReleaseClient(lSecond);
    EXPECT_FALSE(mRegistry->FreeDeadClient(mClient));
}

TEST_F(SharedRegistryTest, ReleaseOfWhatIsNotHeldBreaksAnAssertion)
{
    KyTest::AssertRecorder lAsserts;
    SharedRegistry::ReleaseServer(mServer, mClient);
    SharedRegistry::ReleaseClient(mClient);
    EXPECT_EQ(
        lAsserts.Take(),
        KyTest::Broken({"( ( *aServerSemaphore != 0 ) && ( *aServerSemaphore != ((HANDLE)(LONG_PTR)-1) ) )",
                        "( ( *aClientSemaphore != 0 ) && ( *aClientSemaphore != ((HANDLE)(LONG_PTR)-1) ) )",
                        "::ReleaseSemaphore( *aServerSemaphore, 1, 0 )",
                        "::ReleaseSemaphore( *aClientSemaphore, 1, 0 )"}));
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
    SharedRegistry& lUser = mRegistry.emplace(false);
    EXPECT_EQ(GetEntry("A").mServerSessionId, 1U);
    EXPECT_EQ(lUser.GetPrefix(GetEntry("A")), "Session\\1\\");
    NamedSemaphore lMine;
    EXPECT_TRUE(lUser.AcquireClient("A", lMine));
    EXPECT_FALSE(mMemory.Open("Local\\KySerialBridgeRegistryMemory"));
}

TEST_F(SharedRegistryTest, RegistryOfASessionAbove31IsNotLookedFor)
{
    EXPECT_TRUE(mRegistry->Register("A")); // the fixture's is in session 40
    const SharedRegistry lKeeper(false);
    PrivateSession::SetOwnNumber(2);
    mRegistry.emplace(true);
    EXPECT_FALSE(Has("A"));
    EXPECT_TRUE(mRegistry->IsValid());
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

TEST_F(SharedRegistryTest, EntriesThatADeadProcessHasBegunAreFreshAgain)
{
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    EXPECT_TRUE(mRegistry->SetServerActive("A", true));
    auto* const lEntries = reinterpret_cast<SharedRegistryEntry*>(MapSection());
    const KyTest::DeadOwner lDead("KySerialBridgeRegistryMutex",
                                  [&]
                                  {
                                      lEntries[1].mRegistered = 1;
                                      std::strcpy(lEntries[2].mName, "half a nam");
                                      lEntries[3].mRegistered = 1;
                                      std::strcpy(lEntries[3].mName, "Half");
                                      std::strcpy(lEntries[4].mName, "Other");
                                      lEntries[4].mServerId = 7; // the number is given last: it was finished
                                  });
    EXPECT_FALSE(Has("Half"));
    EXPECT_EQ(mRegistry->GetEntries().size(), 32U);
    for (const int lIndex : {1, 2, 3})
    {
        EXPECT_EQ(lEntries[lIndex].mRegistered, 0U);
        EXPECT_STREQ(lEntries[lIndex].mName, "Uninitialized");
    }
    EXPECT_STREQ(lEntries[4].mName, "Other");
    EXPECT_TRUE(mRegistry->Register("Half"));
    EXPECT_EQ(GetEntry("Half").mServerId, 8U);
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
    EXPECT_EQ(GetEntry("A").mServerActive, 1U);
}

TEST_F(SharedRegistryTest, EverythingFailsWhenTheLockIsNotToBeHad)
{
    KyPlatform::NamedMutex lMutex;
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
