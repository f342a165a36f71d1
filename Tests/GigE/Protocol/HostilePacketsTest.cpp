#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/ControlChannel.h"
#include "Adapters/GigE/Client/MessageChannel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

using KyTest::IsOK;
using Bytes = std::vector<uint8_t>;

// Whatever comes from the network, the client reads and writes inside its buffers, and goes on: a hundred
// thousand packets for each of its channels. Meant for the sanitizers.

namespace
{

constexpr int cPackets = 100000;

/// Random bytes, or a packet that was right before some of its bytes changed.
class Forger
{
public:
    Bytes Forge(const KyGvcp::Packet& aModel)
    {
        const KyGvcp::Bytes lModel = aModel.GetBytes();
        Bytes lBytes(lModel.begin(), lModel.end());
        switch (Pick(4))
        {
        case 0:
            lBytes.resize(Pick(600));
            for (uint8_t& lByte : lBytes)
            {
                lByte = static_cast<uint8_t>(Pick(256));
            }
            break;
        case 1:
            lBytes.resize(Pick(lBytes.size() + 1)); // cut
            break;
        case 2:
            lBytes.resize(lBytes.size() + Pick(600), 0x5A); // with more bytes after it
            break;
        default:
            break;
        }
        for (size_t lChange = Pick(4); lChange > 0 && !lBytes.empty(); --lChange)
        {
            lBytes[Pick(lBytes.size())] = static_cast<uint8_t>(Pick(256));
        }
        return lBytes;
    }

