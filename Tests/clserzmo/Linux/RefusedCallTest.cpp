// Calls into the system that must not fail do, in a FIFO and in the registry: an assertion says which.

#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <gmock/gmock.h>

#include <cstring>
#include <sys/mman.h>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KyTest::AssertRecorder;
using KyTest::Broken;
using KyTest::ScriptedCall;
using testing::Contains;
using S = KyPlatform::SystemCalls;

namespace
{

int RefuseUnlock(pthread_mutex_t*)
{
    return EPERM;
}

int RefuseUnmap(void* aBase, size_t aSize)
{
    ::munmap(aBase, aSize);
    return -1;
}

class RefusedFifoTest : public FifoFixture
{
protected:
    AssertRecorder mAsserts;
};

TEST_F(RefusedFifoTest, SaysThatTheLockIsNotGivenBack)
{
    {
        const ScriptedCall<&S::mUnlockMutex> lUnlock(&RefuseUnlock);
        EXPECT_TRUE(Write("abc"));
    }
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
}

TEST_F(RefusedFifoTest, WaitsForTheReaderBeyondALockThatAStoppedProcessHolds)
{
    int lLocks = 0;
    const ScriptedCall<&S::mTryLockMutex> lTry(
        [&](pthread_mutex_t* aMutex) { return lLocks < 2 ? EBUSY : ::pthread_mutex_trylock(aMutex); });
    const ScriptedCall<&S::mLockMutex> lLock(
        [&](pthread_mutex_t*, const timespec*)
        {
            ++lLocks;
            return ETIMEDOUT;
        });
    EXPECT_TRUE(mFifo.WaitUntilEmpty(60000));
    EXPECT_EQ(lLocks, 2);
}

/// Whoever takes a lock is told that its owner has died with it.
class DeadOwner
{
    const ScriptedCall<&S::mTryLockMutex> mTry{[](pthread_mutex_t* aMutex)
                                               {
                                                   const int lError = ::pthread_mutex_trylock(aMutex);
                                                   return lError == 0 ? EOWNERDEAD : lError;
                                               }};
    const ScriptedCall<&S::mMendMutex> mMend{[](pthread_mutex_t*) { return 0; }};
};

class DeadOwnerTest : public FifoFixture
{
protected:
    DeadOwner mDead;
};

// Such an owner died before it had given the section its size.
TEST_F(DeadOwnerTest, UnfinishedSectionIsFinishedByTheNextWhoMayMakeIt)
{
    GetHeader() = {};
    SharedFifo lFifo(mName, mPrefix, 1024, true);
    EXPECT_TRUE(lFifo.IsValid());
    EXPECT_EQ(GetHeader().mSize, 1024U);
    EXPECT_TRUE(Write("finished"));
    char lBytes[8];
    uint32_t lRead = 0;
    EXPECT_TRUE(lFifo.Read(lBytes, 8, lRead, 0));
    EXPECT_EQ(std::string(lBytes, lRead), "finished");
}

TEST_F(DeadOwnerTest, UnfinishedSectionIsNotUsedByOthersNorForAnotherSize)
{
    GetHeader() = {};
    for (const bool lCreate : {false, true})
    {
        SharedFifo lFifo(mName, mPrefix, lCreate ? 100000 : 1024, lCreate);
        EXPECT_FALSE(lFifo.IsValid());
        uint32_t lCount = 7;
        EXPECT_FALSE(lFifo.GetAvailable(lCount));
        EXPECT_EQ(lCount, 0U);
        EXPECT_EQ(GetHeader().mSize, 0U);
        EXPECT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::OwnerDied); // it has given the lock back
        EXPECT_TRUE(mMutex.Release());
    }
}

