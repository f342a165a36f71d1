#include "KyPlatform/Linux/NamedFile.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using namespace KyPlatform;
using KyTest::ScriptedCall;
using S = SystemCalls;

namespace
{

/// Moves the sessions' folders to one of the test's own.
class NamedFileTest : public testing::Test
{
protected:
    NamedFileTest()
    {
        std::filesystem::create_directory(mRoot);
        gSystem.mFolder = mPrefix.c_str();
    }
    ~NamedFileTest() override
    {
        gSystem = GetRealSystem();
        std::filesystem::remove_all(mRoot);
    }

    static uid_t GetStranger() { return ::geteuid() + 1; }
    std::string GetFolder(uid_t aUser) const { return mPrefix + std::to_string(aUser); }
    std::string GetFile(const std::string& aName) const { return GetFolder(::geteuid()) + "/" + aName; }

    const std::string mRoot = "/dev/shm/" + UniqueName("KyFileTest");
    const std::string mPrefix = mRoot + "/Session-";
    bool mNew = false;
};

TEST_F(NamedFileTest, FolderAndFilesAreTheUsersAlone)
{
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create("Local\\A", 100, mNew));
    struct stat lStatus = {};
    ASSERT_EQ(::stat(GetFolder(::geteuid()).c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 07777U, 0700U);
    ASSERT_EQ(::stat(GetFile("A.memory").c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 07777U, 0600U);
    EXPECT_EQ(lStatus.st_size, 100);
}

TEST_F(NamedFileTest, FolderThatItsUserOpensDoesNotOpenItsFiles)
{
    SharedMemory lFirst;
    ASSERT_TRUE(lFirst.Create("Local\\A", 100, mNew));
    ASSERT_EQ(::chmod(GetFolder(::geteuid()).c_str(), 0777), 0);
    SharedMemory lSecond;
    ASSERT_TRUE(lSecond.Create("Local\\B", 100, mNew));
    struct stat lStatus = {};
    ASSERT_EQ(::stat(GetFile("B.memory").c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 07777U, 0600U);
}

TEST_F(NamedFileTest, OwnSessionsNumberIsTheLocalPrefix)
{
    SharedMemory lFirst;
    SharedMemory lSecond;
    ASSERT_TRUE(lFirst.Create("Local\\A", 100, mNew));
    EXPECT_TRUE(lSecond.Open("Session\\" + std::to_string(::geteuid()) + "\\A"));
}

TEST_F(NamedFileTest, AnothersSessionIsNotEvenLookedAt)
{
    SharedMemory lServer;
    ASSERT_TRUE(lServer.Create("Local\\A", 100, mNew));
    const std::string lName = "Session\\" + std::to_string(::geteuid()) + "\\A";
    gSystem.mGetUser = &GetStranger;
    SharedMemory lClient;
    const ScriptedCall<&S::mOpen> lOpen(
        [](int aFolder, const char* aName, int aFlags, mode_t aMode)
        {
            EXPECT_STREQ(aName, gSystem.mSettings);
            return GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
        });
    EXPECT_FALSE(lClient.Open(lName));
    EXPECT_FALSE(lClient.Create(lName + "New", 100, mNew)); // nobody makes a file there either
    EXPECT_FALSE(std::filesystem::exists(GetFile("ANew.memory")));
}

TEST_F(NamedFileTest, FolderThatIsNotTheSessionsOwnIsNotEntered)
{
    const uid_t lStranger = GetStranger();
    std::filesystem::create_directory(GetFolder(lStranger));
    std::ofstream(GetFolder(lStranger) + "/A.memory") << "bait";
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Session\\" + std::to_string(lStranger) + "\\A"));
    gSystem.mGetUser = &GetStranger;
    EXPECT_FALSE(lMemory.Create("Local\\A", 100, mNew));
}

TEST_F(NamedFileTest, LinksAreNotFollowed)
{
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create("Local\\A", 100, mNew));
    std::filesystem::create_symlink("A.memory", GetFile("B.memory"));
    SharedMemory lLink;
    EXPECT_FALSE(lLink.Open("Local\\B"));
    EXPECT_FALSE(lLink.Create("Local\\B", 100, mNew));
    std::filesystem::create_directory_symlink(GetFolder(::geteuid()), GetFolder(GetStranger()));
    EXPECT_FALSE(lLink.Open("Session\\" + std::to_string(GetStranger()) + "\\A"));
}

TEST_F(NamedFileTest, WhatTheDeadLeftIsMadeAnew)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.memory")) << "stale bytes of a killed process";
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Local\\A"));
    EXPECT_FALSE(std::filesystem::exists(GetFile("A.memory")));
    std::ofstream(GetFile("A.memory")) << "stale bytes of a killed process";
    ASSERT_TRUE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_TRUE(mNew);
    EXPECT_EQ(*static_cast<const uint64_t*>(lMemory.GetBase()), 0U);
}

TEST_F(NamedFileTest, FirstObjectOfAProcessTakesAwayAllThatIsDead)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("X.memory")) << "dead";
    std::filesystem::create_symlink("X.memory", GetFile("Link.memory")); // no object's file: it stays
    std::ofstream(GetFile("Held.memory")) << "alive";
    const int lHolder = ::open(GetFile("Held.memory").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(lHolder, LOCK_SH), 0);
    // In a process of its own, which starts this test anew: this one may have made its first object already.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SharedMemory lMemory;
            const bool lDone = lMemory.Create("Local\\A", 8, mNew) &&
                               !std::filesystem::exists(GetFile("X.memory")) &&
                               std::filesystem::is_symlink(GetFile("Link.memory")) &&
                               std::filesystem::exists(GetFile("Held.memory"));
            std::filesystem::remove_all(mRoot);
            std::_Exit(lDone ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    ::close(lHolder);
}

