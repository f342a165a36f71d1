#include "Platform/StandardStreams.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace KyToolPlatform
{

using namespace KyPlatform;

bool StandardStreams::Complete() noexcept
{
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
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

} // namespace KyToolPlatform
