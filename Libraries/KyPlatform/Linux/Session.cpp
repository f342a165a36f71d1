#include "KyPlatform/Session.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <fcntl.h>

namespace KyPlatform
{

bool Session::GetOwnNumber(uint32_t& aNumber) noexcept
{
    // What a process may open is decided by its effective user.
    aNumber = gSystem.mGetUser();
    return true;
}

std::string Session::GetObstacle()
{
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
        return lFolder < 0 && lError == ENOENT ? std::string() : lPath + " cannot be opened.";
    }
    gSystem.mClose(lFolder);
    if (!S_ISDIR(lStatus.st_mode))
    {
        return lPath + " is not a folder.";
    }
    if (lStatus.st_uid != lUser)
    {
        return lPath + " belongs to user " + std::to_string(lStatus.st_uid) + ".";
    }
    return (lStatus.st_mode & S_IRWXU) == S_IRWXU ? std::string() : lPath + " does not let its owner in.";
}

} // namespace KyPlatform
