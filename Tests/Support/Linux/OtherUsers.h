#pragma once

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Session.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <grp.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// The sessions' folders in a place with the rights of the real one: everybody may make files there, and remove
/// only their own. Processes of other users are real: the system decides what they can do.
class OtherUsers : public testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
        {
            GTEST_SKIP() << "only root can become another user";
        }
        std::filesystem::create_directory(mRoot);
        ASSERT_EQ(::chmod(mRoot.c_str(), 01777), 0);
        KyPlatform::gSystem.mFolder = mPrefix.c_str();
        KyPlatform::gSystem.mSettings = mSettings.c_str();
        KyPlatform::Session::ForgetObstacle();
    }
    ~OtherUsers() override
    {
        KyPlatform::gSystem = KyPlatform::GetRealSystem();
        std::filesystem::remove_all(mRoot);
    }

    /// Starts a process of a user, in the groups that are given. Its exit status is the result of aDeed; 99: it
    /// could not become that user.
    static pid_t Start(uid_t aUser, const std::vector<gid_t>& aGroups, const std::function<int()>& aDeed)
    {
        const pid_t lProcess = ::fork();
        if (lProcess == 0)
        {
            const auto lGroup = static_cast<gid_t>(aUser);
            const bool lDone = ::setgroups(aGroups.size(), aGroups.data()) == 0 &&
                               ::setresgid(lGroup, lGroup, lGroup) == 0 &&
                               ::setresuid(aUser, aUser, aUser) == 0;
            ::_exit(lDone ? aDeed() : 99);
        }
        return lProcess;
    }

    /// \return The exit status; -1 when a signal ended it.
    static int Await(pid_t aProcess)
    {
        int lStatus = 0;
        EXPECT_EQ(::waitpid(aProcess, &lStatus, 0), aProcess);
        return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -1;
    }

    static int RunAs(uid_t aUser, const std::function<int()>& aDeed, const std::vector<gid_t>& aGroups = {})
    {
        return Await(Start(aUser, aGroups, aDeed));
    }

    /// Kills a process that would run on.
    static void End(pid_t aProcess)
    {
        ::kill(aProcess, SIGKILL);
        int lStatus = 0;
        EXPECT_EQ(::waitpid(aProcess, &lStatus, 0), aProcess);
        EXPECT_TRUE(WIFSIGNALED(lStatus) && WTERMSIG(lStatus) == SIGKILL) << lStatus;
    }

    std::string GetFolder(uid_t aUser = 0) const { return mPrefix + std::to_string(aUser); }

    const std::string mRoot = "/dev/shm/" + UniqueName("KyEnemy");
    const std::string mPrefix = mRoot + "/Session-";
    const std::string mSettings = mRoot + "/settings";
};
