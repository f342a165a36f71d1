#include "KySerial/EngineTest.h"
#include "Support/VirtualSlot.h"

#include <future>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cGetID[] = "KySerialLib::PortMap::GetConnectionID";

class PortMapTest : public EngineTest
{
protected:
    // The device has this identifier, after these calls; what could not be read is logged.
    void ExpectID(const std::string& aID, const Calls& aCalls, const Lines& aLines)
    {
        EXPECT_EQ(PortMap::GetConnectionID(&mDevice), aID);
        EXPECT_EQ(mDevice.TakeCalls(), aCalls) << aID;
        EXPECT_EQ(TakeLogOf("PortMap"), aLines) << aID;
        DisableEveryPriority();
        EXPECT_EQ(PortMap::GetConnectionID(&mDevice), aID);
        JxUtilsLib::Logger::SetPriority(PriorityDebug);
        mDevice.TakeCalls();
        EXPECT_EQ(TakeLog(), Lines()) << aID;
    }

    PortMap mMap;
    ScriptedAdapter mOther;
};

TEST_F(PortMapTest, IdentifiesADeviceByWhatItsTransportHas)
{
    const LogLine lNoMac{PriorityWarning, cGetID, "Could not read MAC address from device node map."};
    const LogLine lNoVendor{PriorityWarning, cGetID, "Could not read vendor name from device node map."};
    const LogLine lNoSerial{PriorityWarning, cGetID, "Could not read serial number from device node map."};
    const Calls lAsk = {"IsGigEVision", "IsAlternateTransport"};
    const Calls lAskNames =
        Join({lAsk, {"GetStringValue(DeviceVendorName)", "GetStringValue(DeviceSerialNumber)"}});
    mDevice.SetText("DeviceVendorName", "ACME");
    mDevice.SetText("DeviceSerialNumber", "1234");
    mDevice.SetInteger("GevMACAddress", 0x00111C010203);
    for (const bool lIsAlternate : {false, true}) // one that is both is known by its address
    {
        mDevice.SetAnswer(Slot::IsAlternateTransport, lIsAlternate);
        ExpectID("00:11:1c:01:02:03", cIdentify, {});
    }
    mDevice.Fail(Slot::GetIntegerValue);
    ExpectID("00:11:22:33:44:55", cIdentify, {lNoMac});
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    ExpectID("ACME1234", lAskNames, {});
    mDevice.Fail(Slot::GetStringValue, "DeviceVendorName");
    ExpectID("Unknown1234", lAskNames, {lNoVendor});
    mDevice.StopFailing();
    mDevice.Fail(Slot::GetStringValue, "DeviceSerialNumber");
    ExpectID("ACME00000000", lAskNames, {lNoSerial});
    mDevice.Fail(Slot::GetStringValue);
    ExpectID("Unknown00000000", lAskNames, {lNoVendor, lNoSerial});
    mDevice.SetAnswer(Slot::IsAlternateTransport, false);
    ExpectID("", lAsk, {});
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
