#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace KyTest
{

/// A network of its own for a part of a test: a thread in a fresh network namespace, which sockets and
/// programs that it opens and starts stay in. Needs the administrator's rights.
class NetworkNamespace
{
public:
    NetworkNamespace();
    /// Ends the thread. What was made on it has to be gone.
    ~NetworkNamespace();
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;

    /// Why the namespace could not be made; empty when it was.
    const std::string& GetError() const { return mError; }
    /// The system's number of the thread: what "ip link set ... netns" takes.
    int GetThread() const { return mThreadNumber; }
    /// Does something inside and waits for it.
    void Run(std::function<void()> aWork);
    /// Runs "ip ..." inside. \return Whether it succeeded.
    bool Ip(const std::string& aArguments);

private:
    void Serve();

    std::string mError;
    int mThreadNumber = 0;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::function<void()> mWork; // empty: none
    bool mStop = false;
    std::thread mThread;
};

} // namespace KyTest
