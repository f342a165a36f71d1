#include "KyPlatform/Session.h"

#include "KyPlatform/Linux/Obstacle.h"
#include "KyPlatform/Linux/SharedGroup.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <system_error>

namespace KyPlatform
{

namespace
{

std::string Say(const std::string& aPath, const Obstacle& aObstacle)
{
    return aPath + ": " + aObstacle.mWhat +
           (aObstacle.mError != 0 ? ": " + std::generic_category().message(aObstacle.mError) : "") + '.';
}

} // namespace

bool Session::GetOwnNumber(uint32_t& aNumber) noexcept
{
    // What a process may open is decided by its effective user.
    aNumber = gSystem.mGetUser();
    return true;
}

bool Session::GetService(uint32_t& aNumber) noexcept
{
    SharedGroup lShared;
    if (!lShared.Read() || !lShared.mHasService)
    {
        return false;
    }
    aNumber = lShared.mService;
    return true;
}

bool Session::IsShutOut() noexcept
{
    const uid_t lUser = gSystem.mGetUser();
    std::array<char, 256> lPath{};
    std::snprintf(lPath.data(), lPath.size(), "%s%u", gSystem.mFolder, lUser);
    // O_NOFOLLOW opens a link itself, which is then no folder.
    const int lFolder = gSystem.mOpen(AT_FDCWD, lPath.data(), O_PATH | O_NOFOLLOW | O_CLOEXEC, 0);
    struct stat lStatus = {};
    // Where there is no folder yet, a later try can still make it.
    if (lFolder < 0)
    {
        return false;
    }
    const bool lIsKnown = gSystem.mGetStatus(lFolder, &lStatus) == 0;
    gSystem.mClose(lFolder);
    return lIsKnown && (!S_ISDIR(lStatus.st_mode) || lStatus.st_uid != lUser);
}

void Session::ForgetObstacle() noexcept
{
    Obstacle::Forget();
}

std::string Session::GetObstacle()
{
    const Obstacle lNoted = Obstacle::Get();
    const uid_t lUser = gSystem.mGetUser();
    const std::string lPath = gSystem.mFolder + std::to_string(lUser);
    const int lFolder = gSystem.mOpen(AT_FDCWD, lPath.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC, 0);
    struct stat lStatus = {};
    if (lFolder < 0 || gSystem.mGetStatus(lFolder, &lStatus) != 0)
    {
        const int lError = errno;
        if (lFolder >= 0)
        {
            gSystem.mClose(lFolder);
        }
        if (lNoted.mWhat != nullptr)
        {
            return Say(lPath, lNoted);
        }
        return lFolder < 0 && lError == ENOENT ? std::string() : lPath + " cannot be opened.";
    }
    gSystem.mClose(lFolder);
    // What is wrong with the folder says more than the failure that has come of it.
    if (!S_ISDIR(lStatus.st_mode))
    {
        return lPath + " is not a folder.";
    }
    if (lStatus.st_uid != lUser)
    {
        return lPath + " belongs to user " + std::to_string(lStatus.st_uid) + ".";
    }
    if ((lStatus.st_mode & S_IRWXU) != S_IRWXU)
    {
        return lPath + " does not let its owner in.";
    }
    return lNoted.mWhat != nullptr ? Say(lPath, lNoted) : std::string();
}

} // namespace KyPlatform
