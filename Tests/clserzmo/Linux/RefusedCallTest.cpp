// Calls into the system that must not fail do, in a FIFO and in the registry: an assertion says which.

#include "KyPlatform/Deadline.h"
#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

using KyPlatform::NamedMutex;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KyTest::AssertRecorder;
using KyTest::Broken;
using KyTest::ScriptedCall;
using S = KyPlatform::SystemCalls;

namespace
{

int RefuseUnmap(void* aBase, size_t aSize)
{
    ::munmap(aBase, aSize);
    return -1;
}

/// Leaves a lock as a process does that dies with it.
void DieWith(NamedMutex& aMutex)
{
    std::thread([&] { EXPECT_TRUE(IsOwned(aMutex.Wait(0))); }).join();
}

/// Writes another owner into a lock, as a process of the same user can.
void SpoilLock(const std::string& aName)
{
    const std::string lFile =
        KyPlatform::gSystem.mFolder + std::to_string(KyPlatform::gSystem.mGetUser()) + '/' + aName + ".mutex";
    const int lLock = ::open(lFile.c_str(), O_RDWR | O_CLOEXEC);
    constexpr uint32_t cNobody = 12345;
    EXPECT_EQ(::pwrite(lLock, &cNobody, sizeof cNobody, 64), 4);
    ::close(lLock);
}

class RefusedFifoTest : public FifoFixture
{
protected:
    AssertRecorder mAsserts;
};

TEST_F(RefusedFifoTest, ReportsThatTheLockIsNotGivenBackAndLeavesItToItsOwner)
{
    ASSERT_TRUE(Write("abc"));
    DieWith(mMutex);
    {
        // Called under the lock, because a dead owner may not have woken anybody.
        const ScriptedCall<&S::mFutex> lWake(
            [this](uint32_t*, int, uint32_t, const timespec*)
            {
                SpoilLock(mName + "Mutex");
                return 0L;
            });
        EXPECT_TRUE(Write("def"));
    }
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
    EXPECT_EQ(mMutex.Wait(5000), KyPlatform::WaitResult::OwnerDied); // nobody has that place
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(Read(), "abcdef");
}

TEST_F(RefusedFifoTest, WaitsForTheReaderBeyondALockThatAStoppedProcessHolds)
{
    std::atomic<bool> lOwned{false};
    std::atomic<bool> lEnd{false};
    std::thread lOwner(
        [&]
        {
            EXPECT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done);
            lOwned = true;
            while (!lEnd)
            {
                std::this_thread::yield();
            }
            EXPECT_TRUE(mMutex.Release());
        });
    while (!lOwned)
    {
        std::this_thread::yield();
    }
    int lSleeps = 0;
    static uint64_t sTime = 0; // nanoseconds
    sTime = 1;
    KyPlatform::Deadline::SetClock([] { return sTime; });
    // Each sleep at the lock takes as long as the longest wait for it.
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int aOperation, uint32_t, const timespec*)
        {
            if (aOperation == FUTEX_WAIT)
            {
                sTime += 6000000000;
                lEnd = ++lSleeps >= 2;
            }
            errno = ETIMEDOUT;
            return -1L;
        });
    EXPECT_TRUE(mFifo.WaitUntilEmpty(60000));
    KyPlatform::Deadline::SetClock(nullptr);
    lOwner.join();
    EXPECT_GE(lSleeps, 2);
}

/// The lock's owner has died with it.
class DeadOwnerTest : public FifoFixture
{
protected:
    void SetUp() override { DieWith(mMutex); }
};

// Such an owner died before it had given the section its size.
TEST_F(DeadOwnerTest, UnfinishedSectionIsFinishedByTheNextProcessThatMayMakeIt)
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
        DieWith(mMutex);
        SharedFifo lFifo(mName, mPrefix, lCreate ? 100000 : 1024, lCreate);
        EXPECT_FALSE(lFifo.IsValid());
        uint32_t lCount = 7;
        EXPECT_FALSE(lFifo.GetAvailable(lCount));
        EXPECT_EQ(lCount, 0U);
        EXPECT_EQ(GetHeader().mSize, 0U);
        EXPECT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done); // it has given the lock back
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
    DieWith(mMutex);
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
};

TEST_F(RefusedRegistryTest, SaysThatTheLockIsNotGivenBack)
{
    // The sweep looks for the server's semaphore under the lock, and opening a registry opens its section.
    const ScriptedCall<&S::mOpen> lOpen(
        [](int aFolder, const char* aName, int aFlags, mode_t aMode)
        {
            const std::string_view lName = aName;
            if (lName == "KySerialBridgeClientSemaphore1.semaphore" ||
                lName == "KySerialBridgeRegistryMemory.memory")
            {
                SpoilLock("KySerialBridgeRegistryMutex");
            }
            return KyPlatform::GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
        });
    mRegistry->Sweep();
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
    mRegistry.emplace(true);
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
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
    NamedMutex lMutex;
    ASSERT_TRUE(lMutex.Open("Local\\KySerialBridgeRegistryMutex"));
    DieWith(lMutex);
    EXPECT_EQ(mRegistry->GetEntries().size(), 32U);
    EXPECT_EQ(lEntries[1].mRegistered, 0U);
    EXPECT_STREQ(lEntries[2].mName, "Uninitialized");
    EXPECT_STREQ(lEntries[3].mName, "Other");
    EXPECT_STREQ(lEntries[0].mName, "Server");
    EXPECT_EQ(lEntries[0].mServerActive, 1U);
}

} // namespace
