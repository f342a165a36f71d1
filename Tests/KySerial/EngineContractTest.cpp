// What every engine owes when it is opened and closed.

#include "KySerial/EngineKinds.h"
#include "PortMap.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cNull[] = "Device pointer is NULL.";
constexpr char cDisconnected[] = "The device is not currently connected.";
constexpr char cInUse[] = "The specified port is already in use.";

class EngineContractTest : public EngineKindTest
{
protected:
    bool IsFree()
    {
        return PortMap::GetInstance().Lock(&mDevice, mPort) && PortMap::GetInstance().Unlock(&mDevice, mPort);
    }
};

TEST_P(EngineContractTest, DoesNotOpenWithoutADevice)
{
    EXPECT_THAT(mEngine->Open(nullptr, mPort), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("Open"), cNull}}));
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenADisconnectedDevice)
{
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(Open(), IsResult(KyResult::NO_CONNECTION, cDisconnected));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, GetFunction("Open"), cDisconnected}}));
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenAPortInUseAndLeavesItsOwnerAlone)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    const auto lSecond = Make();
    EXPECT_THAT(lSecond->Open(&mDevice, mPort), IsResult(KyResult::FAILURE, cInUse));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, "KySerialLib::PortMap::Lock",
                                 "Could not read MAC address from device node map."},
                                {PriorityError, GetFunction("Open"), cInUse}}));
    // The claim is the last that is asked for: nothing of the device is touched.
    const Calls lCalls = mDevice.TakeCalls();
    ASSERT_GE(lCalls.size(), cIdentify.size());
    EXPECT_TRUE(std::equal(cIdentify.rbegin(), cIdentify.rend(), lCalls.rbegin()));
    EXPECT_FALSE(lSecond->IsOpened());
    EXPECT_THAT(lSecond->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_TRUE(mEngine->IsOpened());
    EXPECT_FALSE(IsFree());
    EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{mEngine.get()});
}

TEST_P(EngineContractTest, DoesNotCloseWithoutADevice)
{
    mEngine->PushByte(1, true);
    EXPECT_THAT(mEngine->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("Close"), cNull}}));
    EXPECT_EQ(GetReady(*mEngine), 1U); // nothing was released
}

TEST_P(EngineContractTest, StaysOpenWhenTheDeviceIsGoneAtClose)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mEngine->PushByte(1, true);
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(mEngine->Close(), IsResult(KyResult::NO_CONNECTION, cDisconnected));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, GetFunction("Close"), cDisconnected}}));
    EXPECT_TRUE(mEngine->IsOpened());
    EXPECT_EQ(GetReady(*mEngine), 1U);
    EXPECT_FALSE(IsFree());
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);

    mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_THAT(mEngine->Close(), IsOK());
    EXPECT_FALSE(mEngine->IsOpened());
    EXPECT_EQ(GetReady(*mEngine), 0U);
    EXPECT_TRUE(IsFree());
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

KY_ALL_ENGINES(EngineContractTest);

} // namespace
