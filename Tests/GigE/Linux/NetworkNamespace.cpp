#include "GigE/NetworkNamespace.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <sched.h>
#include <unistd.h>

namespace KyTest
{

NetworkNamespace::NetworkNamespace() : mThread([this] { Serve(); })
{
    Run(
        [this]
        {
            mThreadNumber = gettid();
            mError = unshare(CLONE_NEWNET) != 0
                         ? "no network namespace: " + std::system_category().message(errno)
                         : std::string();
        });
    if (mError.empty() && !Ip("link set lo up"))
    {
        mError = "no program \"ip\", or the system refuses it";
    }
}

NetworkNamespace::~NetworkNamespace()
{
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        mStop = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void NetworkNamespace::Serve()
{
    std::unique_lock<std::mutex> lLock(mLock);
    while (!mStop)
    {
        if (mWork)
        {
            mWork();
            mWork = nullptr;
            mChanged.notify_all();
        }
        else
        {
            mChanged.wait(lLock);
        }
    }
}

void NetworkNamespace::Run(std::function<void()> aWork)
{
    std::unique_lock<std::mutex> lLock(mLock);
    mWork = std::move(aWork);
    mChanged.notify_all();
    mChanged.wait(lLock, [this] { return !mWork; });
}

bool NetworkNamespace::Ip(const std::string& aArguments)
{
    int lStatus = -1;
    const std::string lCommand = "ip " + aArguments;
    // NOLINTNEXTLINE(concurrency-mt-unsafe, cert-env33-c): this system's is safe, and the words are the test's own
    Run([&] { lStatus = std::system(lCommand.c_str()); });
    return lStatus == 0;
}

} // namespace KyTest
