#include "KyPlatform/Linux/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace KyPlatform
{

int MoveUp(int aDescriptor) noexcept
{
    if (aDescriptor < 0 || aDescriptor > STDERR_FILENO)
    {
        return aDescriptor;
    }
    const int lMoved = ::fcntl(aDescriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    // The failure that counts is that of the duplication, whatever the closing says.
    const int lError = errno;
    ::close(aDescriptor);
    errno = lError;
    return lMoved;
}

} // namespace KyPlatform
