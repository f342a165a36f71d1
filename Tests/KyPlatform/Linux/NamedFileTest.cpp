#include "KyPlatform/Linux/NamedFile.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <unistd.h>

using namespace KyPlatform;

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

TEST_F(NamedFileTest, OpenFolderOpensItsFiles)
{
    SharedMemory lFirst;
    ASSERT_TRUE(lFirst.Create("Local\\A", 100, mNew));
    ASSERT_EQ(::chmod(GetFolder(::geteuid()).c_str(), 0770), 0);
    SharedMemory lSecond;
    ASSERT_TRUE(lSecond.Create("Local\\B", 100, mNew));
    struct stat lStatus = {};
    ASSERT_EQ(::stat(GetFile("B.memory").c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 07777U, 0660U);
}

TEST_F(NamedFileTest, OwnSessionsNumberIsTheLocalPrefix)
{
    SharedMemory lFirst;
    SharedMemory lSecond;
    ASSERT_TRUE(lFirst.Create("Local\\A", 100, mNew));
    EXPECT_TRUE(lSecond.Open("Session\\" + std::to_string(::geteuid()) + "\\A"));
}

TEST_F(NamedFileTest, AnothersSessionIsReachedWhereTheFileSystemLets)
{
    gSystem.mGetUser = &GetStranger;
    const std::string lName = "Session\\" + std::to_string(::geteuid()) + "\\A";
    SharedMemory lServer;
    SharedMemory lClient;
    EXPECT_FALSE(lServer.Create(lName, 100, mNew)); // nobody makes the folder of another
    gSystem.mGetUser = &::geteuid;
    ASSERT_TRUE(lServer.Create("Local\\A", 100, mNew));
    gSystem.mGetUser = &GetStranger;
    EXPECT_TRUE(lClient.Open(lName));
    EXPECT_FALSE(lClient.Open("Local\\A"));
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
                               std::filesystem::exists(GetFile("Held.memory"));
            std::filesystem::remove_all(mRoot);
            std::_Exit(lDone ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    ::close(lHolder);
}

TEST_F(NamedFileTest, NothingIsLeftBehind)
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

} // namespace
