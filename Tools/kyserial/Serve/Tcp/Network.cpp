#include "kyserial/Serve/Tcp/Network.h"

#include "kyserial/Text/Failure.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <exception>
#include <mutex>
#include <string>
#include <thread>

namespace KySerialTool
{

struct Network::Parts
{
    boost::asio::io_context mContext{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork{mContext.get_executor()};
    std::once_flag mStarted{};
    std::thread mThread{};

    // A connection for which there is no memory ends; the others go on.
    void Run()
    {
        for (bool lGoesOn = true; lGoesOn;)
        {
            try
            {
                mContext.run();
                lGoesOn = false;
            }
            catch (const std::exception& lError)
            {
                PrintError(std::string("a connection failed: ") + lError.what());
            }
        }
    }
};

Network::Network() : mThis(std::make_unique<Parts>()) {}

Network::~Network()
{
    // The thread ends when nothing is left to do: what hosts have posted at their end is still carried out.
    mThis->mWork.reset();
    if (mThis->mThread.joinable())
    {
        mThis->mThread.join();
    }
}

boost::asio::io_context& Network::Use()
{
    std::call_once(mThis->mStarted, [this] { mThis->mThread = std::thread([this] { mThis->Run(); }); });
    return mThis->mContext;
}

} // namespace KySerialTool
