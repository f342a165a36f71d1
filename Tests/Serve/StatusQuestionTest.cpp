// The question of "kyserial status", and what may be at the place that it is put to.

#include "kyserial/Serve/Web/WebServer.h"
#include "kyserial/Text/Failure.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

using namespace KySerialTool;
using boost::asio::ip::tcp;

namespace
{

constexpr std::chrono::milliseconds cLimit(50);

std::string Failure(uint16_t aPort)
{
    try
    {
        static_cast<void>(AskStatus("127.0.0.1", aPort, "/status", cLimit));
        return "no failure";
    }
    catch (const OperationError& lError)
    {
        return lError.what();
    }
}

class StatusQuestionTest : public testing::Test
{
protected:
    uint16_t Port() const { return mAcceptor.local_endpoint().port(); }
    std::string TooLate() const
    {
        return "no service answers at 127.0.0.1:" + std::to_string(Port()) + " within 50 ms";
    }

    boost::asio::io_context mContext;
    tcp::acceptor mAcceptor{mContext, {boost::asio::ip::address_v4::loopback(), 0}};
};

TEST_F(StatusQuestionTest, AListenerThatStaysSilentIsAFailure)
{
    EXPECT_EQ(Failure(Port()), TooLate()); // the system takes the connection, and nobody reads the question
}

TEST_F(StatusQuestionTest, AnAnswerInSmallPiecesDoesNotExtendTheTime)
{
    std::thread lServer(
        [this]
        {
            tcp::socket lSocket = mAcceptor.accept();
            boost::system::error_code lError;
            const std::string lHead = "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n";
            boost::asio::write(lSocket, boost::asio::buffer(lHead), lError);
            while (!lError) // until the other side has closed
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                boost::asio::write(lSocket, boost::asio::buffer("x", 1), lError);
            }
        });
    EXPECT_EQ(Failure(Port()), TooLate());
    lServer.join();
}

TEST_F(StatusQuestionTest, AServiceAtEveryIpv6AddressAnswersAtThatOfLoopback)
{
    boost::system::error_code lError;
    const tcp::endpoint lLoopback(boost::asio::ip::address_v6::loopback(), 0);
    tcp::acceptor lProbe(mContext);
    lProbe.open(lLoopback.protocol(), lError);
    if (!lError)
    {
        lProbe.bind(lLoopback, lError);
    }
    if (lError)
    {
        GTEST_SKIP() << "no IPv6 on this system: " << lError.message();
    }
    const WebServer lServer("::", 0, "",
                            [](const auto&) {
                                return WebServer::Answer{200, "text/plain", "here"};
                            });
    EXPECT_EQ(AskStatus("::1", lServer.GetPort(), "/status"), "here");
}

TEST_F(StatusQuestionTest, APlaceWithoutAListenerIsAFailure)
{
    const uint16_t lPort = Port();
    mAcceptor.close();
    const std::string lStart = "no service answers at 127.0.0.1:" + std::to_string(lPort);
    EXPECT_TRUE(Failure(lPort).starts_with(lStart)) << Failure(lPort);
}

} // namespace