TEST_F(NamedFileTest, NoFileIsLeft)
{
    {
        SharedMemory lMemory;
        NamedMutex lMutex;
        NamedEvent lEvent;
        ASSERT_TRUE(lMemory.Create("Local\\A", 8, mNew));
        ASSERT_TRUE(lMutex.Create("Local\\A"));
        ASSERT_TRUE(lEvent.Create("Local\\A"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(GetFolder(::geteuid())));
}

TEST_F(NamedFileTest, FileThatIsNoLockIsNotTakenForOne)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.mutex")) << std::string(104, 'x'); // the lock's own size
    const int lHolder = ::open(GetFile("A.mutex").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(lHolder, LOCK_SH), 0);
    NamedMutex lMutex;
    EXPECT_FALSE(lMutex.Open("Local\\A"));
    EXPECT_FALSE(lMutex.Create("Local\\A"));
    ::close(lHolder);
}

TEST_F(NamedFileTest, ChildOfForkTakesNothingAway)
{
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_EXIT(
        {
            lMemory.Close();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(std::filesystem::exists(GetFile("A.memory")));
}

TEST_F(NamedFileTest, LongestNameIsLimited)
{
    SharedMemory lMemory;
    EXPECT_TRUE(lMemory.Create("Local\\" + std::string(200, 'a'), 8, mNew));
    EXPECT_FALSE(lMemory.Create("Local\\" + std::string(201, 'a'), 8, mNew));
    EXPECT_FALSE(lMemory.Create("Local\\", 8, mNew));
}

TEST_F(NamedFileTest, FolderThatCannotBeListedKeepsItsDeadAndIsUsed)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("X.memory")) << "dead";
    const auto lWorks = [this]
    {
        SharedMemory lMemory;
        const bool lDone =
            lMemory.Create("Local\\A", 8, mNew) && std::filesystem::exists(GetFile("X.memory"));
        std::filesystem::remove_all(mRoot);
        std::_Exit(lDone ? 0 : 1);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const ScriptedCall<&S::mOpenList> lOpenList([](int) { return static_cast<DIR*>(nullptr); });
            lWorks();
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            const ScriptedCall<&S::mOpen> lOpen(
                [](int aFolder, const char* aName, int aFlags, mode_t aMode)
                {
                    const bool lIsList = aName == std::string(".") && (aFlags & O_TMPFILE) != O_TMPFILE;
                    return lIsList ? -1 : GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
                });
            lWorks();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(NamedFileTest, NamesOfNoSessionOrNoFileAreRefused)
{
    SharedMemory lMemory;
    for (const std::string& lName :
         std::vector<std::string>{"Session\\x\\A", "Session\\5", "Session\\99999999999\\A", "Session\\5x\\A",
                                  "Session\\", "Session\\-1\\A", "Session\\5\\", "", "Local\\A/B",
                                  "Local\\A\\B", std::string("Local\\A\0B", 9)})
    {
        EXPECT_FALSE(lMemory.Open(lName)) << lName;
        EXPECT_FALSE(lMemory.Create(lName, 8, mNew)) << lName;
    }
    EXPECT_TRUE(std::filesystem::is_empty(mRoot) || std::filesystem::is_empty(GetFolder(::geteuid())));
}

TEST_F(NamedFileTest, WhatIsNoFileIsNoObject)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    ASSERT_EQ(::mkfifo(GetFile("A.memory").c_str(), 0600), 0);
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Local\\A"));
    EXPECT_FALSE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_TRUE(std::filesystem::is_fifo(GetFile("A.memory")));
}

TEST_F(NamedFileTest, FilesOfTheWrongSizeAreNoObjects)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.event")) << "KyE1 and more";
    std::ofstream(GetFile("B.memory")) << "";
    const std::array lHolders = {::open(GetFile("A.event").c_str(), O_RDWR | O_CLOEXEC),
                                 ::open(GetFile("B.memory").c_str(), O_RDWR | O_CLOEXEC)};
    ASSERT_EQ(::flock(lHolders[0], LOCK_SH), 0);
    ASSERT_EQ(::flock(lHolders[1], LOCK_SH), 0);
    NamedEvent lEvent;
    EXPECT_FALSE(lEvent.Open("Local\\A"));
    EXPECT_FALSE(lEvent.Create("Local\\A"));
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Local\\B")); // of no bytes
    ::close(lHolders[0]);
    ::close(lHolders[1]);
}

TEST_F(NamedFileTest, WhatTheDeadLeftAndCannotBeTakenAwayIsInTheWay)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.memory")) << "dead";
    const ScriptedCall<&S::mRemove> lRemove(EPERM);
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Local\\A"));
    EXPECT_FALSE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_TRUE(std::filesystem::exists(GetFile("A.memory")));
}

