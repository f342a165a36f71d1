// The bridge to a host port, with a port.

#include "Tests/Host/BridgeCOMFixture.h"

#include <algorithm>

using namespace KyTest;

namespace
{

constexpr char cDownstream[] = "Bulk1DownstreamData";

TEST_F(BridgeCOMHostTest, OpeningConfiguresTheDeviceAndListsItsRates)
{
    EXPECT_THAT(OpenHost({115200, KyParityNone, 8, 1}), IsOK());
    EXPECT_EQ(
        mDevice.TakeCalls(),
        (Calls{"IsFeatureWritable(Bulk1Parity)", "GetFeatureAsString(Bulk1Parity)",
               "SetFeatureFromString(Bulk1Parity, \"None\")", "IsFeatureWritable(Bulk1NumOfStopBits)",
               "GetFeatureAsString(Bulk1NumOfStopBits)", "SetFeatureFromString(Bulk1NumOfStopBits, \"One\")",
               "GetFeatureAsString(Bulk1BaudRate)", "SetFeatureFromString(Bulk1BaudRate, \"Baud115200\")",
               "IsFeatureReadable(Bulk1BaudRate)", "GetEnumEntries(Bulk1BaudRate)"}));
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 2U);
    EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 115200U);
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeCOMHostTest, InvalidConfigurationSetsNothingAndClosesTheHostPort)
{
    EXPECT_THAT(
        OpenHost({4800, KyParityNone, 8, 1}),
        IsResult(KyResult::BAD_PARAMETER,
                 "Invalid port speed. 9600, 14400, 19200, 28800, 38400, 57600 and 115200 supported."));
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 9600U);
    TakeLog();
    EXPECT_THAT(mBridge->SetSerialPortConfiguration(KySerialPortConfiguration()),
                IsResult(KyResult::FAILURE, "Unable to read current COM port configuration."));
    EXPECT_THAT(OpenHost(), IsOK()); // it was not left open
}

TEST_F(BridgeCOMHostTest, WhatTheConfigurationLeavesOpenIsWhatTheDeviceHas)
{
    mDevice.SetText("Bulk1BaudRate", "Baud57600");
    mDevice.SetText("Bulk1Parity", "Odd");
    mDevice.SetText("Bulk1NumOfStopBits", "Two");
    KySerialPortConfiguration lOpen;
    lOpen.MakeInvalid();
    lOpen.mStopBits = 0;
    EXPECT_EQ(OpenHost(lOpen).GetCode(), KyResult::BAD_PARAMETER); // only for those that ask for it
    KySerialBridgeOptions lOptions;
    lOptions.mKeepsLine = true;
    mBridge->SetOptions(lOptions);
    EXPECT_THAT(OpenHost(lOpen), IsOK());
    EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 57600U);
    EXPECT_EQ(mBridge->GetConfiguration().mParity, KyParityOdd);
    EXPECT_EQ(mBridge->GetConfiguration().mStopBits, 2U);
    lOpen.mParity = KyParityEven;                   // given
    mDevice.SetText("Bulk1BaudRate", "Baud230400"); // which no host port has
    EXPECT_THAT(OpenHost(lOpen), IsOK());
    EXPECT_EQ(mBridge->GetConfiguration().mBaudRate, 9600U);
    EXPECT_EQ(mBridge->GetConfiguration().mParity, KyParityEven);
    TakeLog();
}

TEST_F(BridgeCOMHostTest, LaterInvalidConfigurationLeavesTheFormerOne)
{
    EXPECT_THAT(OpenHost({19200, KyParityNone, 8, 1}), IsOK());
    Forget();
    EXPECT_EQ(mBridge->SetSerialPortConfiguration({19200, KyParityNone, 9, 1}).GetCode(),
              KyResult::BAD_PARAMETER);
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_EQ(mBridge->GetConfiguration().mBitsPerByte, 8U);
}

TEST_F(BridgeCOMHostTest, TheDevicesRefusalDoesNotFailTheHostPort)
{
    mDevice.Fail(Slot::SetFeatureFromString);
    mDevice.Fail(Slot::GetEnumEntries);
    EXPECT_THAT(OpenHost(), IsOK());
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 0U);
}

TEST_F(BridgeCOMHostTest, RelaysBothWaysAndCounts)
{
    Start();
    SendFromDevice("to the host");
    EXPECT_EQ(mLink->Read(11), "to the host");
    EXPECT_EQ(mLink->Write("to the device"), 13U);
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 13; }));
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesReceivedFromDevice() == 11; }));
    const Bytes lMessage = mDevice.GetContent(cDownstream);
    ASSERT_GE(lMessage.size(), 21U);
    EXPECT_EQ(std::string(lMessage.begin() + 8, lMessage.begin() + 21), "to the device"); // after the header
    EXPECT_EQ(mBridge->GetTransferErrors(), 0U);
    // What the host's program sends in one piece arrives in one piece.
    mDevice.ClearCounts();
    EXPECT_EQ(mLink->Write(std::string(308, 'h')), 308U);
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 13 + 308; }));
    EXPECT_EQ(mDevice.GetCallCount(Slot::SetRegisterData), 1);
}

