// A service runs for months: what has ended leaves no memory in use, however often it comes.

#include "ServedDeviceTest.h"
#include "Support/AllocationCounter.h"
#include "Support/WaitFor.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <string>

using namespace KySerialTool;
using namespace KyTest;
using boost::asio::ip::tcp;

namespace
{

/// A client that comes, gets what aAnswer makes of what it sends, and goes.
template<typename Answer>
void VisitPort(uint16_t aPort, const std::string& aText, char aLast, const Answer& aAnswer)
{
    boost::asio::io_context lContext;
    tcp::socket lClient(lContext);
    lClient.connect({boost::asio::ip::address_v4::loopback(), aPort});
    boost::asio::write(lClient, boost::asio::buffer(aText));
    aAnswer();
    std::string lReceived;
    boost::asio::read_until(lClient, boost::asio::dynamic_buffer(lReceived), aLast);
}

/// Repeats something, and expects that no block of memory stays each time. Containers and caches reach their sizes in the first rounds;
/// what the network's thread has in hand goes soon.
template<typename Round>
void ExpectNothingStays(const Round& aRound)
{
    constexpr int cFirst = 10;
    constexpr int cRounds = 40;
    for (int lRound = 0; lRound < cFirst; ++lRound)
    {
        aRound();
    }
    const int64_t lBefore = GetAllocatedBytes();
    for (int lRound = 0; lRound < cRounds; ++lRound)
    {
        aRound();
    }
    constexpr int64_t cOneEach = int64_t{cRounds} * 17; // the smallest block
    EXPECT_TRUE(WaitFor([&] { return GetAllocatedBytes() < lBefore + cOneEach; }, std::chrono::seconds(10)))
        << GetAllocatedBytes() - lBefore << " bytes more after " << cRounds << " rounds";
}

using ServedDeviceMemoryTest = ServedDeviceTest<AllocationCounter>;

TEST_F(ServedDeviceMemoryTest, APortThatEndsAndStartsAnewWithEachReload)
{
    Make();
    ASSERT_TRUE(WaitForPort());
    ServedDeviceEntry lWithout = mEntry;
    lWithout.mPorts.clear();
    ExpectNothingStays(
        [&]
        {
            const std::string lHost = GetHost();
            VisitPort(static_cast<uint16_t>(std::stoi(lHost.substr(lHost.rfind(':') + 1))), "STATUS?\r\n",
                      '\n', [] {});
            mDevice->Update(lWithout);
            ASSERT_TRUE(WaitFor([this] { return mDevice->GetStatus().mPorts.empty(); }));
            mDevice->Update(mEntry);
            ASSERT_TRUE(WaitForPort());
        });
}

TEST(TcpHostMemoryTest, AClientThatComesAndGoes)
{
    Network lNetwork;
    TcpSettings lSettings;
    lSettings.mTelnet = true;
    TcpHost lHost(lSettings, lNetwork);
    const std::string lText =
        "\xFF\xFD\x63\xFF\xFA\x2C\x01\xFF\xF0" // an option that it does not have, and a rate without digits
        "A";
    ExpectNothingStays(
        [&]
        {
            VisitPort(lHost.GetPort(), lText, 'B',
                      [&]
                      {
                          uint8_t lByte = 0;
                          uint32_t lRead = 0;
                          KySerialBridgeRequest lRequest;
                          EXPECT_EQ(lHost.Read(&lByte, 1, lRead, lRequest),
                                    IKySerialBridgeHost::ReadEnd::Bytes);
                          EXPECT_EQ(lHost.Write(reinterpret_cast<const uint8_t*>("B"), 1), 1U);
                      });
            ASSERT_TRUE(WaitFor([&] { return lHost.GetCounts().mClients == 0; }));
        });
}

} // namespace
