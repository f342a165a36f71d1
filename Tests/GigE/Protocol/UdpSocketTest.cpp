#include "KyGvcp/UdpSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <thread>
#include <vector>

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
    for (const char* const lText :
         {"", "localhost", "127.0.0", "127.0.0.256", "1.2.3.4.5", " 127.0.0.1", "127.0.0.1 ", "127..0.1",
          "127.0.0.01", "127.0.0.-1", "127.0.0.4294967297", "1.2.3.", "0x7f.0.0.1"})
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

// A thread that looks after each wait misses neither.
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

TEST_F(UdpSocketPairTest, ReportsAPeerThatListensNoMoreWhereTheSystemDoes)
{
    mServer.Close();
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7)));
    const bool lReports = UdpSocket::ReportsRefusals();
    EXPECT_EQ(lReports ? SocketResult::Refused : SocketResult::TimedOut,
              mClient.Receive(mBuffer, mSize, nullptr, lReports ? 10s : 100ms));
}

// A device that is switched off must not disturb the others.
TEST_F(UdpSocketPairTest, ASocketWithoutAPeerGoesOnAfterSendingToNobody)
{
    const Endpoint lGone = mClient.GetLocal();
    mClient.Close();
    UdpSocket lOther;
    ASSERT_TRUE(lOther.Open({cLocalHost, 0}));
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        EXPECT_EQ(SocketResult::Done, mServer.SendTo(lGone, std::vector<uint8_t>(1, 1)));
        EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 20ms));
        EXPECT_EQ(SocketResult::Done, mServer.SendTo(lOther.GetLocal(), std::vector<uint8_t>(1, 2)));
        EXPECT_THAT(Received(lOther), testing::ElementsAre(2));
        EXPECT_EQ(SocketResult::Done, lOther.SendTo(mServer.GetLocal(), std::vector<uint8_t>(1, 3)));
        EXPECT_THAT(Received(mServer), testing::ElementsAre(3));
    }
}

// A peer comes and goes: what is sent after its return arrives.
TEST_F(UdpSocketPairTest, ReachesAPeerThatIsBack)
{
    const Endpoint lPeer = mServer.GetLocal();
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        mServer.Close();
        EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 1)));
        static_cast<void>(mClient.Receive(mBuffer, mSize, nullptr, 20ms)); // ignored: a refusal or nothing
        ASSERT_TRUE(mServer.Open(lPeer)) << mServer.GetError();
        EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 2)));
        EXPECT_THAT(Received(mServer), testing::ElementsAre(2));
    }
}

// The network's word that nobody listens must not silence the socket for the time after.
TEST_F(UdpSocketPairTest, HearsAPeerThatIsBack)
{
    const Endpoint lPeer = mServer.GetLocal();
    Waker lWaker;
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        mServer.Close();
        EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 1)));
        static_cast<void>(mClient.Receive(mBuffer, mSize, nullptr, 20ms)); // ignored: a refusal or nothing
        ASSERT_TRUE(mServer.Open(lPeer)) << mServer.GetError();
        EXPECT_EQ(SocketResult::Done, mServer.SendTo(mClient.GetLocal(), std::vector<uint8_t>(1, 2)));
        ASSERT_EQ(SocketResult::Done, mClient.Receive(mBuffer, mSize, nullptr, 10s, &lWaker));
        EXPECT_EQ(2, mBuffer[0]);
    }
}

TEST_F(UdpSocketPairTest, AConnectedSocketHearsItsPeerOnly)
{
    UdpSocket lOther;
    ASSERT_TRUE(lOther.Open({cLocalHost, 0}));
    for (uint8_t lIndex = 0; lIndex < 100; ++lIndex)
    {
        EXPECT_EQ(SocketResult::Done, lOther.SendTo(mClient.GetLocal(), std::vector<uint8_t>(1, 9)));
    }
    EXPECT_EQ(SocketResult::TimedOut, mClient.Receive(mBuffer, mSize, nullptr, 20ms));
    EXPECT_EQ(SocketResult::Done, mServer.SendTo(mClient.GetLocal(), std::vector<uint8_t>(1, 2)));
    EXPECT_THAT(Received(mClient), testing::ElementsAre(2));
}

// The system signals once for what comes before a wait; none of it is left lying.
TEST_F(UdpSocketPairTest, TakesEveryDatagramOfABurst)
{
    constexpr uint8_t cCount = 100;
    Waker lWaker;
    for (uint8_t lIndex = 0; lIndex < cCount; ++lIndex)
    {
        EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, lIndex)));
    }
    const std::array<UdpSocket*, 1> lSockets = {&mServer};
    for (uint8_t lIndex = 0; lIndex < cCount; ++lIndex)
    {
        ASSERT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, &lWaker));
        ASSERT_EQ(SocketResult::Done, mServer.Receive(mBuffer, mSize, nullptr, 0ms));
        EXPECT_EQ(lIndex, mBuffer[0]);
    }
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 0ms));
}

// A wait that nobody has followed up does not use up what it saw.
TEST_F(UdpSocketPairTest, AWaitSeesADatagramUntilItIsTaken)
{
    const std::array<UdpSocket*, 1> lSockets = {&mServer};
    EXPECT_EQ(SocketResult::Done, mClient.Send(std::vector<uint8_t>(1, 7)));
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        EXPECT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, nullptr));
    }
    EXPECT_THAT(Received(mServer), testing::ElementsAre(7));
    EXPECT_EQ(SocketResult::TimedOut, mServer.Receive(mBuffer, mSize, nullptr, 0ms));
}

TEST_F(UdpSocketPairTest, WaitsForMoreSocketsThanTheSystemTakesAtOnce)
{
    std::vector<std::unique_ptr<UdpSocket>> lMany;
    std::vector<UdpSocket*> lSockets;
    for (int lIndex = 0; lIndex < 130; ++lIndex)
    {
        lMany.push_back(std::make_unique<UdpSocket>());
        ASSERT_TRUE(lMany.back()->Open({cLocalHost, 0}));
        lSockets.push_back(lMany.back().get());
    }
    Waker lWaker;
    EXPECT_EQ(SocketResult::TimedOut, UdpSocket::Wait(lSockets, 1ms, &lWaker));
    for (const size_t lIndex : {size_t{129}, size_t{0}, size_t{70}})
    {
        EXPECT_EQ(SocketResult::Done,
                  mClient.SendTo(lSockets[lIndex]->GetLocal(), std::vector<uint8_t>(1, 7)));
        EXPECT_EQ(SocketResult::Done, UdpSocket::Wait(lSockets, 10s, &lWaker));
        EXPECT_THAT(Received(*lSockets[lIndex]), testing::ElementsAre(7));
    }
    lWaker.Wake();
    EXPECT_EQ(SocketResult::Woken, UdpSocket::Wait(lSockets, 10s, &lWaker));
}

// Another program that would like to share gets neither the port nor what comes to it.
TEST_F(UdpSocketPairTest, APortOfItsOwnIsNotShared)
{
    UdpSocket lSecond;
    EXPECT_FALSE(lSecond.Open(mServer.GetLocal(), true));
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

TEST_F(UdpSocketPairTest, ReportsWhichSocketsHaveSomething)
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

// The time that was set for one wait does not count for the next one.
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

TEST_F(UdpSocketPairTest, ReportsAPortThatIsTaken)
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
