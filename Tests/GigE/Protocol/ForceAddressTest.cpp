#include "GigE/Protocol/ServerFixture.h"

namespace
{

using namespace KyGvcp;
using namespace KySimulator;
using testing::SizeIs;

constexpr uint64_t cMac = 0x020304050607;

/// The command as applications broadcast it.
class ForceAddressTest : public ServerFixture
{
protected:
    static Packet Force(uint64_t aMac, uint32_t aAddress, uint8_t aFlags = cAcknowledgeWanted)
    {
        Packet lPacket = Packet::Command(cForceAddress, aFlags, 0xFFFF);
        lPacket.Add32(static_cast<uint32_t>(aMac >> 32U)).Add32(static_cast<uint32_t>(aMac));
        for (const uint32_t lNumber : {aAddress, 0xFFFFFF00U, 0x0A000001U})
        {
            lPacket.Add32(0).Add32(0).Add32(0).Add32(lNumber);
        }
        return lPacket;
    }
};

TEST_F(ForceAddressTest, TheCameraThatIsNamedMoves)
{
    const Answer lAnswer = Ask(Force(cMac, 0x0A000007));
    EXPECT_EQ(cForceAddressAck, lAnswer.mCode);
    EXPECT_EQ(cSuccess, lAnswer.mStatus);
    EXPECT_EQ(0xFFFF, lAnswer.mRequestID);
    ASSERT_THAT(mForced, SizeIs(1));
    EXPECT_EQ(0x0A000007U, mForced[0].mAddress);
    EXPECT_EQ(0xFFFFFF00U, mForced[0].mMask);
    EXPECT_EQ(0x0A000001U, mForced[0].mGateway);
}

TEST_F(ForceAddressTest, OtherCamerasStayAndAreSilent)
{
    for (const uint64_t lMac : {cMac + 1, cMac + (uint64_t{1} << 32U), uint64_t{0}})
    {
        Receive(cOne, Force(lMac, 0x0A000007).GetBytes());
    }
    EXPECT_TRUE(mSent.empty());
    EXPECT_TRUE(mForced.empty());
}

TEST_F(ForceAddressTest, AControlledCameraStays)
{
    TakeControl();
    EXPECT_EQ(cAccessDenied, Ask(Force(cMac, 0x0A000007), cOther).mStatus);
    EXPECT_EQ(cAccessDenied, Ask(Force(cMac, 0x0A000007)).mStatus);
    EXPECT_TRUE(mForced.empty());
}

TEST_F(ForceAddressTest, ACameraThatCannotBeThereSaysSo)
{
    mMayMove = false;
    EXPECT_EQ(cInvalidParameter, Ask(Force(cMac, 0x0A000007)).mStatus);
}

TEST_F(ForceAddressTest, WithoutTheFlagNothingIsAcknowledged)
{
    Receive(cOne, Force(cMac, 0x0A000007, 0).GetBytes());
    EXPECT_TRUE(mSent.empty());
    EXPECT_THAT(mForced, SizeIs(1));
}

TEST_F(ForceAddressTest, AShorterCommandIsIgnored)
{
    const Packet lWhole = Force(cMac, 0x0A000007);
    for (size_t lSize = cHeaderSize; lSize < cHeaderSize + cForceAddressSize; ++lSize)
    {
        Packet lPacket = Packet::Command(cForceAddress, cAcknowledgeWanted, 9);
        lPacket.Add(lWhole.GetBytes().subspan(cHeaderSize, lSize - cHeaderSize));
        Receive(cOne, lPacket.GetBytes());
    }
    EXPECT_TRUE(mSent.empty());
    EXPECT_TRUE(mForced.empty());
}

TEST_F(ForceAddressTest, AnAddressIsStoredAndSwitchedOnInControl)
{
    EXPECT_EQ(cAccessDenied, Write(cPersistentAddressRegister, 1).mStatus);
    TakeControl();
    EXPECT_EQ(cLinkLocal | cPersistentIp, Read(cInterfaceCapabilityRegister).Word());
    for (const uint32_t lRegister :
         {cPersistentAddressRegister, cPersistentMaskRegister, cPersistentGatewayRegister})
    {
        EXPECT_EQ(cSuccess, Write(lRegister, lRegister).mStatus);
        EXPECT_EQ(lRegister, Read(lRegister).Word());
    }
    EXPECT_EQ(cSuccess, Write(cInterfaceConfigurationRegister, 0xFFFFFFFF).mStatus);
    EXPECT_EQ(cLinkLocal | cPersistentIp, Read(cInterfaceConfigurationRegister).Word());
    EXPECT_EQ(cSuccess, Write(cInterfaceConfigurationRegister, 0).mStatus);
    EXPECT_EQ(cLinkLocal, Read(cInterfaceConfigurationRegister).Word()); // no device can switch it off
}

} // namespace
