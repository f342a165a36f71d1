#pragma once

#include "Simulator/Time/Scheduler.h"

#include <memory>
#include <thread>

namespace KySimulator
{

/// The wall clock, with a thread of its own that runs the actions.
///
/// Destroying it drops what has not run and waits for an action that is running, except on its own thread.
class RealScheduler : public Scheduler
{
public:
    RealScheduler();
    ~RealScheduler() override;
    RealScheduler(const RealScheduler&) = delete;
    RealScheduler& operator=(const RealScheduler&) = delete;

    Time Now() const override;
    void At(Time aTime, std::function<void()> aAction) override;

private:
    struct Work;

    static void Run(const std::shared_ptr<Work>& aWork);

    std::shared_ptr<Work> mWork; // shared with the thread, which may outlive the object by an action
    std::thread mThread;
};

} // namespace KySimulator