TEST_F(DeadOwnerTest, SectionWithASizeThatMakesNoSenseIsLeftAlone)
{
    GetHeader().mSize = 0xFFFFFFF0U;
    SharedFifo lFifo(mName, mPrefix, 1024, true);
    uint32_t lCount = 7;
    EXPECT_FALSE(lFifo.GetAvailable(lCount));
    EXPECT_EQ(GetHeader().mSize, 0xFFFFFFF0U);
}

TEST_F(DeadOwnerTest, SoundSectionOnlyGetsItsEventsRepaired)
{
    ASSERT_TRUE(Write("kept"));
    ASSERT_TRUE(mWriteEvent.Reset());
    ASSERT_TRUE(mReadEvent.Reset());
    const SharedFifo lFifo(mName, mPrefix, 1024, false);
    EXPECT_TRUE(lFifo.IsValid());
    EXPECT_TRUE(IsSet(mWriteEvent));
    EXPECT_TRUE(IsSet(mReadEvent));
    EXPECT_EQ(Read(), "kept");
}

class RefusedRegistryTest : public RegistryFixture
{
protected:
    void SetUp() override { ASSERT_TRUE(mRegistry->AcquireServer("Server", mServer, mClient)); }

    AssertRecorder mAsserts;
    NamedSemaphore mServer;
    NamedSemaphore mClient;
};

TEST_F(RefusedRegistryTest, SaysThatTheLockIsNotGivenBack)
{
    const ScriptedCall<&S::mUnlockMutex> lUnlock(&RefuseUnlock);
    EXPECT_TRUE(mRegistry->SetServerActive("Server", true));
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
    mRegistry.emplace(true);
    EXPECT_THAT(mAsserts.Take(),
                Contains("::ReleaseMutex( mMutex )").Times(JxUtilsLib::cAssertionsEnabled ? 2 : 0));
}

TEST_F(RefusedRegistryTest, SaysThatASemaphoreThatWasNotToBeHadIsNotClosed)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    NamedSemaphore lSecond;
    ASSERT_TRUE(mRegistry->AcquireClient("Server", lClient));
    const ScriptedCall<&S::mUnmap> lUnmap(&RefuseUnmap);
    EXPECT_FALSE(mRegistry->AcquireServer("Server", lServer, lSecond));
    EXPECT_EQ(mAsserts.Take(), Broken({"::CloseHandle( *aServerSemaphore )"}));
    EXPECT_FALSE(mRegistry->AcquireClient("Server", lSecond));
    EXPECT_EQ(mAsserts.Take(), Broken({"::CloseHandle( *aClientSemaphore )"}));
    SharedRegistry::ReleaseClient(lClient);
    EXPECT_EQ(mAsserts.Take(), Broken({"::CloseHandle( *aClientSemaphore )"}));
    SharedRegistry::ReleaseServer(mServer, mClient);
    EXPECT_EQ(mAsserts.Take(),
              Broken({"::CloseHandle( *aServerSemaphore )", "::CloseHandle( *aClientSemaphore )"}));
}

TEST_F(RefusedRegistryTest, EntriesThatADeadProcessHasBegunAreFreshAgain)
{
    ASSERT_TRUE(mRegistry->SetServerActive("Server", true));
    auto* const lEntries = reinterpret_cast<KySerialLib::SharedRegistryEntry*>(MapSection());
    lEntries[1].mRegistered = 1;
    std::strcpy(lEntries[2].mName, "half a nam");
    std::strcpy(lEntries[3].mName, "Other");
    lEntries[3].mServerId = 7; // the number is given last: it was finished
    DeadOwner lDead;
    EXPECT_EQ(mRegistry->GetEntries().size(), 32U);
    EXPECT_EQ(lEntries[1].mRegistered, 0U);
    EXPECT_STREQ(lEntries[2].mName, "Uninitialized");
    EXPECT_STREQ(lEntries[3].mName, "Other");
    EXPECT_STREQ(lEntries[0].mName, "Server");
    EXPECT_EQ(lEntries[0].mServerActive, 1U);
}

} // namespace
