#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace KyTest
{

/// Does something again and again on a thread of its own, from construction to destruction.
class Repeater
{
public:
    explicit Repeater(std::function<void()> aAction)
        : mThread(
              [this, lAction = std::move(aAction)]
              {
                  while (!mEnd)
                  {
                      lAction();
                  }
              })
    {
    }
    ~Repeater()
    {
        mEnd = true;
        mThread.join();
    }
    Repeater(const Repeater&) = delete;
    Repeater& operator=(const Repeater&) = delete;

private:
    std::atomic<bool> mEnd{false};
    std::thread mThread; // the last: it uses the other
};

} // namespace KyTest
