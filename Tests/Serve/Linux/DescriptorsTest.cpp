// Host sides over TCP in a process that has all the descriptors it may have.

#include "Support/WaitFor.h"
#include "kyserial/Serve/Tcp/TcpHost.h"
#include "kyserial/Serve/Web/WebServer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KySerialTool;
using namespace KyTest;
using boost::asio::ip::tcp;

namespace
{

/// For its life the process has aFree descriptors beyond those that it uses now.
class FewDescriptors
{
public:
    explicit FewDescriptors(rlim_t aFree)
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &mFormer), 0);
        const int lLast = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        EXPECT_GE(lLast, 0);
        ::close(lLast);
        rlimit lLimit = mFormer;
        lLimit.rlim_cur =
            static_cast<rlim_t>(lLast) + aFree; // the lowest free one is the first beyond the used ones
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &lLimit), 0);
    }
    ~FewDescriptors() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &mFormer), 0); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit mFormer{};
};

class DescriptorsTest : public testing::Test
{
protected:
    DescriptorsTest()
    {
        // The lowest free number is the first beyond the used ones then.
        while (mFillers.empty() || (mFillers.back() >= 0 && mFillers.back() < 64))
        {
            mFillers.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
    }
    ~DescriptorsTest() override
    {
        for (const int lFile : mFillers)
        {
            ::close(lFile);
        }
    }

    void Connect(tcp::socket& aSocket, uint16_t aPort)
    {
        aSocket.connect({boost::asio::ip::address_v4::loopback(), aPort});
    }
    tcp::socket Unconnected()
    {
        tcp::socket lSocket(mContext);
        lSocket.open(tcp::v4());
        return lSocket;
    }
    /// Bytes that come before the end of the connection, aSize at the most.
    static std::string Receive(tcp::socket& aSocket, size_t aSize)
    {
        std::string lText(aSize, '\0');
        boost::system::error_code lError;
        lText.resize(boost::asio::read(aSocket, boost::asio::buffer(lText), lError));
        return lText;
    }

    std::vector<int> mFillers;
    Network mNetwork;
    boost::asio::io_context mContext;
};

/// The process gets so few descriptors that a sanitizer's check of an object finds none for the pipe that it looks through, and takes
/// the object for a broken one.
class FewDescriptorsTest : public DescriptorsTest
{
protected:
    void SetUp() override
    {
#if defined(KYTEST_INSTRUMENTED)
        GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
    }
};

TEST_F(FewDescriptorsTest, AClientWaitsUntilThereIsADescriptorAndOthersAreUnharmed)
{
    TcpSettings lSettings;
    lSettings.mClients = TcpClients::Shared;
    TcpHost lHost(lSettings, mNetwork);
    tcp::socket lFirst = Unconnected();
    Connect(lFirst, lHost.GetPort());
    ASSERT_TRUE(WaitFor([&] { return lHost.GetCounts().mAccepted == 1; }));
    tcp::socket lSecond = Unconnected();
    {
        const FewDescriptors lFew(0);
        Connect(lSecond, lHost.GetPort());
        ASSERT_TRUE(WaitFor([&] { return lHost.GetCounts().mFailures >= 3; }));
        const uint64_t lBefore = lHost.GetCounts().mFailures;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        EXPECT_LE(lHost.GetCounts().mFailures - lBefore, 6U); // ten tries a second
        boost::asio::write(lFirst, boost::asio::buffer("A", 1));
        uint8_t lByte = 0;
        uint32_t lRead = 0;
        KySerialBridgeRequest lRequest;
        EXPECT_EQ(lHost.Read(&lByte, 1, lRead, lRequest), IKySerialBridgeHost::ReadEnd::Bytes);
        EXPECT_EQ(lByte, 'A');
        EXPECT_EQ(lHost.Write(reinterpret_cast<const uint8_t*>("READY"), 5), 5U);
        EXPECT_EQ(Receive(lFirst, 5), "READY");
        EXPECT_EQ(lHost.GetCounts().mAccepted, 1U);
    }
    EXPECT_TRUE(WaitFor([&] { return lHost.GetCounts().mAccepted == 2; }));
    EXPECT_EQ(lHost.Write(reinterpret_cast<const uint8_t*>("AGAIN"), 5), 5U);
    EXPECT_EQ(Receive(lSecond, 5), "AGAIN");
    const std::vector<std::string> lNews = lHost.TakeNews();
    ASSERT_EQ(lNews.size(), 1U); // however many tries there were
    EXPECT_EQ(lNews[0], "no client can be taken: Too many open files; trying again");
    EXPECT_TRUE(lHost.TakeNews().empty());
}

TEST_F(FewDescriptorsTest, AHostSideThatWaitsForADescriptorCanBeClosed)
{
    TcpHost lHost(TcpSettings(), mNetwork);
    tcp::socket lClient = Unconnected();
    const FewDescriptors lFew(0);
    Connect(lClient, lHost.GetPort());
    ASSERT_TRUE(WaitFor([&] { return lHost.GetCounts().mFailures > 0; }));
    lHost.Close();
    const uint64_t lFailures = lHost.GetCounts().mFailures;
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // three tries long
    EXPECT_EQ(lHost.GetCounts().mFailures, lFailures);
}

TEST_F(DescriptorsTest, TenThousandConnectionsLeaveTheClientsThatAreThereUnharmed)
{
    TcpSettings lSettings;
    lSettings.mClients = TcpClients::Shared;
    lSettings.mMostClients = 8;
    TcpHost lHost(lSettings, mNetwork);
    std::vector<tcp::socket> lClients;
    for (size_t lCount = 0; lCount < lSettings.mMostClients; ++lCount)
    {
        lClients.push_back(Unconnected());
        Connect(lClients.back(), lHost.GetPort());
    }
    ASSERT_TRUE(WaitFor([&] { return lHost.GetCounts().mAccepted == lSettings.mMostClients; }));
    constexpr uint64_t cMany = 10000;
    const FewDescriptors lFew(3); // both ends of one connection, and one more
    for (uint64_t lCount = 0; lCount < cMany; ++lCount)
    {
        tcp::socket lOther = Unconnected();
        Connect(lOther, lHost.GetPort());
        ASSERT_EQ(Receive(lOther, 1), ""); // the host closes it
    }
    EXPECT_EQ(lHost.GetCounts().mTurnedAway, cMany);
    EXPECT_EQ(lHost.GetCounts().mClients, lSettings.mMostClients);
    EXPECT_EQ(lHost.GetCounts().mDisconnected, 0U);
    const std::vector<std::string> lNews = lHost.TakeNews();
    EXPECT_EQ(std::count(lNews.begin(), lNews.end(),
                         "a client is turned away: 8 are there, and no more are allowed"),
              1);
    EXPECT_EQ(lHost.Write(reinterpret_cast<const uint8_t*>("READY"), 5), 5U);
    for (tcp::socket& lClient : lClients)
    {
        EXPECT_EQ(Receive(lClient, 5), "READY");
    }
}

TEST_F(FewDescriptorsTest, TheWebPageIsThereAgainWhenThereAreDescriptors)
{
    WebServer lServer("127.0.0.1", 0, "",
                      [](const WebServer::Request&) {
                          return WebServer::Answer{200, "text/plain", "good"};
                      });
    tcp::socket lClient = Unconnected();
    std::string lNews;
    {
        const FewDescriptors lFew(0);
        Connect(lClient, lServer.GetPort());
        EXPECT_TRUE(WaitFor([&] { return !(lNews = lServer.TakeNews()).empty(); }));
    }
    EXPECT_EQ(lNews, "no client can be taken: Too many open files; trying again");
    boost::asio::write(lClient,
                       boost::asio::buffer(std::string("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n")));
    EXPECT_EQ(Receive(lClient, 15), "HTTP/1.1 200 OK");
}

} // namespace
