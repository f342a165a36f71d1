#include "Adapters/GigE/Gvcp/UdpSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>

namespace
{

using namespace KyGvcp;
using namespace std::chrono_literals;

constexpr uint32_t cLocalHost = 0x7F000001;

std::vector<uint8_t> Received(UdpSocket& aSocket, Endpoint* aFrom = nullptr)
{
    std::vector<uint8_t> lBuffer(100);
    size_t lSize = 0;
    EXPECT_EQ(SocketResult::Done, aSocket.Receive(lBuffer, lSize, aFrom, 10s));
    lBuffer.resize(lSize);
    return lBuffer;
}

TEST(UdpSocketTest, ReadsAndWritesAddresses)
{
    EXPECT_EQ(0x7F000209U, ParseAddress("127.0.2.9"));
    EXPECT_EQ("127.0.2.9", AddressText(0x7F000209));
    EXPECT_EQ("255.255.255.255:3956", EndpointText({cBroadcastAddress, 3956}));
    for (const char* const lText : {"", "localhost", "127.0.0", "127.0.0.256", "1.2.3.4.5", " 127.0.0.1"})
    {
        EXPECT_FALSE(ParseAddress(lText).has_value()) << lText;
    }
}

class UdpSocketPairTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(mServer.Open({cLocalHost, 0})) << mServer.GetError();
        ASSERT_TRUE(mClient.Open({cLocalHost, 0})) << mClient.GetError();
        ASSERT_TRUE(mClient.Connect(mServer.GetLocal())) << mClient.GetError();
    }

    UdpSocket mServer;
    UdpSocket mClient;
    std::array<uint8_t, 16> mBuffer{};
    size_t mSize = 0;
};

TEST_F(UdpSocketPairTest, CarriesDatagramsBothWays)
{
    const std::vector<uint8_t> lPing = {1, 2, 3};
    EXPECT_EQ(SocketResult::Done, mClient.Send(lPing));
    Endpoint lFrom;
    EXPECT_EQ(lPing, Received(mServer, &lFrom));
    EXPECT_EQ(mClient.GetLocal(), lFrom);
    EXPECT_EQ(SocketResult::Done, mServer.SendTo(lFrom, {}));
    EXPECT_THAT(Received(mClient), testing::IsEmpty());
}

TEST_F(UdpSocketPairTest, CutsADatagramThatIsLongerThanTheBuffer)
{
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(20, 7)));
    EXPECT_EQ(SocketResult::Done, mServer.Receive(mBuffer, mSize, nullptr, 10s));
    EXPECT_EQ(mBuffer.size(), mSize);
}

TEST_F(UdpSocketPairTest, EndsAWaitAfterItsTime)
{
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 20ms));
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, 20ms);
    EXPECT_EQ(0U, mSize);
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 0ms));
}

TEST_F(UdpSocketPairTest, AWakerEndsOneWait)
{
    Waker lWaker;
    ASSERT_TRUE(lWaker.IsValid());
    lWaker.Wake();
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Woken, mServer.Receive(mBuffer, mSize, nullptr, cForever, &lWaker));
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 0ms, &lWaker));
    std::thread lOther([&] { lWaker.Wake(); });
    EXPECT_EQ(SocketResult::Woken, mServer.Receive(mBuffer, mSize, nullptr, cForever, &lWaker));
    lOther.join();
}

TEST_F(UdpSocketPairTest, AWakersMomentEndsOneWait)
{
    Waker lWaker;
    const auto lStart = std::chrono::steady_clock::now();
    ASSERT_TRUE(lWaker.EndBy(lStart + 20ms));
    ASSERT_TRUE(lWaker.EndBy(lStart + 30s)); // the earlier one counts
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, cForever, &lWaker));
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, 20ms);
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Woken, mServer.Receive(mBuffer, mSize, nullptr, cForever, &lWaker));
    ASSERT_TRUE(lWaker.EndBy({})); // gone by
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, cForever, &lWaker));
}

// Whoever looks after each wait misses neither.
TEST_F(UdpSocketPairTest, ADatagramAndAWakeGoBeforeTheWakersMoment)
{
    Waker lWaker;
    ASSERT_TRUE(lWaker.EndBy({}));
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7)));
    EXPECT_EQ(SocketResult::Done, mServer.Receive(mBuffer, mSize, nullptr, 10s, &lWaker));
    EXPECT_EQ(SocketResult::Woken, mServer.Receive(mBuffer, mSize, nullptr, 10s, &lWaker));
}

