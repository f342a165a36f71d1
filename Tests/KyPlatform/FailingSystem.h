#pragma once

/// Makes one call into the system fail, as seen by the named objects. One at a time; undone by destruction.
class FailingSystem
{
public:
    enum class Error
    {
        Fault,
        Shortage ///< The process has no descriptor or memory left.
    };

    /// \param aCall  The call that fails, counted from 1; 0 only counts.
    explicit FailingSystem(int aCall, Error aError = Error::Fault);
    ~FailingSystem();
    FailingSystem(const FailingSystem&) = delete;
    FailingSystem& operator=(const FailingSystem&) = delete;

    /// From now on none fails. For a system that other threads are using.
    static void Heal();

    /// Calls made so far.
    static int GetCalls();

    /// Calls that taking a free NamedMutex makes. None on Linux, where a free lock is taken in memory.
    static const int cCallsForAFreeLock;
};
