// The service goes on when memory is short for a moment: what found none is tried again, or ends and is said to.

#include "ServedDeviceTest.h"
#include "Support/AllocationCounter.h"
#include "Support/WaitFor.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <future>
#include <optional>
#include <string>

using namespace KySerialTool;
using namespace KyTest;
using boost::asio::ip::tcp;

namespace
{

using ServedDeviceNoMemoryTest = ServedDeviceTest<AllocationCounter>;

/// Does something while an allocation of the other threads fails: each in turn, or each aStep-th.
/// \param aRound  What to do before and after the shortage, which it gets as an argument and may end.
template<typename Round>
void ForEachFailure(int aStep, const Round& aRound)
{
    int lFailing = 1;
    bool lFails = true;
    while (lFails)
    {
        SCOPED_TRACE("allocation " + std::to_string(lFailing));
        std::optional<OtherThreadsAllocations> lShortage(std::in_place, lFailing);
        const auto lEndShortage = [&]
        {
            lFails = OtherThreadsAllocations::GetCount() >= lFailing;
            lShortage.reset();
        };
        aRound(lEndShortage);
        lFailing += aStep;
    }
    EXPECT_GT(lFailing, 1 + aStep) << "nothing allocates";
}

// Without a port: the adapter of the simulated camera throws where one of a real camera has a result, and a bridge ends with that.
TEST_F(ServedDeviceNoMemoryTest, IsConnectedWhicheverAllocationOfItsThreadFails)
{
    mEntry.mPorts.clear();
    ForEachFailure(1,
                   [&](const auto& aEndShortage)
                   {
                       Make();
                       EXPECT_TRUE(WaitFor(
                           [this]
                           {
                               mDevice->Update(
                                   mEntry); // a try that failed is due after two seconds otherwise
                               mDevice->Look();
                               return mDevice->GetStatus().mConnected;
                           }));
                       aEndShortage();
                       mDevice.reset();
                   });
}

TEST_F(ServedDeviceNoMemoryTest, AReloadTakesEffectAsAWholeWhicheverAllocationFails)
{
    const TcpHost lTaken(TcpSettings(),
                         mNetwork); // a port of the device that finds its place taken has no bridge
    mEntry.mPorts.at(0).mBridge.mHost.mTcp.mPort = lTaken.GetPort();
    mEntry.mPorts.push_back(mEntry.mPorts.at(0));
    mEntry.mPorts.at(1).mBridge.mPort = KyDeviceSerialUart0;
    ServedDeviceEntry lWithout = mEntry;
    lWithout.mPorts.pop_back();
    Make();
    const auto lAwaitPorts = [this](size_t aCount)
    {
        return WaitFor(
            [&]
            {
                mDevice->Look();
                const std::vector<ServedPortStatus> lPorts = mDevice->GetStatus().mPorts;
                return lPorts.size() == aCount &&
                       std::none_of(lPorts.begin(), lPorts.end(),
                                    [](const ServedPortStatus& aPort) { return aPort.mError.empty(); });
            });
    };
    ASSERT_TRUE(lAwaitPorts(2));
    for (const ServedDeviceEntry& lEntry : {lWithout, mEntry})
    {
        ForEachFailure(1,
                       [&](const auto& aEndShortage)
                       {
                           mDevice->Update(lEntry);
                           EXPECT_TRUE(lAwaitPorts(lEntry.mPorts.size()));
                           aEndShortage();
                           mDevice->Update(lEntry.mPorts.size() == 1 ? mEntry : lWithout);
                           EXPECT_TRUE(lAwaitPorts(3 - lEntry.mPorts.size()));
                       });
        mDevice->Update(lEntry);
        EXPECT_TRUE(lAwaitPorts(lEntry.mPorts.size()));
    }
}

TEST_F(ServedDeviceNoMemoryTest, ALookLeavesTheDeviceFreeWhicheverAllocationFails)
{
    Make();
    ASSERT_TRUE(WaitForPort());
    int lFailed = 0;
    for (bool lHasFailed = true;
         lHasFailed || lFailed == 0;) // a look at a device whose thread is still busy allocates nothing
    {
        const AllocationCounter lShortage(lFailed + 1);
        mDevice->Look();
        lHasFailed = AllocationCounter::GetCount() > lFailed;
        lFailed += lHasFailed ? 1 : 0;
    }
    mDevice->AskToEnd();
    EXPECT_TRUE(WaitFor([this] { return mDevice->HasEnded(); }));
}

class TcpHostNoMemoryTest : public testing::Test
{
protected:
    tcp::socket Connect()
    {
        tcp::socket lClient(mContext);
        lClient.connect({boost::asio::ip::address_v4::loopback(), mHost->GetPort()});
        return lClient;
    }

    void ReadAll(uint64_t aCount)
    {
        std::array<uint8_t, 4096> lBytes{};
        KySerialBridgeRequest lRequest;
        for (uint64_t lRead = 0; lRead < aCount;)
        {
            uint32_t lPiece = 0;
            ASSERT_EQ(mHost->Read(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lPiece, lRequest),
                      IKySerialBridgeHost::ReadEnd::Bytes);
            lRead += lPiece;
        }
    }

    boost::asio::io_context mContext;
    Network mNetwork;
    std::optional<TcpHost> mHost{std::in_place, TcpSettings(), mNetwork};
};

TEST_F(TcpHostNoMemoryTest, AnEndNeedsNone)
{
    const tcp::socket lClient = Connect();
    ASSERT_TRUE(WaitFor([this] { return mHost->GetCounts().mClients == 1; }));
    std::promise<void> lRest; // the network's thread has done what follows the client's entry
    boost::asio::post(mNetwork.Use(), [&] { lRest.set_value(); });
    lRest.get_future().wait();
    const AllocationCounter lNone(1);
    const OtherThreadsAllocations lNoneElsewhere(1);
    mHost.reset();
    EXPECT_EQ(AllocationCounter::GetCount(), 0);
    EXPECT_EQ(OtherThreadsAllocations::GetCount(), 0);
}

// One client at a time: one that has failed and keeps its place would lock all others out.
TEST_F(TcpHostNoMemoryTest, AClientThatFindsNoneLeavesItsPlaceToTheNext)
{
    const std::string lBlock(4096, 'A'); // more than fits into memory that the queue has anyway
    const auto lVisit = [&]
    {
        tcp::socket lClient = Connect();
        boost::system::error_code lGone;
        boost::asio::write(lClient, boost::asio::buffer(lBlock), lGone);
        lClient.shutdown(tcp::socket::shutdown_send, lGone);
        char lByte = 0;
        boost::asio::read(lClient, boost::asio::buffer(&lByte, 1),
                          lGone); // until the host ends the connection
    };
    ForEachFailure(1,
                   [&](const auto& aEndShortage)
                   {
                       const uint64_t lTaken = mHost->GetCounts().mTaken;
                       EXPECT_TRUE(WaitFor(
                           [&]
                           {
                               lVisit();
                               return mHost->GetCounts().mTaken >= lTaken + lBlock.size();
                           }));
                       aEndShortage();
                       ReadAll(mHost->GetCounts().mTaken - lTaken);
                   });
}

} // namespace
