#include "GigE/Protocol/ServerFixture.h"

#include <random>

namespace
{

using namespace KyGvcp;
using namespace KyDeviceProtocol;
using namespace KySimulator;

class GvcpHostileInputTest : public ServerFixture, public testing::WithParamInterface<uint32_t>
{
protected:
    uint32_t Random() { return static_cast<uint32_t>(mRandom()); }

    uint32_t RandomAddress()
    {
        constexpr std::array<uint32_t, 12> cKnown = {0,      0x24,   0xE8,    0x200,   0x0A00,   0x0B00,
                                                     0xB838, 0xB84C, 0x10000, 0x20000, 0x100000, 0x80000000};
        return Random() % 4 == 0 ? Random() : cKnown[Random() % cKnown.size()] + 4 * (Random() % 8);
    }

    /// A packet that is right in some ways and wrong in others, on the heap and as long as it is: the
    /// address sanitizer sees a read of one byte more.
    Buffer HalfRight()
    {
        constexpr std::array<uint16_t, 9> cCodes = {cDiscovery,  cReadRegister, cWriteRegister,
                                                    cReadMemory, cWriteMemory,  cEventData,
                                                    cPendingAck, 0x0004,        0x0040};
        Buffer lPacket(Random() % 8 == 0 ? Random() % 1400 : Random() % 64);
        for (uint8_t& lByte : lPacket)
        {
            lByte = static_cast<uint8_t>(Random() & 0xFFU);
        }
        if (lPacket.size() < cHeaderSize || Random() % 16 == 0)
        {
            return lPacket;
        }
        const size_t lLength = Random() % 8 == 0 ? Random() : lPacket.size() - cHeaderSize;
        const uint16_t lCode = cCodes[Random() % cCodes.size()];
        lPacket[0] = 0x42;
        lPacket[1] = static_cast<uint8_t>(Random() % 2);
        lPacket[2] = static_cast<uint8_t>(lCode >> 8U);
        lPacket[3] = static_cast<uint8_t>(lCode & 0xFFU);
        lPacket[4] = static_cast<uint8_t>((lLength >> 8U) & 0xFFU);
        lPacket[5] = static_cast<uint8_t>(lLength & 0xFFU);
        const uint32_t lAddress = RandomAddress();
        for (size_t lIndex = 0; lIndex < 4 && cHeaderSize + lIndex < lPacket.size(); ++lIndex)
        {
            lPacket[cHeaderSize + lIndex] = static_cast<uint8_t>((lAddress >> (24 - 8 * lIndex)) & 0xFFU);
        }
        return lPacket;
    }

    std::mt19937 mRandom{GetParam()}; // the same packets in every run
};

// A hundred thousand packets with the other parameters.
TEST_P(GvcpHostileInputTest, SurvivesAnyPacketsAndStillWorks)
{
    constexpr int cPackets = 25000;
    for (int lCount = 0; lCount < cPackets; ++lCount)
    {
        if (lCount % 50 == 0) // most commands get further with control
        {
            mServer->ReleaseControl();
            TakeControl();
        }
        const Buffer lPacket = HalfRight();
        Receive(Random() % 4 == 0 ? Endpoint{Random(), 1} : cOne, lPacket);
        for (const auto& lSent : mSent)
        {
            ASSERT_LE(lSent.second.size(), cMaxPacket);
            ASSERT_TRUE(ParseAcknowledge(lSent.second).has_value());
        }
        mSent.clear();
        mServer->Step(mNow);
    }
    mServer->ReleaseControl();
    TakeControl();
    EXPECT_EQ(cSuccess, Write(cInterruptEnable, 0x42).mStatus);
    EXPECT_EQ(0x42U, Read(cInterruptEnable).Word());
    const GvcpServer::Counters& lCounters = mServer->GetCounters();
    EXPECT_GT(lCounters.mIgnored, 1000U);
    EXPECT_GT(lCounters.mRefused, 1000U);
    EXPECT_GT(lCounters.mCommands, lCounters.mRefused + 1000U); // the packets were not all nonsense
}

INSTANTIATE_TEST_SUITE_P(Seeds, GvcpHostileInputTest, testing::Range(1U, 5U));

class GvcpMemoryTest : public ServerFixture
{
};

TEST_F(GvcpMemoryTest, RemembersAndKeepsWaitingNoMoreThanItShould)
{
    for (uint16_t lPort = 1; lPort < 1000; ++lPort)
    {
        Receive({1, lPort}, MakeReadRegister(1, 0).GetBytes());
    }
    const uint64_t lBefore = mServer->GetCounters().mRepeated;
    Receive({1, 1}, MakeReadRegister(1, 0).GetBytes()); // forgotten long ago
    EXPECT_EQ(lBefore, mServer->GetCounters().mRepeated);
    TakeControl();
    mFaults.SetSlow(1, std::chrono::seconds(1));
    Write(cInterruptEnable, 1);
    mFaults.Clear();
    for (uint16_t lPort = 1; lPort < 1000; ++lPort)
    {
        Receive({1, lPort}, MakeReadRegister(2, 0).GetBytes());
    }
    mSent.clear();
    Advance(std::chrono::seconds(1));
    EXPECT_EQ(1 + GvcpServer::cQueue, mSent.size());
}

} // namespace
