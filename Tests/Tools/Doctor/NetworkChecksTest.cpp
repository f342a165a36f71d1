#include "kyserial/Doctor/NetworkChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace KySerialTool;
using KyGvcp::Interface;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uint32_t cWide = 0xFFFF0000;   // /16
constexpr uint32_t cNarrow = 0xFFFFFF00; // /24

const Interface cLoopback{"lo", 0x7F000001, 0xFF000000, true, 1, 65536};
const Interface cOffice{"eth0", 0xC0A80105, cNarrow, false, 2, 1500};
const Interface cCameras{"eth1", 0x0A000001, cWide, false, 3, 9000};

/// A device that was named by an address, and by an interface of this computer where one is given.
DeviceWay WayTo(const std::string& aAddress, std::vector<Interface> aInterfaces,
                const std::string& aWanted = {})
{
    DeviceWay lWay;
    lWay.mInterfaces = std::move(aInterfaces);
    lWay.mWanted.mAddress = aAddress;
    lWay.mWanted.mInterface = aWanted;
    return lWay;
}

TEST(InterfaceCheckTest, AnInterfaceIsShownWithTheBitsOfItsNetwork)
{
    EXPECT_EQ("192.168.1.5/24 (eth0)", InterfaceText(cOffice));
    EXPECT_EQ("127.0.0.1/8 (lo)", InterfaceText(cLoopback));
}

TEST(InterfaceCheckTest, InterfacesThatLeadOutwardAreListed)
{
    const CheckFinding lFinding = CheckInterface(WayTo("10.0.0.9", {cLoopback, cOffice, cCameras}));
    EXPECT_EQ(Verdict::Ok, lFinding.mVerdict);
    EXPECT_EQ("192.168.1.5/24 (eth0), 10.0.0.1/16 (eth1)", lFinding.mReason);
}

TEST(InterfaceCheckTest, TheLoopbackAloneLeadsToDevicesOfThisComputerOnly)
{
    EXPECT_EQ(Verdict::Failed, CheckInterface(WayTo("10.0.0.9", {cLoopback})).mVerdict);
    EXPECT_EQ(Verdict::Ok, CheckInterface(WayTo("127.0.0.2", {cLoopback})).mVerdict);
    EXPECT_EQ(Verdict::Failed, CheckInterface(WayTo("camera.example", {})).mVerdict)
        << "a name of a host may be anywhere";
}

// Packets may leave at the interface that the device is not at, whichever of the two networks is the larger one.
TEST(InterfaceCheckTest, TwoInterfacesOfOneNetworkAreAWarning)
{
    const Interface lPart{"eth2", 0x0A000701, cNarrow, false, 4, 1500}; // a part of 10.0.0.0/16
    for (const auto& lTwo : {std::vector{cCameras, lPart}, std::vector{lPart, cCameras}})
    {
        const CheckFinding lFinding = CheckInterface(WayTo("10.0.0.9", lTwo));
        EXPECT_EQ(Verdict::Warning, lFinding.mVerdict);
        EXPECT_THAT(lFinding.mReason, StartsWith("two interfaces have the same network: 10.0.0.1/16 (eth1), "
                                                 "10.0.7.1/24 (eth2)"));
    }
}

TEST(InterfaceCheckTest, TwoAddressesOfOneInterfaceAreNoTwins)
{
    Interface lSecond = cCameras;
    lSecond.mAddress = 0x0A000002;
    EXPECT_EQ(Verdict::Ok, CheckInterface(WayTo("10.0.0.9", {cCameras, lSecond})).mVerdict);
}

// A user who names the interface has decided: twins are no warning then.
TEST(InterfaceCheckTest, ANamedInterfaceIsFoundByItsNameOrItsAddress)
{
    const std::vector<Interface> lTwins = {cOffice, {"eth3", 0xC0A80106, cNarrow, false, 5, 1500}};
    for (const std::string lName : {"eth3", "192.168.1.6"})
    {
        const CheckFinding lFinding = CheckInterface(WayTo("192.168.1.9", lTwins, lName));
        EXPECT_EQ(Verdict::Ok, lFinding.mVerdict);
        EXPECT_THAT(lFinding.mReason, StartsWith("192.168.1.6/24 (eth3)"));
    }
    const CheckFinding lMissing = CheckInterface(WayTo("192.168.1.9", lTwins, "eth4"));
    EXPECT_EQ(Verdict::Failed, lMissing.mVerdict);
    EXPECT_THAT(lMissing.mReason, HasSubstr("no interface eth4 "));
    EXPECT_THAT(lMissing.mAdvice, HasSubstr("192.168.1.5/24 (eth0), 192.168.1.6/24 (eth3)"));
}

TEST(RouteCheckTest, EveryAddressOfTheLoopbackNetworkIsThisComputers)
{
    DeviceWay lWay = WayTo("127.0.0.9", {cOffice, cLoopback});
    const CheckFinding lFinding = CheckRoute(lWay);
    EXPECT_EQ(Verdict::Ok, lFinding.mVerdict) << lFinding.mReason;
    EXPECT_EQ(0x7F000009U, lWay.mDevice);
    ASSERT_TRUE(lWay.mOwn);
    EXPECT_EQ("lo", lWay.mOwn->mName);
    EXPECT_EQ(127U, lWay.mOwn->mAddress >> 24U);
    EXPECT_TRUE(lWay.mNeighbour);
}

TEST(RouteCheckTest, PacketsLeaveFromTheAddressOfTheNamedInterface)
{
    Interface lOther = cLoopback;
    lOther.mAddress = 0x7F000003;
    lOther.mName = "lo:1";
    DeviceWay lWay = WayTo("127.0.0.1", {cLoopback, lOther}, "127.0.0.3");
    EXPECT_EQ(Verdict::Ok, CheckRoute(lWay).mVerdict);
    ASSERT_TRUE(lWay.mOwn);
    EXPECT_EQ(0x7F000003U, lWay.mOwn->mAddress);
}

// The largest packet of the control protocol is 576 bytes with the headers of IP and UDP.
TEST(MtuCheckTest, TheLargestPacketHasToFit)
{
    DeviceWay lWay;
    EXPECT_EQ(Verdict::Warning, CheckMtu(lWay).mVerdict) << "without an interface nothing is known";
    lWay.mOwn = cOffice;
    lWay.mOwn->mMtu = 576;
    EXPECT_EQ(Verdict::Ok, CheckMtu(lWay).mVerdict) << CheckMtu(lWay).mReason;
    lWay.mOwn->mMtu = 575;
    const CheckFinding lFinding = CheckMtu(lWay);
    EXPECT_EQ(Verdict::Failed, lFinding.mVerdict);
    EXPECT_EQ("575 bytes, the control protocol needs 576", lFinding.mReason);
    EXPECT_EQ("set the MTU of eth0 to 1500", lFinding.mAdvice);
    lWay.mOwn->mMtu = 0;
    EXPECT_EQ(Verdict::Warning, CheckMtu(lWay).mVerdict) << "some systems do not say it";
}

} // namespace
