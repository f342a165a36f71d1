// Calls into the system that must not fail do, in a FIFO and in the registry: an assertion says which.

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/Deadline.h"
#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

using JxUtilsLib::Thread;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KyTest::AssertRecorder;
using KyTest::Broken;
using KyTest::DeadOwner;
using KyTest::ScriptedCall;
using KyTest::TextFifo;
using S = KyPlatform::SystemCalls;

namespace
{

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
    ASSERT_TRUE(mFifo.Write("abc"));
    const DeadOwner lDead(mName + "Mutex");
    {
        // Called under the lock, because a dead owner may not have woken anybody.
        const ScriptedCall<&S::mFutex> lWake(
            [this](uint32_t*, int, uint32_t, const timespec*)
            {
                SpoilLock(mName + "Mutex");
                return 0L;
            });
        EXPECT_TRUE(mFifo.Write("def"));
    }
    EXPECT_EQ(mAsserts.Take(), Broken({"::ReleaseMutex( mMutex )"}));
    EXPECT_EQ(mMutex.Wait(5000), KyPlatform::WaitResult::OwnerDied); // nobody has that place
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(mFifo.Read(), "abcdef");
}

TEST_F(RefusedFifoTest, WaitsForTheReaderBeyondALockThatAStoppedProcessHolds)
{
    ASSERT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done);
    static std::atomic<uint64_t> sTime = 0; // nanoseconds
    sTime = 1;
    KyPlatform::Deadline::SetClock([] { return sTime.load(); });
    // Each sleep at the lock takes as long as the longest wait for it.
    std::atomic<int> lSleeps{0};
    const ScriptedCall<&S::mFutex> lFutex(
        [&](uint32_t*, int aOperation, uint32_t, const timespec*)
        {
            if (aOperation == FUTEX_WAIT)
            {
                sTime += 6000000000;
                ++lSleeps;
            }
            errno = ETIMEDOUT;
            return -1L;
        });
    {
        const std::jthread lWaiter([this] { EXPECT_TRUE(mFifo.WaitUntilEmpty(60000)); });
        EXPECT_TRUE(KyTest::WaitFor([&] { return lSleeps >= 2; }));
        EXPECT_TRUE(mMutex.Release());
    }
    KyPlatform::Deadline::SetClock(nullptr);
}

using DeadOwnerTest = FifoFixture;

// Such an owner died before it had given the section its size.
TEST_F(DeadOwnerTest, UnfinishedSectionIsFinishedByTheNextProcessThatMayMakeItOfThatSize)
{
    constexpr struct
    {
        const char* mCase;
        uint32_t mFound;
        uint32_t mCapacity;
        bool mCreate;
        bool mIsValid;
        uint32_t mLeft;
    } cCases[] = {{"unfinished, and an opener only", 0, 1024, false, false, 0},
                  {"unfinished, and larger", 0, 100000, true, false, 0},
                  {"a size that makes no sense", 0xFFFFFFF0U, 1024, true, true, 0xFFFFFFF0U},
                  {"unfinished", 0, 1024, true, true, 1024}};
    for (const auto& lCase : cCases)
    {
        SCOPED_TRACE(lCase.mCase);
        const DeadOwner lDead(mName + "Mutex", [&] { GetHeader() = {lCase.mFound, 0, 0, 0}; });
        TextFifo lFifo(mName, lCase.mCapacity, lCase.mCreate);
        EXPECT_EQ(lFifo.IsValid(), lCase.mIsValid);
        uint32_t lCount = 7;
        EXPECT_EQ(lFifo.GetAvailable(lCount), lCase.mLeft == 1024);
        EXPECT_EQ(lCount, 0U);
        EXPECT_EQ(GetHeader().mSize, lCase.mLeft);
        EXPECT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done); // it has given the lock back
        EXPECT_TRUE(mMutex.Release());
    }
    ExpectAlive();
}

TEST_F(DeadOwnerTest, SoundSectionOnlyGetsItsEventsRepaired)
{
    ASSERT_TRUE(mFifo.Write("kept"));
    const DeadOwner lDead(mName + "Mutex");
    ASSERT_TRUE(mWriteEvent.Reset());
    ASSERT_TRUE(mReadEvent.Reset());
    const TextFifo lFifo(mName, 1024, false);
    EXPECT_TRUE(lFifo.IsValid());
    ExpectEvents(true, true);
    EXPECT_EQ(mFifo.Read(), "kept");
}

class RefusedRegistryTest : public RegistryFixture
{
protected:
    void SetUp() override { ASSERT_TRUE(mRegistry->AcquireServer("Server", mServer, mClient)); }

    AssertRecorder mAsserts;
};

TEST_F(RefusedRegistryTest, ReportsThatTheLockIsNotGivenBack)
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

TEST_F(RefusedRegistryTest, AClientThatComesBetweenTwoLooksForADeadOneKeepsItsPlace)
{
    NamedSemaphore lClient;
    ASSERT_TRUE(mRegistry->AcquireClient("Server", lClient));
    int lLooks = 0;
    {
        const ScriptedCall<&S::mLockByte> lLook(
            [&lLooks](int aFile, int aCommand, struct flock* aLock)
            {
                const int lResult = KyPlatform::GetRealSystem().mLockByte(aFile, aCommand, aLock);
                if (aCommand == F_OFD_GETLK && ++lLooks == 1)
                {
                    aLock->l_type = F_UNLCK; // it was not there yet
                }
                return lResult;
            });
        EXPECT_FALSE(mRegistry->FreeDeadClient(mClient));
    }
    EXPECT_EQ(lLooks, 2);
    NamedSemaphore lSecond;
    EXPECT_FALSE(mRegistry->AcquireClient("Server", lSecond));
    SharedRegistry::ReleaseClient(lClient);
}

TEST_F(RefusedRegistryTest, ReportsThatASemaphoreIsNotClosed)
{
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    NamedSemaphore lSecond;
    ASSERT_TRUE(mRegistry->AcquireClient("Server", lClient));
    const ScriptedCall<&S::mUnmap> lUnmap([](void* aBase, size_t aSize)
                                          { return ::munmap(aBase, aSize) - 1; });
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

TEST(RegistryAttemptTest, FiveTriesForTheLockAHundredMillisecondsApart)
{
    const PrivateSession lSession;
    AssertRecorder lAsserts;
    for (const bool lFifthSucceeds : {false, true})
    {
        SCOPED_TRACE(lFifthSucceeds);
        int lTries = 0; // each begins with the folder
        const ScriptedCall<&S::mMakeFolder> lMake(
            [&](const char* aPath, mode_t aMode)
            {
                errno = EACCES;
                const bool lRefused = ++lTries < 5 || !lFifthSucceeds;
                return lRefused ? -1 : KyPlatform::GetRealSystem().mMakeFolder(aPath, aMode);
            });
        const uint64_t lStart = Thread::GetTickCount();
        EXPECT_EQ(SharedRegistry(true).IsValid(), lFifthSucceeds);
        // A tick may be cut off at either end.
        EXPECT_GE(Thread::GetTickCount() - lStart + 1, lFifthSucceeds ? 400U : 500U);
        constexpr const char* cLock = "( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )";
        EXPECT_EQ(lAsserts.Take(), lFifthSucceeds ? std::vector<std::string>() : Broken({cLock}));
        EXPECT_GE(lTries, 5);
        EXPECT_TRUE(lFifthSucceeds || lTries == 5);
    }
}

} // namespace
