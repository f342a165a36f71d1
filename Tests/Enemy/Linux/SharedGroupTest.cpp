// The group that the administrator names: its members use one another's objects, and nobody else does.

#include "Tests/Support/Linux/OtherUsers.h"
#include "sharedregistry.h"

#include <cstring>
#include <fstream>
#include <pwd.h>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;

namespace
{

constexpr gid_t cGroup = 4711;
constexpr uid_t cService = 997;
constexpr uid_t cMember = 1000;
constexpr uid_t cStranger = 1001;

class SharedGroupTest : public OtherUsers
{
protected:
    void SetUp() override
    {
        OtherUsers::SetUp();
        if (!IsSkipped())
        {
            WriteSettings(std::to_string(cGroup) + ' ' + std::to_string(cService) + '\n');
        }
    }

    void WriteSettings(const std::string& aText)
    {
        std::ofstream(mSettings) << aText;
        ASSERT_EQ(::chmod(mSettings.c_str(), 0644), 0);
    }

    /// Serves in the group until it is killed.
    pid_t StartService(uid_t aUser, gid_t aGroup = cGroup)
    {
        int lPipe[2];
        EXPECT_EQ(::pipe(lPipe), 0);
        const pid_t lService = Start(aUser, {aGroup},
                                     [&]
                                     {
                                         SharedRegistry lRegistry(true);
                                         NamedSemaphore lServer;
                                         NamedSemaphore lClient;
                                         const bool lDone =
                                             lRegistry.AcquireServer("Service", lServer, lClient) &&
                                             lRegistry.SetServerActive("Service", true);
                                         static_cast<void>(::write(lPipe[1], &lDone, 1));
                                         ::pause();
                                         return 0;
                                     });
        bool lReady = false;
        ::close(lPipe[1]);
        EXPECT_EQ(::read(lPipe[0], &lReady, 1), 1);
        EXPECT_TRUE(lReady);
        ::close(lPipe[0]);
        return lService;
    }

    /// \return 1: the service is found, and its client's place is taken.
    static int Attach()
    {
        SharedRegistry lRegistry(true);
        NamedSemaphore lClient;
        const bool lDone = lRegistry.AcquireClient("Service", lClient);
        if (lDone)
        {
            SharedRegistry::ReleaseClient(lClient);
        }
        return lDone ? 1 : 0;
    }

    static bool IsSkipped() { return ::geteuid() != 0; }
};

TEST_F(SharedGroupTest, MembersFindTheServiceAndStrangersAndRootDoNot)
{
    const pid_t lService = StartService(cService);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 1);
    EXPECT_EQ(RunAs(cStranger, Attach), 0);
    EXPECT_EQ(RunAs(0, Attach), 0); // not in the group
    struct stat lFolder = {};
    ASSERT_EQ(::stat(GetFolder(cService).c_str(), &lFolder), 0);
    EXPECT_EQ(lFolder.st_gid, cGroup);
    EXPECT_EQ(lFolder.st_mode & 07777U, 0710U); // nobody else lists or makes anything
    End(lService);
}

TEST_F(SharedGroupTest, PlaceOfAMemberThatIsKilledIsFreedByTheServer)
{
    SharedRegistry lRegistry(true);
    NamedSemaphore lServer;
    NamedSemaphore lClient;
    ASSERT_TRUE(lRegistry.AcquireServer("Service", lServer, lClient));
    EXPECT_FALSE(lRegistry.FreeDeadClient(lClient)); // no client is there
    const auto lDie = []
    {
        SharedRegistry lOwn(true);
        NamedSemaphore lPlace;
        return lOwn.AcquireClient("Service", lPlace) ? (::kill(::getpid(), SIGKILL), 0) : 1;
    };
    EXPECT_EQ(RunAs(0, lDie), -1);
    NamedSemaphore lNext;
    EXPECT_FALSE(lRegistry.AcquireClient("Service", lNext));
    EXPECT_TRUE(lRegistry.FreeDeadClient(lClient));
    EXPECT_TRUE(lRegistry.AcquireClient("Service", lNext));
    EXPECT_FALSE(lRegistry.FreeDeadClient(lClient)); // it lives
    SharedRegistry::ReleaseClient(lNext);
    SharedRegistry::ReleaseServer(lServer, lClient);
}

TEST_F(SharedGroupTest, SettingsThatOthersCouldHaveWrittenOrThatMakeNoSenseAreNoSettings)
{
    const pid_t lService = StartService(cService);
    ASSERT_EQ(RunAs(cMember, Attach, {cGroup}), 1);
    ASSERT_EQ(::chmod(mSettings.c_str(), 0664), 0);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0);
    ASSERT_EQ(::chmod(mSettings.c_str(), 0644), 0);
    ASSERT_EQ(::chown(mSettings.c_str(), cMember, 0), 0);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0);
    ASSERT_EQ(::chown(mSettings.c_str(), 0, 0), 0);
    for (const char* lText :
         {"", "\n", "no-such-group 997", "4711 no-such-user", "4711 997 more", "4712 997"})
    {
        WriteSettings(lText);
        EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0) << lText;
    }
    WriteSettings("\t4711   997 \r\nwhat follows does not count");
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 1);
    End(lService);
}

TEST_F(SharedGroupTest, GroupAndServiceMayBeGivenByTheirNames)
{
    const struct passwd* const lUser = ::getpwnam("nobody");  // NOLINT(concurrency-mt-unsafe): one thread
    const struct group* const lGroup = ::getgrnam("nogroup"); // NOLINT(concurrency-mt-unsafe)
    if (lUser == nullptr || lGroup == nullptr)
    {
        GTEST_SKIP() << "this system has no such user or group";
    }
    const gid_t lNumber = lGroup->gr_gid;
    WriteSettings("nogroup nobody\n");
    const pid_t lService = StartService(lUser->pw_uid, lNumber);
    EXPECT_EQ(RunAs(cMember, Attach, {lNumber}), 1);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0);
    End(lService);
}

TEST_F(SharedGroupTest, FolderAndFilesOfAnotherGroupAreNotOpened)
{
    const pid_t lService = StartService(5); // found by its number alone
    ASSERT_EQ(RunAs(cMember, Attach, {cGroup}), 1);
    const std::string lFile = GetFolder(5) + "/KySerialBridgeRegistryMutex.mutex";
    ASSERT_EQ(::chown(lFile.c_str(), 5, 5), 0);
    ASSERT_EQ(::chmod(lFile.c_str(), 0666), 0);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0);
    ASSERT_EQ(::chown(lFile.c_str(), 5, cGroup), 0);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 1);
    ASSERT_EQ(::chown(GetFolder(5).c_str(), 5, 5), 0);
    ASSERT_EQ(::chmod(GetFolder(5).c_str(), 0777), 0);
    EXPECT_EQ(RunAs(cMember, Attach, {cGroup}), 0);
    End(lService);
}

} // namespace
