#pragma once

#include <sys/types.h>

namespace KyPlatform
{

/// The users who may share named objects, as the administrator says: a file of one line, "GROUP" or "GROUP USER", names or
/// numbers. The members of the group use one another's objects; the user's are the service's, which members
/// look for first.
///
/// Without the file, and for a process that is not in the group, every user has only what is his own.
struct SharedGroup
{
    gid_t mGroup = 0;
    bool mHasService = false;
    uid_t mService = 0;

    /// \return False: there is no such file, it is not the superuser's alone to write, it makes no sense, or
    /// the calling process is not in the group.
    bool Read() noexcept;
};

} // namespace KyPlatform
