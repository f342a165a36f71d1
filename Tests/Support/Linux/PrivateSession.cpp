#include "Tests/Support/PrivateSession.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "Tests/Support/AllocationPause.h"
#include "Tests/Support/UniqueName.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <unistd.h>

using KyPlatform::gSystem;

namespace
{

uid_t gNumber = 0;

uid_t GetNumber()
{
    return gNumber;
}

/// A session's folder belongs to the user that its name ends in, and so does what is in it; the settings
/// belong to the superuser.
int GetStatus(int aFile, struct stat* aStatus)
{
    constexpr std::string_view cSession = "/Session-";
    const KyTest::AllocationPause lPause;
    const int lResult = ::fstat(aFile, aStatus);
    std::array<char, 512> lPath{};
    const ssize_t lLength =
        ::readlink(("/proc/self/fd/" + std::to_string(aFile)).c_str(), lPath.data(), lPath.size() - 1);
    const std::string lName(lPath.data(), lLength > 0 ? static_cast<size_t>(lLength) : 0);
    const size_t lSession = lName.rfind(cSession);
    aStatus->st_uid = lName == gSystem.mSettings ? 0 : aStatus->st_uid;
    if (lResult == 0 && lSession != std::string::npos)
    {
        aStatus->st_uid =
            static_cast<uid_t>(std::strtoul(lName.c_str() + lSession + cSession.size(), nullptr, 10));
    }
    return lResult;
}

/// Every name is that of the group that shares.
int FindGroup(const char* /*aName*/, struct group* aEntry, char* /*aRoom*/, size_t /*aSize*/,
              struct group** aFound)
{
    aEntry->gr_gid = ::getegid();
    *aFound = aEntry;
    return 0;
}

/// A user's number follows the first letter of its name.
int FindUser(const char* aName, struct passwd* aEntry, char* /*aRoom*/, size_t /*aSize*/,
             struct passwd** aFound)
{
    aEntry->pw_uid = static_cast<uid_t>(std::strtoul(aName + 1, nullptr, 10));
    *aFound = aEntry;
    return 0;
}

} // namespace

PrivateSession::PrivateSession()
    : mToken(UniqueName("KyTest"))
    , mFolder("/dev/shm/" + mToken + "/Session-")
    , mSettings("/dev/shm/" + mToken + "/Settings")
{
    std::filesystem::create_directory("/dev/shm/" + mToken);
    gNumber = cFirstNumber;
    gSystem.mFolder = mFolder.c_str();
    gSystem.mSettings = mSettings.c_str();
    gSystem.mGetUser = &GetNumber;
    gSystem.mGetStatus = &GetStatus;
    gSystem.mFindGroup = &FindGroup;
    gSystem.mFindUser = &FindUser;
}

PrivateSession::~PrivateSession()
{
    gSystem = KyPlatform::GetRealSystem();
    std::filesystem::remove_all("/dev/shm/" + mToken);
}

void PrivateSession::Share(uint32_t aService)
{
    std::ofstream(mSettings) << "group u" << aService << '\n';
    std::filesystem::permissions(mSettings, std::filesystem::perms(0644));
}

void PrivateSession::SetOwnNumber(uint32_t aNumber)
{
    gNumber = aNumber;
}
