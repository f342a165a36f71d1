#pragma once

#include <mutex>
#include <shared_mutex>

namespace KySerialCLib
{

/// Who may be at work on an object: several that go together, or one alone. Whoever wants it alone waits only
/// for those who are there already, however many more come.
class Turns
{
public:
    [[nodiscard]] std::shared_lock<std::shared_mutex> Share()
    {
        const std::lock_guard<std::mutex> lScope(mGate);
        return std::shared_lock<std::shared_mutex>(mUse);
    }

    [[nodiscard]] std::unique_lock<std::shared_mutex> Alone()
    {
        // The gate stays closed while this waits: a shared lock alone may let new readers pass for ever.
        const std::lock_guard<std::mutex> lScope(mGate);
        return std::unique_lock<std::shared_mutex>(mUse);
    }

private:
    std::mutex mGate;
    std::shared_mutex mUse;
};

} // namespace KySerialCLib
