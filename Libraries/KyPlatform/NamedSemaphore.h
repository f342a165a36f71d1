#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace KyPlatform
{

/// A count between the processes of one machine, found by its name.
///
/// Names and life as NamedMutex. What a process has taken from the count is not given back when it ends: only
/// the last holder's end removes the object, and with it the count.
///
/// Threads: TryTake() and Release() by any thread of an open object; the rest by one thread at a time.
class NamedSemaphore
{
public:
    NamedSemaphore() noexcept = default;
    ~NamedSemaphore() { Close(); }
    NamedSemaphore(NamedSemaphore&& aOther) noexcept : mObject(std::exchange(aOther.mObject, nullptr)) {}
    NamedSemaphore& operator=(NamedSemaphore&& aOther) noexcept
    {
        std::swap(mObject, aOther.mObject);
        return *this;
    }
    NamedSemaphore(const NamedSemaphore&) = delete;
    NamedSemaphore& operator=(const NamedSemaphore&) = delete;

    /// Opens the semaphore of that name as it is, or makes it when there is none. Closes first.
    /// \param aCount    What can be taken from a new one; up to aMaximum.
    /// \param aMaximum  The most that a new one's count can be; 1 to 0x7FFFFFFF.
    /// \return False: an argument is bad, or the system refused; the object is closed.
    bool Create(const std::string& aName, uint32_t aCount, uint32_t aMaximum) noexcept;

    /// Opens the semaphore of that name. Closes first.
    /// \return False: there is none, or the system refused; the object is closed.
    bool Open(const std::string& aName) noexcept;

    /// Whether there is a semaphore of that name.
    /// \return True also when the look lacks memory or descriptors: a process that is short of them must not take
    /// what lives for dead.
    static bool Exists(const std::string& aName) noexcept;

    /// Closes; harmless when closed. Gives nothing back to the count.
    /// \return False: the system refused. The object is closed all the same.
    bool Close() noexcept;

    bool IsValid() const noexcept { return mObject != nullptr; }

    /// Takes one from the count if there is one. Does not block.
    /// \return False: the count is 0, or the object is closed.
    [[nodiscard]] bool TryTake() noexcept;

    /// Gives one to the count. Does not block. Any process may, also one that took nothing.
    /// \return False: the count is at its maximum, or the object is closed; nothing changed.
    bool Release() noexcept;

    /// Whether another object has the semaphore open, of this process or of one that lives. A process that
    /// was killed has nothing open.
    /// \return True also when the object is closed, or the system does not say.
    bool IsHeldByOthers() const noexcept;

private:
    void* mObject = nullptr; // the backend's; null: closed
};

} // namespace KyPlatform
