// Calls into the system that must not fail do, in a FIFO and in the registry: an assertion says which.

#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <gmock/gmock.h>

#include <sys/mman.h>

using KyPlatform::NamedSemaphore;
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

} // namespace
