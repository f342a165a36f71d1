#include "KySerial/EngineTest.h"
#include "Support/VirtualSlot.h"

#include <future>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cGetID[] = "KySerialLib::PortMap::GetConnectionID";
constexpr char cNoMac[] = "Could not read MAC address from device node map.";
constexpr char cNoVendor[] = "Could not read vendor name from device node map.";
constexpr char cNoSerial[] = "Could not read serial number from device node map.";

class PortMapTest : public EngineTest
{
protected:
    static void MakeAlternate(ScriptedAdapter& aDevice, const std::string& aVendor,
                              const std::string& aSerial)
    {
        aDevice.SetAnswer(Slot::IsGigEVision, false);
        aDevice.SetAnswer(Slot::IsAlternateTransport, true);
        aDevice.SetText("DeviceVendorName", aVendor);
        aDevice.SetText("DeviceSerialNumber", aSerial);
    }

    PortMap mMap;
    ScriptedAdapter mOther;
};

TEST_F(PortMapTest, IdentifiesAGigEVisionDeviceByItsMacAddress)
{
    mDevice.SetInteger("GevMACAddress", 0x00111C010203);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "00:11:1c:01:02:03");
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, IdentifiesAnUnreadableGigEVisionDeviceByAFixedAddress)
{
    mDevice.Fail(Slot::GetIntegerValue);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "00:11:22:33:44:55");
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    EXPECT_EQ(TakeLogOf("PortMap"), (Lines{{PriorityWarning, cGetID, cNoMac}}));
}

TEST_F(PortMapTest, IdentifiesAnotherTransportsDeviceByVendorAndSerialNumber)
{
    MakeAlternate(mDevice, "ACME", "1234");
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "ACME1234");
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"IsGigEVision", "IsAlternateTransport", "GetStringValue(DeviceVendorName)",
                     "GetStringValue(DeviceSerialNumber)"}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, ReplacesUnreadableNamesOfAnotherTransportsDevice)
{
    MakeAlternate(mDevice, "ACME", "1234");
    mDevice.Fail(Slot::GetStringValue, "DeviceVendorName");
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "Unknown1234");
    EXPECT_EQ(TakeLog(), (Lines{{PriorityWarning, cGetID, cNoVendor}}));

    mDevice.StopFailing();
    mDevice.Fail(Slot::GetStringValue, "DeviceSerialNumber");
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "ACME00000000");
    EXPECT_EQ(TakeLog(), (Lines{{PriorityWarning, cGetID, cNoSerial}}));

    mDevice.Fail(Slot::GetStringValue);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "Unknown00000000");
    EXPECT_EQ(TakeLog(), (Lines{{PriorityWarning, cGetID, cNoVendor}, {PriorityWarning, cGetID, cNoSerial}}));
}

TEST_F(PortMapTest, PrefersTheMacAddressOfADeviceThatIsBoth)
{
    mDevice.SetAnswer(Slot::IsAlternateTransport, true);
    mDevice.SetInteger("GevMACAddress", 1);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "00:00:00:00:00:01");
}

TEST_F(PortMapTest, HasNoIdentifierForAnyOtherDevice)
{
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "");
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsGigEVision", "IsAlternateTransport"}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, IdentifiesSilentlyWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    mDevice.Fail(Slot::GetIntegerValue);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "00:11:22:33:44:55");
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    mDevice.SetAnswer(Slot::IsAlternateTransport, true);
    mDevice.Fail(Slot::GetStringValue);
    EXPECT_EQ(PortMap::GetConnectionID(&mDevice), "Unknown00000000");
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, GivesAPortToOneOwnerOnly)
{
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialUart0));
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_FALSE(mMap.Lock(&mDevice, KyDeviceSerialUart0));
    EXPECT_EQ(TakeLogOf("PortMap"), Lines{cClaimed});
    EXPECT_TRUE(mMap.Unlock(&mDevice, KyDeviceSerialUart0));
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialUart0));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, KeepsPortsOfOneDeviceApart)
{
    for (int lPort = 0; lPort < 10; ++lPort)
    {
        EXPECT_TRUE(mMap.Lock(&mDevice, static_cast<KyDeviceSerial>(lPort)));
    }
    EXPECT_TRUE(mMap.Unlock(&mDevice, KyDeviceSerialBulk3));
    for (int lPort = 0; lPort < 10; ++lPort)
    {
        EXPECT_EQ(mMap.Lock(&mDevice, static_cast<KyDeviceSerial>(lPort)), lPort == KyDeviceSerialBulk3);
    }
}

