// The adapter without memory: each allocation of an operation fails once, and the operation reports it.

#include "GigE/FakeSpace.h"
#include "GigE/ScriptedDevice.h"
#include "RecordingSink.h"
#include "Support/AllocationCounter.h"
#include "Support/ForEachNth.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"
#include "Support/WaitFor.h"

#include "Adapters/GigE/Client/GvcpClient.h"

#include <KyGigE/DeviceIp.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <new>

using KyGigE::GigEDeviceAdapter;
using KyTest::AllocationCounter;
using KyTest::ForEachNth;
using KyTest::IntReg;
using KyTest::IsOK;
using KyTest::ScriptedDevice;

namespace
{

std::string Xml()
{
    return KyTest::Description(
        "<Category "
        "Name=\"Root\"><pFeature>ModeOfTheWholeDevice</pFeature><pFeature>Rate</pFeature></Category>"
        "<Enumeration Name=\"ModeOfTheWholeDevice\"><EnumEntry "
        "Name=\"AnEntryWithALongName\"><Value>0</Value></EnumEntry>"
        "<EnumEntry "
        "Name=\"AnotherEntryOfTheSame\"><Value>2</Value></EnumEntry><pValue>ModeReg</pValue></Enumeration>"
        "<IntSwissKnife Name=\"TwiceTheRateOfTheDevice\"><pVariable Name=\"RATE\">Rate</pVariable>"
        "<Formula>RATE * 2</Formula></IntSwissKnife>"
        "<Register Name=\"Bulk0DownstreamDataOfTheDevice\"><Address>0x30000</Address><Length>16</Length>"
        "<AccessMode>RW</AccessMode><pPort>Device</pPort></Register>"
        "<StringReg Name=\"DeviceVendorNameAsText\"><Address>0x48</Address><Length>32</Length>"
        "<AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>" +
        IntReg("ModeReg", "0x20000") + IntReg("Rate", "0x20004"));
}

class GigEAllocationTest : public testing::Test
{
protected:
    KyGigE::DeviceAddress Address() const { return {"127.0.0.1", mDevice.GetPort(), ""}; }

    KyResult Connect(std::unique_ptr<GigEDeviceAdapter>& aAdapter)
    {
        KyGigE::ConnectionOptions lOptions;
        lOptions.mHeartbeatPeriod = 60000; // it stays out of the way
        lOptions.mHeartbeatTimeout = 600000;
        return GigEDeviceAdapter::Connect(Address(), lOptions, aAdapter);
    }

    /// Lets each allocation of an operation fail, and expects that it then fails or does without, and afterwards
    /// works. \return How many there were.
    static int Sweep(const char* aName, const std::function<bool()>& aOperation,
                     const std::function<bool()>& aIsFailure)
    {
        SCOPED_TRACE(aName);
        EXPECT_TRUE(aOperation());
        return ForEachNth(
            [&](int aNth, int& aCount)
            {
                bool lGood = false;
                {
                    const AllocationCounter lCounter(aNth);
                    lGood = aOperation();
                    aCount = AllocationCounter::GetCount();
                }
                const bool lIsRefused = aCount >= aNth;
                EXPECT_TRUE(lGood || (lIsRefused && aIsFailure()));
                EXPECT_TRUE(aOperation());
            });
    }

    /// Connects with the aNth allocation refused, and gives the device back. aCount as ForEachNth() wants it.
    void ConnectWithout(int aNth, int& aCount)
    {
        std::unique_ptr<GigEDeviceAdapter> lAdapter;
        KyResult lResult;
        {
            const AllocationCounter lCounter(aNth);
            lResult = Connect(lAdapter);
            aCount = AllocationCounter::GetCount();
        }
        const bool lIsRefused = aCount >= aNth;
        EXPECT_TRUE(lResult.IsOK() || (lIsRefused && lResult.GetCode() == KyResult::FAILURE))
            << lResult.GetCodeString().GetAscii();
        EXPECT_EQ(lResult.IsOK(), lAdapter != nullptr);
        lAdapter.reset();
        EXPECT_EQ(mDevice.GetWord(KyGvcp::cControlPrivilegeRegister), 0U);
    }

