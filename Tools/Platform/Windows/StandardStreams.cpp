#include "Platform/StandardStreams.h"

namespace KyToolPlatform
{

bool StandardStreams::Complete() noexcept
{
    // The runtime marks 0 to 2 as used when the program starts, whether there is a handle for them or not.
    return true;
}

bool StandardStreams::IsErrorJournal() noexcept
{
    return false;
}

} // namespace KyToolPlatform