TEST_F(NamedFileTest, FileThatWasReplacedMeanwhileIsLookedForAgain)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.memory")) << "dead";
    std::ofstream(GetFile("Other")) << "alive";
    const int lHolder = ::open(GetFile("Other").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(lHolder, LOCK_SH), 0);
    int lLocks = 0;
    {
        const ScriptedCall<&S::mLockFile> lLock(
            [&](int aFile, int aOperation)
            {
                if (++lLocks == 1) // another process takes the dead one away and makes its own
                {
                    std::filesystem::rename(GetFile("Other"), GetFile("A.memory"));
                }
                return ::flock(aFile, aOperation);
            });
        SharedMemory lMemory;
        ASSERT_TRUE(lMemory.Create("Local\\A", 8, mNew));
        EXPECT_FALSE(mNew);
        EXPECT_EQ(std::memcmp(lMemory.GetBase(), "alive", 5), 0);
        EXPECT_GT(lLocks, 2);
    }
    ::close(lHolder);
}

TEST_F(NamedFileTest, FileOfAnotherFileSystemIsNotTheOneThatWasOpened)
{
    std::filesystem::create_directory(GetFolder(::geteuid()));
    std::ofstream(GetFile("A.memory")) << "dead";
    int lLooks = 0;
    const ScriptedCall<&S::mGetStatusOf> lStatus(
        [&](int aFolder, const char* aName, struct stat* aStatus, int aFlags)
        {
            const int lResult = ::fstatat(aFolder, aName, aStatus, aFlags);
            aStatus->st_dev += ++lLooks == 1 ? 1 : 0;
            return lResult;
        });
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open("Local\\A"));
    EXPECT_EQ(lLooks, 2); // and the second time it was, and dead
    EXPECT_FALSE(std::filesystem::exists(GetFile("A.memory")));
}