    /// The same for an operation with a result.
    static void SweepResult(const char* aName, const std::function<KyResult()>& aOperation)
    {
        KyResult lResult;
        const int lCount = Sweep(
            aName,
            [&]
            {
                lResult = aOperation();
                return lResult.IsOK();
            },
            [&] { return lResult.GetCode() == KyResult::FAILURE; });
        EXPECT_GT(lCount, 0) << aName;
    }

    static void SweepQuestion(const char* aName, const std::function<bool()>& aQuestion)
    {
        Sweep(aName, aQuestion, [] { return true; });
    }

    KyTest::RecordingLogSink mLog;
    ScriptedDevice mDevice{Xml()};
};

TEST_F(GigEAllocationTest, FeatureOperationsReportThatThereIsNoMemory)
{
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    ASSERT_THAT(Connect(lAdapter), IsOK());
    mDevice.PutWord(0x20004, 21);
    const KyString lRate("Rate");
    const KyString lTwice("TwiceTheRateOfTheDevice");
    const KyString lMode("ModeOfTheWholeDevice");
    const KyString lEntry("AnotherEntryOfTheSame");
    const KyString lData("Bulk0DownstreamDataOfTheDevice");
    const KyString lVendor("DeviceVendorNameAsText");
    int64_t lNumber = 0;
    KyString lText;
    KyStringList lEntries;
    std::array<uint8_t, 16> lBytes{};
    SweepResult("GetIntegerValue", [&] { return lAdapter->GetIntegerValue(lTwice, lNumber); });
    EXPECT_EQ(lNumber, 42);
    SweepResult("GetEnumEntries", [&] { return lAdapter->GetEnumEntries(lMode, lEntries); });
    EXPECT_EQ(lEntries.GetCount(), 2U);
    SweepResult("GetFeatureAsString", [&] { return lAdapter->GetFeatureAsString(lMode, lText); });
    SweepResult("SetFeatureFromString", [&] { return lAdapter->SetFeatureFromString(lMode, lEntry); });
    SweepResult("GetStringValue", [&] { return lAdapter->GetStringValue(lVendor, lText); });
    SweepResult("GetRegisterLength", [&] { return lAdapter->GetRegisterLength(lData, lNumber); });
    SweepResult("GetRegisterData", [&] { return lAdapter->GetRegisterData(lData, lBytes.data(), 16); });
    SweepResult("SetRegisterData", [&] { return lAdapter->SetRegisterData(lData, lBytes.data(), 16); });
    SweepResult(
        "PostWrite", [&]
        { return lAdapter->RegisterFeatureInterest(lMode).IsOK() ? lAdapter->PostWrite(10) : KyResult(); });
    SweepResult("UnregisterFeatureInterest",
                [&]
                {
                    const bool lAdded = lAdapter->RegisterFeatureInterest(lMode).IsOK();
                    return lAdded ? lAdapter->UnregisterFeatureInterest(lMode) : KyResult(KyResult::FAILURE);
                });
    SweepQuestion("IsFeatureAvailable", [&] { return lAdapter->IsFeatureAvailable(lTwice); });
    SweepQuestion("IsRegisterFeatureAvailable", [&] { return lAdapter->IsRegisterFeatureAvailable(lData); });
    SweepQuestion("IsIntegerFeatureAvailable", [&] { return lAdapter->IsIntegerFeatureAvailable(lTwice); });
    SweepQuestion("IsFeatureReadable", [&] { return lAdapter->IsFeatureReadable(lMode); });
    SweepQuestion("IsFeatureWritable", [&] { return lAdapter->IsFeatureWritable(lMode); });
    SweepQuestion("IsEnumEntryAvailable", [&] { return lAdapter->IsEnumEntryAvailable(lMode, lEntry); });
    size_t lListed = 0;
    Sweep(
        "ListFeatures",
        [&]
        {
            lListed = lAdapter->ListFeatures().size();
            return lListed == 2;
        },
        [&] { return lListed == 0; });
    Sweep(
        "ReadFeatures",
        [&]
        {
            lListed = lAdapter->ReadFeatures().size();
            return lListed == 2;
        },
        [&] { return lListed == 0; });
}

TEST_F(GigEAllocationTest, RegistersAndSinksReportThatThereIsNoMemory)
{
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    ASSERT_THAT(Connect(lAdapter), IsOK());
    RecordingSink lSink;
    uint32_t lValue = 0;
    const std::array<uint8_t, 8> lBytes{};
    SweepQuestion("ReadRegister", [&] { return lAdapter->ReadRegister(0x20004, lValue).IsOK(); });
    SweepQuestion("WriteRegister", [&] { return lAdapter->WriteRegister(0x20004, 7).IsOK(); });
    SweepQuestion("WriteMemory", [&] { return lAdapter->WriteMemory(lBytes.data(), 0x30000, 8).IsOK(); });
    SweepQuestion("RegisterEventSink",
                  [&]
                  {
                      const bool lAdded = lAdapter->RegisterEventSink(&lSink).IsOK();
                      return lAdapter->UnregisterEventSink(&lSink).IsOK() && lAdded;
                  });
    EXPECT_THAT(lAdapter->Reconnect(), IsOK());
    EXPECT_EQ(lAdapter->GetFigures().mLosses, 0U);
}

// Each failure gives the device back, or the next attempt would find it controlled.
TEST_F(GigEAllocationTest, ConnectingReportsThatThereIsNoMemory)
{
    const int lRefused = ForEachNth([this](int aNth, int& aCount) { ConnectWithout(aNth, aCount); });
    EXPECT_GT(lRefused, 20);
}

TEST_F(GigEAllocationTest, FunctionsSayThatThereIsNoMemory)
{
    const std::string lName = "gev://127.0.0.1:12345?interface=AnInterfaceOfThisComputer";
    const KyGigE::IpSettings lSettings{"127.0.0.200", "255.255.255.0", "127.0.0.254"};
    KyGigE::DeviceAddress lAddress;
    std::string lText;
    const auto lIsReason = [&] { return lText == "out of memory"; };
    const auto lIsEmpty = [&] { return lText.empty(); };
    Sweep(
        "ParseDeviceAddress",
        [&]
        {
            lText = KyGigE::ParseDeviceAddress(lName, lAddress);
            return lText.empty();
        },
        lIsReason);
    Sweep(
        "DeviceAddressText",
        [&]
        {
            lText = KyGigE::DeviceAddressText(lAddress);
            return !lText.empty();
        },
        lIsEmpty);
    Sweep(
        "MacText",
        [&]
        {
            lText = KyGigE::MacText(1);
            return !lText.empty();
        },
        lIsEmpty);
    KyGigE::DiscoveryOptions lWhere;
    lWhere.mAddress = "127.0.0.1";
    lWhere.mPort = mDevice.GetPort();
    std::vector<KyGigE::FoundDevice> lDevices;
    Sweep(
        "DiscoverDevices",
        [&]
        {
            lText = KyGigE::DiscoverDevices(lWhere, lDevices);
            return lText.empty();
        },
        lIsReason);
    lWhere.mTime = 1; // nobody has that MAC address
    KyGigE::FoundDevice lDevice;
    Sweep(
        "ForceIp",
        [&]
        {
            lText = KyGigE::ForceIp(lWhere, 1, lSettings, lDevice);
            return !lText.empty() && lText != "out of memory";
        },
        lIsReason);
}

// On the thread that events come on, nobody could catch it.
TEST_F(GigEAllocationTest, AnEventWithoutMemoryIsLeftOut)
{
    std::atomic<int> lCalls = 0;
    std::atomic<int> lHeard = 0;
    KyGigE::GvcpClient lClient(Address(), {});
    ASSERT_THAT(lClient.Open(
                    [&](const KyGvcp::EventView& /*aEvent*/)
                    {
                        if (++lCalls == 1)
                        {
                            throw std::bad_alloc();
                        }
                        ++lHeard;
                    },
                    [] { return KyResult(); }),
                IsOK());
    lClient.GetMessages().Post([] { throw std::bad_alloc(); });
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1})));
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {2})));
    EXPECT_TRUE(KyTest::WaitFor([&] { return lHeard == 1; }));
    EXPECT_EQ(lCalls, 2);
}

} // namespace