    size_t Pick(size_t aLimit) { return mRandom() % aLimit; }

private:
    std::minstd_rand mRandom{4711};
};

constexpr uint32_t cLocalHost = 0x7F000001;

/// A socket of this computer.
struct Peer
{
    Peer() { EXPECT_TRUE(mSocket.Open({cLocalHost, 0})); }
    void Send(const KyGvcp::Endpoint& aTo, const Bytes& aPacket)
    {
        EXPECT_EQ(mSocket.SendTo(aTo, aPacket), KyGvcp::SocketResult::Done);
    }
    KyGvcp::UdpSocket mSocket;
};

/// Receives acknowledges up to that of aRequest, or for a minute.
bool WaitForAcknowledge(KyGvcp::UdpSocket& aSocket, uint16_t aRequest)
{
    uint8_t lBuffer[KyGvcp::cMaxPacket];
    size_t lSize = 0;
    KyGvcp::Endpoint lFrom;
    while (aSocket.Receive(lBuffer, lSize, &lFrom, std::chrono::seconds(60)) == KyGvcp::SocketResult::Done)
    {
        const auto lAnswer = KyGvcp::ParseAcknowledge({lBuffer, lSize});
        if (lAnswer && lAnswer->mRequestID == aRequest)
        {
            return true;
        }
    }
    return false;
}

KyGvcp::Packet MakeEvent(uint16_t aCode, uint8_t aFlags, uint16_t aRequest, size_t aSize)
{
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(aCode, aFlags, aRequest);
    KyGvcp::AddEvent(lPacket, 0x9000, 1, aRequest, Bytes(aSize, 7));
    return lPacket;
}

Bytes Copy(const KyGvcp::Packet& aPacket)
{
    const KyGvcp::Bytes lBytes = aPacket.GetBytes();
    return {lBytes.begin(), lBytes.end()};
}

TEST(HostilePacketsTest, TheMessageChannelSurvivesAnything)
{
    Peer lDevice;
    KyGigE::MessageChannel lChannel;
    std::atomic<uint64_t> lSum = 0;
    std::atomic<int> lMarks = 0;
    ASSERT_THAT(lChannel.Open(cLocalHost, cLocalHost,
                              [&](const KyGvcp::EventView& aEvent)
                              {
                                  uint64_t lItem = 0;
                                  for (const uint8_t lByte : aEvent.mItem)
                                  {
                                      lItem += lByte; // all that a sink could look at
                                  }
                                  lSum += lItem;
                                  lMarks += aEvent.mData.size() == 3 ? 1 : 0;
                              }),
                IsOK());
    const KyGvcp::Endpoint lTo = lChannel.GetLocal();
    Forger lForger;
    constexpr int cBatch = 50; // so that none is lost in a queue of the system
    for (int lBatch = 1; lBatch <= cPackets / cBatch; ++lBatch)
    {
        for (int lPacket = 0; lPacket < cBatch; ++lPacket)
        {
            const uint16_t lCode = lForger.Pick(2) == 0 ? KyGvcp::cEvent : KyGvcp::cEventData;
            const uint8_t lFlags = lForger.Pick(2) == 0 ? 0x01 : 0x11;
            lDevice.Send(lTo, lForger.Forge(MakeEvent(lCode, lFlags, 0xFFFF, lForger.Pick(500))));
        }
        const auto lRequest = static_cast<uint16_t>(lBatch);
        lDevice.Send(lTo, Copy(MakeEvent(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, lRequest, 3)));
        ASSERT_TRUE(WaitForAcknowledge(lDevice.mSocket, lRequest)) << lBatch;
    }
    lChannel.Close();
    EXPECT_GT(lSum, 0U);
    EXPECT_GE(lMarks, cPackets / cBatch);
}

// A device that answers with forged packets, most of them before the right one.
void Answer(Peer& aDevice, KyGvcp::Waker& aWaker, std::atomic<int>& aForged, const std::atomic<bool>& aStop)
{
    constexpr int cForged = 30; // to each command
    Forger lForger;
    while (!aStop)
    {
        uint8_t lBuffer[KyGvcp::cMaxPacket];
        size_t lSize = 0;
        KyGvcp::Endpoint lFrom;
        if (aDevice.mSocket.Receive(lBuffer, lSize, &lFrom, KyGvcp::cForever, &aWaker) !=
            KyGvcp::SocketResult::Done)
        {
            continue;
        }
        const auto lCommand = KyGvcp::ParseCommand({lBuffer, lSize});
        ASSERT_TRUE(lCommand.has_value());
        const auto lCode = static_cast<uint16_t>(lCommand->mCode + 1);
        for (int lPacket = 0; lPacket < cForged; ++lPacket)
        {
            auto lModel = KyGvcp::Packet::Acknowledge(KyGvcp::cSuccess, lCode, lCommand->mRequestID);
            // Too short for most commands: what is as good as a right one would end the command here.
            lModel.Add(Bytes(lForger.Pick(8) == 0 ? lForger.Pick(540) : lForger.Pick(4), 9));
            aDevice.Send(lFrom, lForger.Forge(lModel));
        }
        aForged += cForged;
        auto lRight = KyGvcp::Packet::Acknowledge(KyGvcp::cSuccess, lCode, lCommand->mRequestID);
        lRight.Add(Bytes(540, 1));
        aDevice.Send(lFrom, Copy(lRight));
    }
}

TEST(HostilePacketsTest, TheControlChannelSurvivesAnything)
{
    Peer lDevice;
    KyGvcp::Waker lWaker;
    std::atomic<bool> lStop = false;
    std::atomic<int> lForged = 0;
    std::thread lThread([&] { Answer(lDevice, lWaker, lForged, lStop); });
    KyGigE::ControlChannel lChannel({200, 50, 100});
    EXPECT_THAT(lChannel.Open(lDevice.mSocket.GetLocal(), 0), IsOK());
    lChannel.Begin();
    Bytes lRead(536);
    int lGood = 0;
    while (lForged < cPackets)
    {
        // Forged refusals and values are as good as right ones; what counts is that each call comes back.
        uint32_t lValue = 0;
        lGood += lChannel.ReadRegister(0, lValue).IsOK() ? 1 : 0;
        lGood += lChannel.ReadMemory(0, lRead.data(), lRead.size()).IsOK() ? 1 : 0;
        lGood += lChannel.WriteMemory(0, lRead.data(), 99).IsOK() ? 1 : 0;
        lChannel.Begin();
    }
    EXPECT_GT(lGood, 100);
    lStop = true;
    lWaker.Wake();
    lThread.join();
}

} // namespace
