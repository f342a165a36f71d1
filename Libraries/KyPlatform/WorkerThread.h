#pragma once

#include <cstdint>

namespace KyPlatform
{

/// A thread of this process with a name that debuggers show.
///
/// States: idle -- Start() --> running -- Join() --> idle. Destruction joins, so the
/// owner has to ask the thread to end before.
/// Threads: one at a time; never the thread itself.
class WorkerThread
{
public:
    /// What the thread runs: gets Start()'s argument, gives Join()'s result. Must not throw.
    using Routine = uint32_t (*)(void*);

    WorkerThread() noexcept = default;
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    /// Starts the thread at once, with the system's usual stack. Its waits end within microseconds of their
    /// time where the system can do that.
    /// \return False: it runs already, aRoutine is null, or the system refused; nothing has changed.
    bool Start(Routine aRoutine, void* aArgument) noexcept;

    /// Names the running thread for debuggers. Windows informs a debugger that is attached at that moment;
    /// Linux keeps the first 15 bytes of the name. \return False: it does not run, or the system refused.
    bool SetName(const char* aName) noexcept;

    /// Waits without time-out until the thread has ended; harmless when idle.
    /// \return What the routine returned; 0 when idle.
    uint32_t Join() noexcept;

    /// Whether Start() has been called, and Join() has not.
    bool IsRunning() const noexcept { return mObject != nullptr; }

private:
    void* mObject = nullptr; // the backend's; null: idle
};

} // namespace KyPlatform