// The host reads nothing: what its port has taken is delivered, the rest is cut off.
TEST_F(BridgeCOMHostTest, AStopCountsWhatAHostThatDoesNotReadHasNotTaken)
{
    KySerialBridgeFlow lToDevice;
    KySerialBridgeFlow lFromDevice;
    mBridge->SetFinalFlows(&lToDevice, &lFromDevice);
    Start();
    mLink->StopReading();
    constexpr uint64_t cMany = 300;
    for (uint64_t lIndex = 0; lIndex < cMany; ++lIndex)
    {
        SendFromDevice(std::string(512, 'x')); // more than the way to the host holds
        JxUtilsLib::Thread::Sleep(lIndex % 30 == 0 ? 5 : 0);
    }
    mBridge.reset();
    EXPECT_EQ(lFromDevice.mTaken, cMany * 512);
    EXPECT_GT(lFromDevice.mCutOff, 0U);
    EXPECT_EQ(lFromDevice.mDelivered + lFromDevice.mOverrun + lFromDevice.mCutOff, cMany * 512);
    EXPECT_TRUE(std::ranges::any_of(mLog.Take(),
                                    [](const LogLine& aLine) {
                                        return aLine.mPriority == PriorityWarning &&
                                               aLine.mMessage.starts_with("The stop cut off 0 of 0 ");
                                    }));
}

TEST_F(BridgeCOMHostTest, SettingsChangeWhileItRelays)
{
    Start();
    EXPECT_THAT(mBridge->SetSerialPortConfiguration({57600, KyParityNone, 8, 2}), IsOK());
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "Baud57600");
    EXPECT_EQ(mDevice.GetText("Bulk1NumOfStopBits"), "Two");
    EXPECT_EQ(mBridge->GetBaudRate(), 57600U);
    SendFromDevice("x");
    EXPECT_EQ(mLink->Read(1), "x");
}

TEST_F(BridgeCOMHostTest, ADeviceThatRefusesIsLoggedAndTheBridgeGoesOn)
{
    Start();
    for (const uint64_t lTurn : {1U, 2U}) // with the log, and without
    {
        mDevice.ClearCounts();
        mDevice.Fail(Slot::SetRegisterData);
        EXPECT_EQ(mLink->Write("lost"), 4U);
        EXPECT_TRUE(WaitFor(
            [&]
            {
                return lTurn == 2
                           ? mDevice.GetCallCount(Slot::SetRegisterData) > 0
                           : HasLogged("Error writting data from the COM port to the KyDevice serial port.");
            }));
        mDevice.StopFailing();
        EXPECT_EQ(mLink->Write("kept"), 4U);
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 4 * lTurn; }));
        DisableEveryPriority();
        mLog.Take();
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeCOMHostTest, AVanishedHostPortIsLoggedAndWorksWhenItIsBack)
{
    if (!HostLink::CanComeBack())
    {
        GTEST_SKIP() << "a port of this system that has vanished does not come back while it is open";
    }
    Start();
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        mLink->Vanish();
        EXPECT_TRUE(WaitFor([&] { return HasLogged("ReadFile failure: 0x"); }));
        for (const char* lLine :
             {"WriteFile failure: 0x", "Error writting bytes (0 out of 4) from the KyDevice "
                                       "serial port to the COM port."})
        {
            SendFromDevice("lost");
            EXPECT_TRUE(WaitFor([&] { return HasLogged(lLine); })) << lLine;
        }
        mLink->ComeBack();
        const auto lSent = [&]
        {
            SendFromDevice("back");
            return mLink->Read(4, 100) == "back";
        };
        EXPECT_TRUE(WaitFor(lSent));
        const uint64_t lBefore = mBridge->GetBytesSentToDevice();
        EXPECT_EQ(mLink->Write("here"), 4U);
        EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == lBefore + 4; }));
    }
}

// A host that writes and never reads: its bytes reach the device all the same.
TEST_F(BridgeCOMHostTest, AHostThatDoesNotReadCanWrite)
{
    Start();
    mLink->StopReading();
    for (int lTurn = 0; lTurn < 100; ++lTurn)
    {
        SendFromDevice(std::string(512, 'x')); // more than the way to the host holds
    }
    for (uint64_t lDone = 0; lDone < 5000; lDone += 500)
    {
        ASSERT_EQ(mLink->Write(std::string(500, 'h')), 500U);
        ASSERT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == lDone + 500; }));
    }
}

} // namespace
