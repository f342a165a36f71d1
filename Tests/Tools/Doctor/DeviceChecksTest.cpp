#include "kyserial/Doctor/DeviceChecks.h"
#include "Support/NullAdapter.h"
#include "kyserial/Options/Options.h"

#include <KyGvcp/Protocol.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace
{

using namespace KySerialTool;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uint32_t cOwn = 0x0A000001; // 10.0.0.1

/// Registers that a test has set; others are refused.
class CheckedAdapter final : public KyTest::NullAdapter
{
public:
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        mOnRead();
        const auto lRegister = mRegisters.find(aAddress);
        aValue = lRegister == mRegisters.end() ? 0 : lRegister->second;
        return lRegister == mRegisters.end() ? KyResult(0x8003, "No such register.") : KyResult();
    }
    bool IsConnected() override { return mConnected; }
    bool IsKorvoVideoInterface() override { return mOfMaker; }
    KyResult RegisterEventSink(IKyDeviceEventSink*) override
    {
        ++mSinks;
        return mSinkResult;
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink*) override
    {
        --mSinks;
        return {};
    }

    std::map<uint32_t, uint32_t> mRegisters;
    std::function<void()> mOnRead = [] {};
    bool mConnected = true;
    bool mOfMaker = true;
    KyResult mSinkResult;
    int mSinks = 0;
};

class CheckedDevice final : public Device
{
public:
    IKyDeviceAdapter& GetAdapter() override { return mAdapter; }
    uint64_t GetGeneration() override { return mGeneration; }
    std::vector<FeatureFinding> ReadFeatures() override { return std::vector<FeatureFinding>(mFeatures); }
    std::string GetDescriptionProblem() override { return mProblem; }
    uint64_t GetRepeatedCommands() override { return mRepeats; }

    CheckedAdapter mAdapter;
    uint64_t mGeneration = 1;
    size_t mFeatures = 2;
    std::string mProblem;
    uint64_t mRepeats = 0;
};

class DeviceChecksTest : public testing::Test
{
protected:
    DeviceChecksTest()
    {
        ApplyLogOptions(CommonOptions()); // as the program runs: without the library's log
        Registers()[KyGvcp::cHeartbeatRegister] = 3000;
        Registers()[KyGvcp::cConfigurationRegister] = 0;
        Registers()[KyGvcp::cMessageChannelCountRegister] = 1;
        Registers()[KyGvcp::cMessagePortRegister] = 50001;
        Registers()[KyGvcp::cMessageAddressRegister] = cOwn;
        Registers()[KyGvcp::cPrimaryAddressRegister] = cOwn;
        Registers()[KyGvcp::cMessageCapabilityRegister] = 0x80000000U;
        Registers()[KyGvcp::cMessageSourcePortRegister] = 50002;
    }

    std::map<uint32_t, uint32_t>& Registers() { return mDevice.mAdapter.mRegisters; }

    CheckedDevice mDevice;
};

TEST_F(DeviceChecksTest, AHeartbeatIsSaidWithItsTimeOut)
{
    mDevice.mRepeats = 7; // before the check
    const CheckFinding lFinding = CheckHeartbeat(mDevice);
    EXPECT_EQ(Verdict::Ok, lFinding.mVerdict);
    EXPECT_THAT(lFinding.mReason, StartsWith("3000 ms; the slowest of 20 commands took "));
}

TEST_F(DeviceChecksTest, OnlyCommandsThatAreRepeatedDuringTheCheckCount)
{
    mDevice.mRepeats = 7;
    mDevice.mAdapter.mOnRead = [&] { mDevice.mRepeats = 9; };
    const CheckFinding lFinding = CheckHeartbeat(mDevice);
    EXPECT_EQ(Verdict::Warning, lFinding.mVerdict);
    EXPECT_EQ("2 of 20 commands had to be sent again", lFinding.mReason);
}

TEST_F(DeviceChecksTest, AHeartbeatThatIsSwitchedOffIsAWarning)
{
    Registers()[KyGvcp::cConfigurationRegister] = KyGvcp::cHeartbeatDisabled;
    EXPECT_EQ(Verdict::Warning, CheckHeartbeat(mDevice).mVerdict);
    Registers().erase(KyGvcp::cConfigurationRegister);
    EXPECT_EQ(Verdict::Ok, CheckHeartbeat(mDevice).mVerdict) << "a device need not have that register";
}

TEST_F(DeviceChecksTest, ADeviceThatRefusesTheTimeOutIsAWarningAndALostOneAFailure)
{
    Registers().erase(KyGvcp::cHeartbeatRegister);
    EXPECT_EQ(Verdict::Warning, CheckHeartbeat(mDevice).mVerdict);
    mDevice.mAdapter.mConnected = false;
    EXPECT_EQ(Verdict::Failed, CheckHeartbeat(mDevice).mVerdict);
}

