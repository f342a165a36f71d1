#include "Benchmarks/Linux/Channels.h"

#include <boost/interprocess/ipc/message_queue.hpp>

#include <algorithm>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace
{

using boost::interprocess::message_queue;

class BoostChannel : public Channel
{
public:
    BoostChannel(size_t aLargest, size_t aMessages)
        : mName("KyBench" + std::to_string(::getpid()) + "x" + std::to_string(++sCount))
        , mOwner(::getpid())
        , mQueue(boost::interprocess::create_only, mName.c_str(), aMessages, aLargest)
        , mMessage(aLargest)
    {
    }
    ~BoostChannel() override
    {
        if (::getpid() == mOwner)
        {
            message_queue::remove(mName.c_str());
        }
    }

    void Send(const void* aData, size_t aSize) override { mQueue.send(aData, aSize, 0); }
    size_t Receive(void* aBuffer, size_t aSize) override
    {
        message_queue::size_type lGot = 0;
        unsigned lPriority = 0;
        // The queue wants room for its longest message.
        mQueue.receive(mMessage.data(), mMessage.size(), lGot, lPriority);
        std::memcpy(aBuffer, mMessage.data(), std::min<size_t>(lGot, aSize));
        return lGot;
    }

private:
    static inline int sCount = 0;
    const std::string mName;
    const pid_t mOwner;
    message_queue mQueue;
    std::vector<char> mMessage;
};

} // namespace

std::unique_ptr<Channel> MakeBoostQueue(size_t aLargest, size_t aMessages)
{
    return std::make_unique<BoostChannel>(aLargest, aMessages);
}