TEST_F(UdpSocketPairTest, ADatagramGoesBeforeTheWaker)
{
    Waker lWaker;
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7)));
    EXPECT_EQ(SocketResult::Done, mServer.Receive(mBuffer, mSize, nullptr, 10s, &lWaker));
}

TEST_F(UdpSocketPairTest, TellsThatNobodyListensAnyMore)
{
    mServer.Close();
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7)));
    EXPECT_EQ(SocketResult::Refused, mClient.Receive(mBuffer, mSize, nullptr, 10s));
}

TEST_F(UdpSocketPairTest, WaitsForSeveralSockets)
{
    UdpSocket lSecond;
    UdpSocket lClosed;
    ASSERT_TRUE(lSecond.Open({cLocalHost, 0}));
    const std::array<UdpSocket*, 3> lSockets = {&mServer, &lClosed, &lSecond};
    Waker lWaker;
    EXPECT_EQ(SocketResult::TimedOut, UdpSocket::Wait(lSockets, 0ms, &lWaker));
    EXPECT_EQ(SocketResult::Done, mClient.SendTo(mServer.GetLocal(), std::vector<uint8_t>(1, 7)));
    EXPECT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, &lWaker));
    Received(mServer);
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Woken, UdpSocket::Wait(lSockets, 10s, &lWaker));
}

TEST_F(UdpSocketPairTest, TellsWhichSocketsHaveSomething)
{
    UdpSocket lSecond;
    ASSERT_TRUE(lSecond.Open({cLocalHost, 0}));
    const std::array<UdpSocket*, 2> lSockets = {&mServer, &lSecond};
    uint32_t lReady = 7;
    EXPECT_EQ(SocketResult::TimedOut, UdpSocket::Wait(lSockets, 0ms, nullptr, &lReady));
    EXPECT_EQ(0U, lReady);
    EXPECT_EQ(SocketResult::Done, mClient.SendTo(lSecond.GetLocal(), std::vector<uint8_t>(1, 7)));
    EXPECT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, nullptr, &lReady));
    EXPECT_EQ(2U, lReady);
    EXPECT_EQ(SocketResult::Done, mClient.SendTo(mServer.GetLocal(), std::vector<uint8_t>(1, 7)));
    while (lReady != 3)
    {
        ASSERT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, nullptr, &lReady));
    }
}

// The time that the system was told of for one wait does not count for the next one.
TEST_F(UdpSocketPairTest, WaitsOfDifferentLengthFollowEachOther)
{
    for (const auto lTime : {5ms, 40ms, 5ms})
    {
        const auto lStart = std::chrono::steady_clock::now();
        EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, lTime));
        EXPECT_GE(std::chrono::steady_clock::now() - lStart, lTime);
    }
    std::thread lOther([&] { EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7))); });
    EXPECT_EQ(SocketResult::Done, mServer.Receive(mBuffer, mSize, nullptr, cForever));
    lOther.join();
}

TEST_F(UdpSocketPairTest, TellsThatAPortIsTaken)
{
    UdpSocket lSecond;
    EXPECT_FALSE(lSecond.Open(mServer.GetLocal()));
    EXPECT_FALSE(lSecond.IsOpen());
    EXPECT_THAT(lSecond.GetError(), testing::StartsWith(EndpointText(mServer.GetLocal())));
}

TEST_F(UdpSocketPairTest, SharesAPortWhenBothWantTo)
{
    UdpSocket lFirst;
    UdpSocket lSecond;
    ASSERT_TRUE(lFirst.Open({cLocalHost, 0}, true));
    EXPECT_TRUE(lSecond.Open(lFirst.GetLocal(), true)) << lSecond.GetError();
}

TEST(UdpSocketTest, AClosedSocketFails)
{
    UdpSocket lSocket;
    std::array<uint8_t, 1> lBuffer{};
    size_t lSize = 1;
    EXPECT_EQ(SocketResult::Failed, lSocket.Send(lBuffer));
    EXPECT_EQ(SocketResult::Failed, lSocket.Receive(lBuffer, lSize, nullptr, 0ms));
    EXPECT_EQ(0U, lSize);
    EXPECT_EQ(Endpoint(), lSocket.GetLocal());
}

TEST(UdpSocketTest, ListsTheLoopbackInterface)
{
    const std::vector<Interface> lInterfaces = ListInterfaces();
    const auto lLoopback =
        std::find_if(lInterfaces.begin(), lInterfaces.end(),
                     [](const Interface& aInterface) { return aInterface.mAddress == cLocalHost; });
    ASSERT_NE(lInterfaces.end(), lLoopback);
    EXPECT_TRUE(lLoopback->mLoopback);
    EXPECT_EQ(0xFF000000U, lLoopback->mMask);
}

} // namespace