TEST_F(DeviceChecksTest, ADescriptionIsItsFeaturesOrItsProblem)
{
    EXPECT_EQ("2 features", CheckDescription(mDevice).mReason);
    mDevice.mProblem = "it is no XML";
    EXPECT_EQ(Verdict::Failed, CheckDescription(mDevice).mVerdict);
    EXPECT_EQ("it is no XML", CheckDescription(mDevice).mReason);
}

TEST_F(DeviceChecksTest, PortsAreListedAndADeviceWithoutOneFails)
{
    const CheckFinding lAll = CheckPorts(mDevice);
    EXPECT_EQ(Verdict::Ok, lAll.mVerdict);
    EXPECT_EQ("bulk0 bulk1 bulk2 bulk3 bulk4 bulk5 bulk6 bulk7", lAll.mReason)
        << "it has no register of its UARTs";
    mDevice.mAdapter.mOfMaker = false;
    EXPECT_EQ("the device offers no serial port", CheckPorts(mDevice).mReason);
}

// A device that was away for a moment answers again, but some ports may have been asked while it was gone.
TEST_F(DeviceChecksTest, PortsOfTwoConnectionsAreNoFinding)
{
    mDevice.mAdapter.mOnRead = [&] { ++mDevice.mGeneration; };
    const CheckFinding lFinding = CheckPorts(mDevice);
    EXPECT_EQ(Verdict::Failed, lFinding.mVerdict);
    EXPECT_EQ("the connection to the device was lost", lFinding.mReason);
}

TEST_F(DeviceChecksTest, EventsGoToThisComputerFromAKnownPort)
{
    const CheckFinding lFinding = CheckEvents(mDevice, cOwn, false);
    EXPECT_EQ(Verdict::Ok, lFinding.mVerdict);
    EXPECT_EQ("they go to UDP port 50001 of 10.0.0.1, from port 50002", lFinding.mReason);
}

TEST_F(DeviceChecksTest, WithoutAKnownSourceAFirewallHasToLetTheDeviceIn)
{
    const auto lIsUnknown = [&]
    {
        const CheckFinding lFinding = CheckEvents(mDevice, cOwn, false);
        return lFinding.mVerdict == Verdict::Warning &&
               lFinding.mReason ==
                   "they go to UDP port 50001 of 10.0.0.1; the device does not say from which port";
    };
    Registers()[KyGvcp::cMessageSourcePortRegister] = 0;
    EXPECT_TRUE(lIsUnknown());
    Registers()[KyGvcp::cMessageSourcePortRegister] = 50002;
    Registers()[KyGvcp::cMessageCapabilityRegister] = 0;
    EXPECT_TRUE(lIsUnknown()) << "without the capability the register means nothing";
}

TEST_F(DeviceChecksTest, EventsThatGoElsewhereFail)
{
    Registers()[KyGvcp::cMessageAddressRegister] = cOwn + 1;
    EXPECT_EQ(Verdict::Failed, CheckEvents(mDevice, cOwn, false).mVerdict);
    Registers()[KyGvcp::cMessageAddressRegister] = cOwn;
    Registers()[KyGvcp::cMessagePortRegister] = 0;
    EXPECT_EQ(Verdict::Failed, CheckEvents(mDevice, cOwn, false).mVerdict) << "port 0 is switched off";
    Registers()[KyGvcp::cMessagePortRegister] = 50001;
    Registers()[KyGvcp::cMessageChannelCountRegister] = 0;
    EXPECT_THAT(CheckEvents(mDevice, cOwn, false).mReason, HasSubstr("no message channel"));
}

TEST_F(DeviceChecksTest, ARouterThatTranslatesAddressesIsFoundByWhatTheDeviceSees)
{
    Registers()[KyGvcp::cPrimaryAddressRegister] = 0xC0A80001;
    const CheckFinding lFinding = CheckEvents(mDevice, cOwn, false);
    EXPECT_EQ(Verdict::Failed, lFinding.mVerdict);
    EXPECT_THAT(lFinding.mReason, StartsWith("the device sees this computer as 192.168.0.1, "));
    Registers()[KyGvcp::cPrimaryAddressRegister] = 0;
    EXPECT_EQ(Verdict::Ok, CheckEvents(mDevice, cOwn, false).mVerdict) << "a device need not say it";
}

// The channel's registers belong to the other application then.
TEST_F(DeviceChecksTest, EventsOfADeviceInUseAreNotChecked)
{
    Registers()[KyGvcp::cMessageAddressRegister] = cOwn + 1;
    const CheckFinding lFinding = CheckEvents(mDevice, cOwn, true);
    EXPECT_EQ(Verdict::Warning, lFinding.mVerdict);
    EXPECT_THAT(lFinding.mReason, StartsWith("not checked: "));
}

TEST_F(DeviceChecksTest, AnEventSinkIsTakenBack)
{
    EXPECT_EQ(Verdict::Ok, CheckEventSink(mDevice).mVerdict);
    EXPECT_EQ(0, mDevice.mAdapter.mSinks);
    mDevice.mAdapter.mSinkResult = KyResult(KyResult::FAILURE, "No.");
    EXPECT_EQ(Verdict::Failed, CheckEventSink(mDevice).mVerdict);
}

} // namespace
