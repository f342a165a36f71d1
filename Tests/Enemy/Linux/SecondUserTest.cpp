// Another user of the machine makes, fills, truncates and rewrites the files that root and an ordinary user could
// open.

#include "JxUtilsLib/Assert.h"
#include "KyPlatform/NamedMutex.h"
#include "Tests/Support/Linux/OtherUsers.h"
#include "sharedfifo.h"
#include "sharedregistry.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <random>
#include <string_view>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

constexpr uid_t cOrdinaryUser = 1000;
using Clock = std::chrono::steady_clock;

/// What a victim found wrong; 0 is nothing.
enum Wrong : int
{
    cForeignServer = 1,
    cForeignBytes = 2,
    cNoService = 4,
    cLate = 8
};

/// The time that this process, which has one thread, was on a processor or ready for one. 0 where the kernel does
/// not count it.
std::chrono::nanoseconds GetReadyTime()
{
    std::ifstream lFile("/proc/self/schedstat");
    int64_t lRun = 0;
    int64_t lDelay = 0;
    lFile >> lRun >> lDelay;
    return std::chrono::nanoseconds(lRun + lDelay);
}

/// Measures how long a victim waits for anything but a processor: a busy machine keeps it from running, an enemy
/// that holds a lock makes it sleep.
class Punctuality
{
public:
    void Begin()
    {
        mReady = GetReadyTime();
        mStart = Clock::now();
    }
    /// \return Whether this process waited for more than 200 ms since Begin().
    bool IsLate() const
    {
        return Clock::now() - mStart - (GetReadyTime() - mReady) > std::chrono::milliseconds(200);
    }

private:
    Clock::time_point mStart;
    std::chrono::nanoseconds mReady{0};
};

/// Lists, serves and attaches, as a bridge and its client do.
int ServeAndAttach(const std::string& aName)
{
    SharedRegistry lRegistry(true);
    const std::vector<SharedRegistryEntry> lEntries = lRegistry.GetEntries();
    const bool lForeign = std::any_of(lEntries.begin(), lEntries.end(),
                                      [](const SharedRegistryEntry& aEntry)
                                      { return std::string_view(aEntry.mName).substr(0, 4) == "Trap"; });
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    NamedSemaphore lAttached;
    SharedRegistry lClients(true);
    if (!lRegistry.AcquireServer(aName, lServer, lClient) || !lClients.AcquireClient(aName, lAttached))
    {
        return cNoService | (lForeign ? cForeignServer : 0);
    }
    SharedFifo lWriter(aName, "Local\\", 1024, true);
    SharedFifo lReader(aName, "Local\\", 1024, true);
    uint32_t lWritten = 0;
    std::array<char, 1024> lBytes{};
    uint32_t lRead = 0;
    const bool lRight = lWriter.Write("the own bytes", 13, lWritten, 1000) &&
                        lReader.Read(lBytes.data(), 1024, lRead, 1000) &&
                        std::string_view(lBytes.data(), lRead) == "the own bytes";
    SharedRegistry::ReleaseClient(lAttached);
    SharedRegistry::ReleaseServer(lServer, lClient);
    return (lForeign ? cForeignServer : 0) | (lRight ? 0 : cForeignBytes);
}

int BeVictim(const std::string& aName)
{
    constexpr int cRounds = 30;
    int lWrong = 0;
    Punctuality lTime;
    for (int lRound = 0; lRound < cRounds; ++lRound)
    {
        lTime.Begin();
        lWrong |= ServeAndAttach(aName);
        if (lTime.IsLate())
        {
            return lWrong | cLate;
        }
    }
    return lWrong;
}

class SecondUserTest : public OtherUsers, public testing::WithParamInterface<uid_t>
{
protected:
    /// The enemy's folder is open to everybody, so that only the library keeps victims out of it.
    static void OpenToAll(const std::string& aFolder)
    {
        static_cast<void>(::chmod(aFolder.c_str(), 0777));
        for (const auto& lFile : std::filesystem::directory_iterator(aFolder))
        {
            static_cast<void>(::chmod(lFile.path().c_str(), 0666));
        }
    }

    /// Serves as "Trap", with its lock held, and says that it does; to the end of the test.
    static int Squat(const std::string& aFolder, int aReady)
    {
        ::umask(0);
        SharedRegistry lRegistry(true);
        NamedSemaphore lServer;
        NamedSemaphore lClient;
        KyPlatform::NamedMutex lMutex;
        const bool lDone = lRegistry.AcquireServer("Trap", lServer, lClient) &&
                           lRegistry.SetServerActive("Trap", true) &&
                           lMutex.Open("Local\\KySerialBridgeRegistryMutex") && IsOwned(lMutex.Wait(0));
        OpenToAll(aFolder);
        static_cast<void>(::write(aReady, &lDone, 1));
        ::pause();
        return 0;
    }

