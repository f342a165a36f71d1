#include "Platform/StandardStreams.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

namespace KyToolPlatform
{

using namespace KyPlatform;

bool StandardStreams::Complete() noexcept
{
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        // A stream that is closed would be given to the next file that is opened, and messages would be written
        // into it.
        if (::fcntl(lStream, F_GETFD) != -1 || errno != EBADF)
        {
            continue;
        }
        const int lNull = gSystem.mOpen(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC, 0);
        const bool lDone = lNull >= 0 && ::dup2(lNull, lStream) == lStream;
        if (lNull >= 0)
        {
            gSystem.mClose(lNull);
        }
        if (!lDone)
        {
            return false;
        }
    }
    return true;
}

bool StandardStreams::IsErrorJournal() noexcept
{
    // A program that was started with another error output inherits the variable all the same.
    const char* const lText =
        std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    struct stat lFile = {};
    if (lText == nullptr || ::fstat(STDERR_FILENO, &lFile) != 0)
    {
        return false;
    }
    unsigned long long lDevice = 0;
    unsigned long long lNumber = 0;
    return std::sscanf(lText, "%llu:%llu", &lDevice, &lNumber) == 2 && lDevice == lFile.st_dev &&
           lNumber == lFile.st_ino;
}

} // namespace KyToolPlatform
