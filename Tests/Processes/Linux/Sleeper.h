#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

/// A thread of the survivor that sleeps without end while the other process dies.
class Sleeper
{
public:
    explicit Sleeper(std::function<void()> aSleep)
        : mThread(
              [this, lSleep = std::move(aSleep)]
              {
                  mStarted = true;
                  lSleep();
                  mDone.set_value();
              })
    {
        while (!mStarted)
        {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200)); // most likely asleep by now
    }
    ~Sleeper() { mThread.join(); }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    bool HasWoken() const { return mFuture.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }

private:
    std::atomic<bool> mStarted{false};
    std::promise<void> mDone;
    std::future<void> mFuture{mDone.get_future()};
    std::thread mThread;
};
