#include "GigE/ScriptedDevice.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/ControlChannel.h"
#include "Adapters/GigE/Client/MessageChannel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <random>

using KyTest::IsOK;
using KyTest::ScriptedDevice;
using Bytes = std::vector<uint8_t>;

// Whatever comes from the network, the client reads and writes inside its buffers, and goes on. Meant for the
// address sanitizer; KYSERIAL_HOSTILE_PACKETS gives the number of packets.

namespace
{

int PacketCount()
{
    const char* const lCount =
        std::getenv("KYSERIAL_HOSTILE_PACKETS"); // NOLINT(concurrency-mt-unsafe): one thread
    return lCount != nullptr ? std::atoi(lCount) : 5000;
}

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
            lBytes.resize(lBytes.size() + Pick(600), 0x5A); // with more behind it
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

TEST(HostilePacketsTest, TheMessageChannelSurvivesAnything)
{
    ScriptedDevice lDevice("");
    KyGigE::MessageChannel lChannel;
    std::atomic<uint64_t> lSum = 0;
    ASSERT_THAT(lChannel.Open(0x7F000001, lDevice.GetAddress(),
                              [&](const KyGvcp::EventView& aEvent)
                              {
                                  for (const uint8_t lByte : aEvent.mItem)
                                  {
                                      lSum += lByte; // all that a sink could look at
                                  }
                                  lSum += aEvent.mData.size();
                              }),
                IsOK());
    lDevice.PutWord(KyGvcp::cMessageAddressRegister, 0x7F000001);
    lDevice.PutWord(KyGvcp::cMessagePortRegister, lChannel.GetLocal().mPort);
    Forger lForger;
    for (int lPacket = 0; lPacket < PacketCount(); ++lPacket)
    {
        const auto lRequest = static_cast<uint16_t>(lForger.Pick(65536));
        KyGvcp::Packet lModel =
            KyGvcp::Packet::Command(lForger.Pick(2) == 0 ? KyGvcp::cEvent : KyGvcp::cEventData,
                                    static_cast<uint8_t>(lForger.Pick(2) == 0 ? 0x01 : 0x11), lRequest);
        KyGvcp::AddEvent(lModel, 0x9000, 1, 1, Bytes(lForger.Pick(500), 7));
        lDevice.SendPacket(lForger.Forge(lModel), 0);
        if (lPacket % 50 == 49) // so that none is lost in a queue of the system
        {
            ASSERT_TRUE(lDevice.WaitForAcknowledge(lDevice.SendEvent(0x9001, {1})));
        }
    }
    EXPECT_TRUE(lDevice.WaitForAcknowledge(lDevice.SendEvent(0x9001, {1}, 0x7777)));
    EXPECT_GT(lSum, 0U);
}

TEST(HostilePacketsTest, TheControlChannelSurvivesAnything)
{
    // A peer that sends forged packets before each right one.
    KyGvcp::UdpSocket lPeer;
    ASSERT_TRUE(lPeer.Open({0x7F000001, 0}));
    KyGvcp::Waker lWaker;
    std::atomic<bool> lStop = false;
    std::thread lThread(
        [&]
        {
            Forger lForger;
            while (!lStop)
            {
                uint8_t lBuffer[KyGvcp::cMaxPacket];
                size_t lSize = 0;
                KyGvcp::Endpoint lFrom;
                if (lPeer.Receive(lBuffer, lSize, &lFrom, KyGvcp::cForever, &lWaker) !=
                    KyGvcp::SocketResult::Done)
                {
                    continue;
                }
                const auto lCommand = KyGvcp::ParseCommand({lBuffer, lSize});
                ASSERT_TRUE(lCommand.has_value());
                KyGvcp::Packet lAnswer = KyGvcp::Packet::Acknowledge(
                    KyGvcp::cSuccess, static_cast<uint16_t>(lCommand->mCode + 1), lCommand->mRequestID);
                const Bytes lData(lForger.Pick(540), 9);
                lAnswer.Add(lData);
                for (int lForged = 0; lForged < 8; ++lForged)
                {
                    static_cast<void>(lPeer.SendTo(lFrom, lForger.Forge(lAnswer)));
                }
                lAnswer = KyGvcp::Packet::Acknowledge(
                    KyGvcp::cSuccess, static_cast<uint16_t>(lCommand->mCode + 1), lCommand->mRequestID);
                lAnswer.Add(Bytes(540, 1));
                static_cast<void>(lPeer.SendTo(lFrom, lAnswer.GetBytes()));
            }
        });
    KyGigE::ControlChannel lChannel({200, 50, 100});
    ASSERT_THAT(lChannel.Open(lPeer.GetLocal(), 0), IsOK());
    lChannel.SetShut(false);
    Bytes lRead(536);
    for (int lRound = 0; lRound < PacketCount() / 8; ++lRound)
    {
        // Forged refusals and values are as good as right ones; what counts is that each call comes back.
        uint32_t lValue = 0;
        static_cast<void>(lChannel.ReadRegister(0, lValue));
        static_cast<void>(lChannel.ReadMemory(0, lRead.data(), lRead.size()));
        static_cast<void>(lChannel.WriteMemory(0, lRead.data(), 99));
        lChannel.SetShut(false);
    }
    uint32_t lValue = 0;
    const KyResult lLast = lChannel.ReadRegister(0, lValue);
    EXPECT_TRUE(lLast.IsOK() || lLast.GetCode() >= KyResult::NO_CONNECTION);
    lStop = true;
    lWaker.Wake();
    lThread.join();
}

} // namespace
