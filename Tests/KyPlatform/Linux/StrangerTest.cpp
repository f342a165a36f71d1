// What a process of another user can do to the named objects of this one, and to the folder of its session.

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/NamedSemaphore.h"
#include "KyPlatform/Session.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/Linux/OtherUsers.h"
#include "sharedfifo.h"
#include "sharedregistry.h"

#include <fcntl.h>
#include <fstream>

using namespace KyPlatform;

namespace
{

constexpr uid_t cStranger = 65534;

class StrangerTest : public OtherUsers
{
protected:
    /// The answer of a process of another user.
    static bool AsStranger(const std::function<bool()>& aQuestion)
    {
        const int lStatus = RunAs(cStranger, [&] { return aQuestion() ? 1 : 0; });
        EXPECT_TRUE(lStatus == 0 || lStatus == 1) << lStatus;
        return lStatus == 1;
    }

    bool Make(const std::string& aName)
    {
        bool lNew = false;
        return mMemory.Create("Local\\" + aName, 100, lNew);
    }

    SharedMemory mMemory;
};

TEST_F(StrangerTest, OpensNoObjectOfAServer)
{
    NamedMutex lMutex;
    NamedEvent lEvent;
    NamedSemaphore lSemaphore;
    ASSERT_TRUE(Make("A") && lMutex.Create("Local\\A") && lEvent.Create("Local\\A") &&
                lSemaphore.Create("Local\\A", 1, 1));
    EXPECT_FALSE(AsStranger([] { return SharedMemory().Open("Session\\0\\A"); }));
    EXPECT_FALSE(AsStranger([] { return NamedMutex().Open("Session\\0\\A"); }));
    EXPECT_FALSE(AsStranger([] { return NamedEvent().Open("Session\\0\\A"); }));
    EXPECT_FALSE(AsStranger([] { return NamedSemaphore().Open("Session\\0\\A"); }));
    for (const char* lFile : {"/A.memory", "/A.mutex", "/A.event", "/A.semaphore"})
    {
        EXPECT_FALSE(AsStranger([&] { return ::open((GetFolder() + lFile).c_str(), O_RDONLY) >= 0; }));
        EXPECT_FALSE(AsStranger([&] { return ::unlink((GetFolder() + lFile).c_str()) == 0; }));
    }
    EXPECT_FALSE(AsStranger([&] { return ::rename(GetFolder().c_str(), (mRoot + "/x").c_str()) == 0; }));
    EXPECT_TRUE(SharedMemory().Open("Session\\0\\A")); // the own user opens it
}

TEST_F(StrangerTest, MakesNothingInASessionOfOthers)
{
    ASSERT_TRUE(Make("A"));
    const auto lMake = []
    {
        bool lNew = false;
        return SharedMemory().Create("Session\\0\\B", 100, lNew);
    };
    EXPECT_FALSE(AsStranger(lMake));
    ASSERT_EQ(::chmod(GetFolder().c_str(), 0777), 0);
    EXPECT_FALSE(AsStranger(lMake)); // even in a folder that lets everybody in
    EXPECT_FALSE(std::filesystem::exists(GetFolder() + "/B.memory"));
}

TEST_F(StrangerTest, HasARegistryOfTheirOwn)
{
    KySerialLib::SharedRegistry lRegistry(true);
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(lRegistry.AcquireServer("Server", lServer, lClient));
    ASSERT_TRUE(lRegistry.SetServerActive("Server", true));
    KySerialLib::SharedFifo lFifo("Fifo", "Local\\", 1024, true);
    EXPECT_TRUE(AsStranger(
        []
        {
            KySerialLib::SharedRegistry lOwn(true);
            KySerialLib::SharedRegistryEntry* lEntry = nullptr;
            return lOwn.IsValid() && !lOwn.Find("Server", lEntry);
        }));
    EXPECT_EQ(lRegistry.GetEntries()[0].mServerActive, 1U);
}

TEST_F(StrangerTest, AFolderThatAStrangerMadeFirstIsNotUsedAndItsOwnerIsNamed)
{
    EXPECT_EQ(Session::GetObstacle(), "");
    EXPECT_TRUE(AsStranger(
        [&]
        {
            std::filesystem::create_directory(GetFolder());
            std::ofstream(GetFolder() + "/A.memory") << std::string(100, 'x');
            return ::chmod(GetFolder().c_str(), 0777) == 0;
        }));
    EXPECT_FALSE(Make("A"));
    EXPECT_FALSE(mMemory.Open("Local\\A"));
    EXPECT_EQ(Session::GetObstacle(), GetFolder() + " belongs to user 65534.");
}

TEST_F(StrangerTest, LinksInPlaceOfAFolderAreNotFollowed)
{
    EXPECT_TRUE(AsStranger(
        [&]
        {
            std::filesystem::create_directory(mRoot + "/trap");
            std::filesystem::create_directory_symlink(mRoot + "/trap", GetFolder());
            return true;
        }));
    EXPECT_FALSE(Make("A"));
    EXPECT_EQ(Session::GetObstacle(), GetFolder() + " is not a folder.");
    EXPECT_TRUE(std::filesystem::is_empty(mRoot + "/trap"));
}

TEST_F(StrangerTest, FilesOfOthersAreNotTakenEvenInAnOpenFolder)
{
    SharedMemory lServer;
    bool lNew = false;
    ASSERT_TRUE(lServer.Create("Local\\A", 100, lNew));
    ASSERT_EQ(::chmod(GetFolder().c_str(), 0777), 0);
    EXPECT_TRUE(AsStranger(
        [&]
        {
            const std::string lBait = GetFolder() + "/B.memory";
            std::ofstream(lBait) << std::string(100, 'x');
            std::filesystem::create_symlink("A.memory", GetFolder() + "/C.memory");
            return ::chmod(lBait.c_str(), 0666) == 0;
        }));
    EXPECT_FALSE(Make("B"));
    EXPECT_FALSE(Make("C"));
    std::filesystem::create_hard_link(GetFolder() + "/A.memory", GetFolder() + "/D.memory");
    EXPECT_FALSE(Make("D"));
}

TEST_F(StrangerTest, AFolderThatKeepsItsOwnerOutIsNamed)
{
    ASSERT_TRUE(Make("A"));
    ASSERT_EQ(::chmod(GetFolder().c_str(), 0077), 0);
    EXPECT_EQ(Session::GetObstacle(), GetFolder() + " does not let its owner in.");
}

} // namespace