TEST_F(NamedFileTest, FileThatIsJustBeingLookedAtIsWaitedFor)
{
    SharedMemory lFirst;
    ASSERT_TRUE(lFirst.Create("Local\\A", 8, mNew));
    int lRefused = 0;
    const ScriptedCall<&S::mLockFile> lLock(
        [&](int aFile, int aOperation)
        {
            errno = EWOULDBLOCK; // as while a process has it alone
            return (aOperation & LOCK_SH) != 0 && ++lRefused > 20 ? ::flock(aFile, aOperation) : -1;
        });
    SharedMemory lSecond;
    EXPECT_TRUE(lSecond.Open("Local\\A"));
    EXPECT_EQ(lRefused, 21);
}

TEST_F(NamedFileTest, LockThatFailsOtherwiseIsAFailure)
{
    SharedMemory lFirst;
    ASSERT_TRUE(lFirst.Create("Local\\A", 8, mNew));
    int lLocks = 0;
    const ScriptedCall<&S::mLockFile> lLock(
        [&](int, int)
        {
            errno = ++lLocks == 1 ? EWOULDBLOCK : ENOLCK;
            return -1;
        });
    SharedMemory lSecond;
    EXPECT_FALSE(lSecond.Open("Local\\A"));
    EXPECT_EQ(lLocks, 2);
}

TEST_F(NamedFileTest, NameThatAnotherWasFasterToTakeIsOpened)
{
    SharedMemory lFaster;
    int lLinks = 0;
    const ScriptedCall<&S::mLink> lLink(
        [&](int aFrom, const char* aOld, int aTo, const char* aNew, int aFlags)
        {
            bool lNew = false;
            if (++lLinks == 1)
            {
                EXPECT_TRUE(lFaster.Create("Local\\A", 8, lNew));
                EXPECT_TRUE(lNew);
            }
            return ::linkat(aFrom, aOld, aTo, aNew, aFlags);
        });
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_FALSE(mNew);
    std::memcpy(lFaster.GetBase(), "shared", 7);
    EXPECT_STREQ(static_cast<const char*>(lMemory.GetBase()), "shared");
}

TEST_F(NamedFileTest, NameThatCannotBeGivenIsAFailure)
{
    const ScriptedCall<&S::mLink> lLink(ENOSPC);
    SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Create("Local\\A", 8, mNew));
    EXPECT_TRUE(std::filesystem::is_empty(GetFolder(::geteuid())));
}

TEST_F(NamedFileTest, CloseReportsWhatTheSystemRefused)
{
    NamedEvent lEvent;
    ASSERT_TRUE(lEvent.Create("Local\\A"));
    {
        const ScriptedCall<&S::mRemove> lRemove(EPERM);
        EXPECT_FALSE(lEvent.Close());
    }
    EXPECT_FALSE(lEvent.Open("Local\\A")); // nobody holds what is left
    ASSERT_TRUE(lEvent.Create("Local\\A"));
    {
        const ScriptedCall<&S::mClose> lClose(
            [](int aFile)
            {
                ::close(aFile);
                return -1;
            });
        EXPECT_FALSE(lEvent.Close());
    }
    ASSERT_TRUE(lEvent.Create("Local\\A"));
    const ScriptedCall<&S::mUnmap> lUnmap(
        [](void* aBase, size_t aSize)
        {
            ::munmap(aBase, aSize);
            return -1;
        });
    EXPECT_FALSE(lEvent.Close());
}

} // namespace
