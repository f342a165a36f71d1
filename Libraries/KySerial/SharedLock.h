#pragma once

#include "JxUtilsLib/LockScope.h"

#include <mutex>
#include <shared_mutex>

namespace KySerialLib
{

/// A shared and exclusive lock in which the exclusive side does not starve: it waits for those who share the lock
/// already, and no others come in before it.
///
/// Threads: any. A thread that holds the lock, either way, must not take it again.
class SharedLock
{
public:
    /// Takes the lock beside any number of others; blocks while somebody has it alone or waits for that.
    [[nodiscard]] std::shared_lock<std::shared_mutex> Share()
    {
        const JxUtilsLib::LockScope lScope(mEntry);
        return std::shared_lock<std::shared_mutex>(mUse);
    }

    /// Takes the lock alone; blocks while others have it.
    [[nodiscard]] std::unique_lock<std::shared_mutex> Alone()
    {
        // The entry stays closed while this waits: the standard lock may let new readers pass for ever.
        const JxUtilsLib::LockScope lScope(mEntry);
        return std::unique_lock<std::shared_mutex>(mUse);
    }

private:
    JxUtilsLib::Mutex mEntry;
    std::shared_mutex mUse;
};

} // namespace KySerialLib