    /// Writes anything into everything that the enemy may write to, beside the one that serves.
    static int Rewrite(const std::string& aRoot, uid_t aSeed)
    {
        std::mt19937 lRandom(aSeed);
        for (;;)
        {
            std::error_code lIgnored; // files come and go, and most folders are closed to the enemy
            std::filesystem::recursive_directory_iterator lFile(
                aRoot, std::filesystem::directory_options::skip_permission_denied, lIgnored);
            for (; lFile != std::filesystem::recursive_directory_iterator(); lFile.increment(lIgnored))
            {
                const int lOpen = ::open(lFile->path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
                std::array<uint32_t, 64> lBytes{};
                std::generate(lBytes.begin(), lBytes.end(), std::ref(lRandom));
                if (lOpen >= 0)
                {
                    static_cast<void>(::pwrite(lOpen, lBytes.data(), sizeof lBytes, 0));
                    static_cast<void>(::ftruncate(lOpen, lRandom() % 3 == 0 ? 0 : lRandom() % 20000));
                    ::close(lOpen);
                }
            }
            ::usleep(100);
        }
    }

    pid_t StartSquatter()
    {
        int lPipe[2];
        EXPECT_EQ(::pipe(lPipe), 0);
        const uid_t lUser = GetParam();
        const pid_t lEnemy = Start(lUser, {}, [&] { return Squat(GetFolder(lUser), lPipe[1]); });
        bool lReady = false;
        ::close(lPipe[1]);
        EXPECT_EQ(::read(lPipe[0], &lReady, 1), 1);
        EXPECT_TRUE(lReady);
        ::close(lPipe[0]);
        return lEnemy;
    }
};

TEST_P(SecondUserTest, ServerOfAnEnemyIsNotSeenAndItsLockIsNotWaitedFor)
{
    const pid_t lEnemy = StartSquatter();
    EXPECT_EQ(RunAs(0, [] { return BeVictim("Root"); }), 0);
    EXPECT_EQ(RunAs(cOrdinaryUser, [] { return BeVictim("User"); }), 0);
    End(lEnemy);
}

TEST_P(SecondUserTest, FilesThatAnEnemyCutsAndRewritesHarmNobody)
{
    const pid_t lEnemy = StartSquatter();
    const pid_t lWriter = Start(GetParam(), {}, [this] { return Rewrite(mRoot, GetParam()); });
    const pid_t lRoot = Start(0, {}, [] { return BeVictim("Root"); });
    const pid_t lUser = Start(cOrdinaryUser, {}, [] { return BeVictim("User"); });
    EXPECT_EQ(Await(lRoot), 0);
    EXPECT_EQ(Await(lUser), 0);
    End(lWriter);
    End(lEnemy);
}

TEST_P(SecondUserTest, FoldersOfTheVictimsThatAnEnemyMakesFirstAreRefusedAtOnceAndNamed)
{
    ASSERT_EQ(RunAs(GetParam(),
                    [this]
                    {
                        ::umask(0);
                        std::filesystem::create_directory(GetFolder(0));
                        std::filesystem::create_directory(GetFolder(cOrdinaryUser));
                        return 0;
                    }),
              0);
    const std::string lReason = " belongs to user " + std::to_string(GetParam()) + ".";
    for (const uid_t lVictim : {uid_t{0}, cOrdinaryUser})
    {
        EXPECT_EQ(RunAs(lVictim,
                        [&]
                        {
                            JxUtilsLib::SetAssertHandler([](const char*, const char*, int) {});
                            Punctuality lTime;
                            int lWrong = 0;
                            for (int lRound = 0; lRound < 10; ++lRound)
                            {
                                lTime.Begin();
                                SharedRegistry lRegistry(true);
                                NamedSemaphore lServer;
                                NamedSemaphore lClient;
                                const bool lRight = !lRegistry.AcquireServer("A", lServer, lClient) &&
                                                    lRegistry.GetObstacle() == GetFolder(lVictim) + lReason;
                                lWrong |= (lRight ? 0 : cForeignServer) | (lTime.IsLate() ? cLate : 0);
                            }
                            return lWrong;
                        }),
                  0);
        EXPECT_TRUE(std::filesystem::is_empty(GetFolder(lVictim)));
    }
}

INSTANTIATE_TEST_SUITE_P(Users, SecondUserTest, testing::Values(1U, 31U, 32U, 65534U));

} // namespace