TEST_F(PortMapTest, KnowsADeviceThatTwoAdaptersReach)
{
    mDevice.SetInteger("GevMACAddress", 0x00111C010204);
    mOther.SetInteger("GevMACAddress", 0x00111C010204);
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Lock(&mOther, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Lock(&mOther, KyDeviceSerialBulk1));
    EXPECT_TRUE(mMap.Unlock(&mOther, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Lock(&mOther, KyDeviceSerialBulk0));
}

TEST_F(PortMapTest, KeepsDevicesApartThatHaveAnIdentifier)
{
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Lock(&mOther, KyDeviceSerialBulk0));
    // Those that cannot be read are one to it, and so are those of no known transport.
    mDevice.Fail(Slot::GetIntegerValue);
    mOther.Fail(Slot::GetIntegerValue);
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Lock(&mOther, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Lock(&mOther, KyDeviceSerialBulk1));
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    mOther.SetAnswer(Slot::IsGigEVision, false);
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Lock(&mOther, KyDeviceSerialBulk0));
}

TEST_F(PortMapTest, DoesNotReleaseWhatIsNotClaimed)
{
    EXPECT_FALSE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Unlock(&mDevice, KyDeviceSerialBulk1));
    EXPECT_FALSE(mMap.Unlock(&mOther, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
}

TEST_F(PortMapTest, FollowsADeviceWhoseIdentifierChanges)
{
    // Nothing but the identifier at the time of the call counts.
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    mDevice.Fail(Slot::GetIntegerValue);
    EXPECT_FALSE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
    mDevice.StopFailing();
    EXPECT_TRUE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
}

// Two claims of one device must not both look, then both take: identifying it belongs to the step.
TEST_F(PortMapTest, IdentifiesADeviceUnderTheLockOfTheClaims)
{
    std::vector<std::future<bool>> lOthers;
    const auto lClaim = [&]
    {
        lOthers.push_back(
            std::async(std::launch::async, [&] { return mMap.Lock(&mOther, KyDeviceSerialBulk7); }));
        EXPECT_EQ(lOthers.back().wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    };
    mDevice.OnCall(Slot::GetIntegerValue, lClaim);
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0));
    ASSERT_EQ(lOthers.size(), 1U);
    EXPECT_TRUE(lOthers[0].get());
    EXPECT_TRUE(mMap.Unlock(&mDevice, KyDeviceSerialBulk0));
    ASSERT_EQ(lOthers.size(), 2U);
    EXPECT_FALSE(lOthers[1].get());
}

TEST_F(PortMapTest, IdentifiesADeviceWithoutTheLockOfTheUnsupportedOnes)
{
    std::vector<std::future<bool>> lOthers;
    mDevice.OnCall(Slot::GetIntegerValue,
                   [&]
                   {
                       lOthers.push_back(std::async(std::launch::async,
                                                    [&] { return PortMap::IsKnownUnsupported(&mOther); }));
                       EXPECT_EQ(lOthers.back().wait_for(std::chrono::seconds(10)),
                                 std::future_status::ready);
                   });
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mDevice));
    PortMap::MarkUnsupported(&mDevice);
    EXPECT_EQ(lOthers.size(), 2U);
}

TEST_F(PortMapTest, IsOneForTheProcess)
{
    EXPECT_EQ(&PortMap::GetInstance(), &PortMap::GetInstance());
    EXPECT_TRUE(PortMap::GetInstance().Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_FALSE(PortMap::GetInstance().Lock(&mDevice, KyDeviceSerialBulk0));
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialBulk0)); // another map has other claims
}

TEST_F(PortMapTest, RemembersTheDevicesThatDoNotAnswer)
{
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mDevice));
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    PortMap::MarkUnsupported(&mDevice);
    EXPECT_EQ(mDevice.TakeCalls(), cIdentify);
    PortMap::MarkUnsupported(&mDevice);
    EXPECT_TRUE(PortMap::IsKnownUnsupported(&mDevice));
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mOther));
    mOther.SetInteger("GevMACAddress", 0x00111C010205);
    PortMap::MarkUnsupported(&mOther);
    mDevice.SetInteger("GevMACAddress", 0x00111C010205);
    EXPECT_TRUE(PortMap::IsKnownUnsupported(&mDevice));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(PortMapTest, DoesNotConfuseClaimsWithUnsupportedDevices)
{
    PortMap::MarkUnsupported(&mDevice);
    EXPECT_TRUE(mMap.Lock(&mDevice, KyDeviceSerialUart0));
    EXPECT_TRUE(mMap.Lock(&mOther, KyDeviceSerialUart0));
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mOther));
}

TEST_F(PortMapTest, HasAVirtualDestructorOnly)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<PortMap>);
    EXPECT_EQ(GetVirtualSlot(&PortMap::Lock), -1);
    EXPECT_EQ(GetVirtualSlot(&PortMap::Unlock), -1);
}

} // namespace
