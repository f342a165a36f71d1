#include "KySerial/Bridge/BridgeFixture.h"
#include "Support/ForEachNth.h"

#include <algorithm>

using namespace KyTest;

namespace
{

constexpr char cSelectorMessage[] = "Error setting Bulk selector.";

class BridgeSettingsTest : public BridgeFixture
{
protected:
    static KySerialPortConfiguration With(uint32_t aBaudRate, KyParity aParity = KyParityNone,
                                          uint32_t aStopBits = 1)
    {
        return {aBaudRate, aParity, 8, aStopBits};
    }

    // A bulk port whose selector stands at another port.
    void OpenSelected()
    {
        AddSettings(mDevice, "Bulk");
        AddBulkMode(mDevice);
        AddSelector(mDevice);
        Open(KyDeviceSerialBulk3);
        mDevice.SetText("BulkSelector", "Bulk7");
    }
    void OpenUart()
    {
        AddSettings(mDevice, "Uart0");
        Open(KyDeviceSerialUart0);
    }

    // The calls from the n-th feature question of OpenDevicePort() on.
    Calls OpenAndGetCalls(KyDeviceSerial aPort, const std::string& aFirst)
    {
        mDevice.TakeCalls();
        EXPECT_THAT(mBridge->OpenDevicePort(&mDevice, aPort), IsOK());
        const Calls lCalls = mDevice.TakeCalls();
        const auto lFirst = std::find(lCalls.begin(), lCalls.end(), aFirst);
        return {lFirst, lCalls.end()};
    }
};

TEST_F(BridgeSettingsTest, UartFeaturesCarryTheUartsNumber)
{
    AddSettings(mDevice, "Uart1");
    AddSelector(mDevice);
    AddBulkMode(mDevice);
    EXPECT_EQ(OpenAndGetCalls(KyDeviceSerialUart1, "IsFeatureAvailable(Uart1BaudRate)"),
              Join({ForSettings("Uart1", cNoteSetting), ForSettings("Uart1", cReadSetting)}));
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    End();
    EXPECT_EQ(mDevice.GetText("BulkSelector"), "Bulk7");
    EXPECT_EQ(mDevice.GetText("BulkMode"), "SPI");
}

TEST_F(BridgeSettingsTest, BulkFeaturesCarryTheBulkNumberWithoutASelector)
{
    AddSettings(mDevice, "Bulk3");
    EXPECT_EQ(OpenAndGetCalls(KyDeviceSerialBulk3, "IsFeatureAvailable(BulkSelector)"),
              Join({{"IsFeatureAvailable(BulkSelector)", "IsFeatureAvailable(BulkMode)"},
                    ForSettings("Bulk3", cNoteSetting),
                    ForSettings("Bulk3", cReadSetting)}));
}

TEST_F(BridgeSettingsTest, BulkFeaturesAreSelectedWithASelector)
{
    AddSettings(mDevice, "Bulk");
    AddBulkMode(mDevice);
    AddSelector(mDevice);
    EXPECT_EQ(OpenAndGetCalls(KyDeviceSerialBulk3, "IsFeatureAvailable(BulkSelector)"),
              Join({{"IsFeatureAvailable(BulkSelector)", "IsFeatureAvailable(BulkMode)",
                     "RegisterFeatureInterest(BulkMode)"},
                    ForSettings("Bulk", cNoteSetting),
                    {"GetFeatureAsString(BulkSelector)", "SetFeatureFromString(BulkSelector, \"Bulk3\")"},
                    ForSettings("Bulk", cReadSetting),
                    {"IsFeatureReadable(BulkMode)", "GetFeatureAsString(BulkMode)",
                     "SetFeatureFromString(BulkSelector, \"Bulk3\")"}}));
}

TEST_F(BridgeSettingsTest, EveryBulkPortSelectsItsOwnNumber)
{
    AddSelector(mDevice);
    for (int lPort = KyDeviceSerialBulk1; lPort <= KyDeviceSerialBulk7; ++lPort)
    {
        ScriptedBridge lBridge;
        EXPECT_THAT(lBridge.OpenDevicePort(&mDevice, static_cast<KyDeviceSerial>(lPort)), IsOK());
        EXPECT_EQ(mDevice.GetText("BulkSelector"), "Bulk" + std::to_string(lPort - 2));
    }
}

TEST_F(BridgeSettingsTest, AnUnknownPortIsABrokenAssertionAndHasNoFeatures)
{
    mBridge->GetParameters();
    EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    EXPECT_EQ(TakeLogOf("Bridge"), (Lines{{PriorityWarning, "KySerialLib::Bridge::GetParameters",
                                           "Unexpected port identifier."}}));
}

TEST_F(BridgeSettingsTest, BackupPassesOverWhatIsNotReadable)
{
    AddSettings(mDevice, "Uart0");
    mDevice.SetAvailable(Slot::IsFeatureReadable, "Uart0Parity", false);
    mDevice.Fail(Slot::GetFeatureAsString, "Uart0NumOfStopBits");
    Open(KyDeviceSerialUart0);
    mDevice.StopFailing();
    EXPECT_THAT(mBridge->RestorePortConfig(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsFeatureWritable(Uart0BaudRate)",
                                          "SetFeatureFromString(Uart0BaudRate, \"SavedBaudRate\")"}));
}

TEST_F(BridgeSettingsTest, RestoreWritesWhatIsWritableAndIgnoresRefusals)
{
    OpenSelected();
    mDevice.SetAvailable(Slot::IsFeatureWritable, "BulkParity", false);
    mDevice.Fail(Slot::SetFeatureFromString, "BulkBaudRate");
    EXPECT_THAT(mBridge->RestorePortConfig(), IsOK());
    EXPECT_EQ(
        mDevice.TakeCalls(),
        (Calls{"GetFeatureAsString(BulkSelector)", "SetFeatureFromString(BulkSelector, \"Bulk3\")",
               "IsFeatureWritable(BulkBaudRate)", "SetFeatureFromString(BulkBaudRate, \"SavedBaudRate\")",
               "IsFeatureWritable(BulkParity)", "IsFeatureWritable(BulkNumOfStopBits)",
               "SetFeatureFromString(BulkNumOfStopBits, \"SavedNumOfStopBits\")",
               "IsFeatureWritable(BulkMode)", "SetFeatureFromString(BulkMode, \"SPI\")",
               "SetFeatureFromString(BulkSelector, \"Bulk3\")"}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeSettingsTest, ARefusedSelectorFailsEveryOperation)
{
    OpenSelected();
    mDevice.Fail(Slot::SetFeatureFromString, "BulkSelector");
    using Operation = std::pair<const char*, std::function<KyResult()>>;
    const Operation lOperations[] = {
        {"BackupPortConfig", [&] { return mBridge->BackupPortConfig(); }},
        {"RestorePortConfig", [&] { return mBridge->RestorePortConfig(); }},
        {"RefreshSupportedBaudRates", [&] { return mBridge->RefreshSupportedBaudRates(); }},
        {"ConfigurePort", [&] { return mBridge->ConfigurePort(); }},
        {"SyncBaudRate", [&] { return mBridge->SyncBaudRate(true); }},
        {"SyncBulkMode", [&] { return mBridge->SyncBulkMode(); }},
        {"SyncParity", [&] { return mBridge->SyncParity(); }},
        {"SyncStopBits", [&] { return mBridge->SyncStopBits(); }}};
    for (const auto& [lName, lOperation] : lOperations)
    {
        SCOPED_TRACE(lName);
        EXPECT_THAT(lOperation(), IsResult(KyResult::UNSUPPORTED, cSelectorMessage));
        EXPECT_EQ(TakeLogOf("Bridge"),
                  (Lines{{PriorityError, std::string("KySerialLib::Bridge::") + lName, cSelectorMessage}}));
        EXPECT_EQ(mDevice.TakeCalls(), (Calls{"GetFeatureAsString(BulkSelector)",
                                              "SetFeatureFromString(BulkSelector, \"Bulk3\")"}));
    }
}

TEST_F(BridgeSettingsTest, MissingFeaturesMakeEverythingButTheRatesSucceed)
{
    Open(KyDeviceSerialUart0);
    EXPECT_THAT(mBridge->BackupPortConfig(), IsOK());
    EXPECT_THAT(mBridge->RestorePortConfig(), IsOK());
    EXPECT_THAT(mBridge->SyncBaudRate(true), IsOK());
    EXPECT_THAT(mBridge->SyncBulkMode(), IsOK());
    EXPECT_THAT(mBridge->SyncParity(), IsOK());
    EXPECT_THAT(mBridge->SyncStopBits(), IsOK());
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(),
                IsResult(KyResult::NOT_READABLE, "Device port baud rate is not readable."));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, "KySerialLib::Bridge::RefreshSupportedBaudRates",
                                 "Device port baud rate is not readable."}}));
    EXPECT_EQ(mBridge->GetBaudRate(), 0U);
}

TEST_F(BridgeSettingsTest, RatesComeFromTheEntriesNames)
{
    OpenUart();
    for (const char* lEntry : {"Baud0x10", "Baud010", "Baud300 slow", "Baud 600", "Baud-1", "baud1200",
                               "Baud", "Baudx", "2400", "Baud38400"})
    {
        mDevice.SetEntry("Uart0BaudRate", lEntry, true);
    }
    mBridge->mUnsupported = 38400;
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(), IsOK());
    std::vector<uint32_t> lRates;
    lRates.reserve(mBridge->GetSupportedBaudRateCount());
    for (uint32_t lIndex = 0; lIndex < mBridge->GetSupportedBaudRateCount(); ++lIndex)
    {
        lRates.push_back(mBridge->GetSupportedBaudRate(lIndex));
    }
    EXPECT_EQ(lRates, (std::vector<uint32_t>{9600, 115200, 16, 8, 300, 600, 0xFFFFFFFF}));
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"IsFeatureReadable(Uart0BaudRate)", "GetEnumEntries(Uart0BaudRate)"}));
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(), IsOK());
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 7U); // made anew
}

TEST_F(BridgeSettingsTest, RatesThatCannotBeReadAreNone)
{
    OpenUart();
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(), IsOK());
    mDevice.FailCall(Slot::GetEnumEntries, 1);
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(),
                IsResult(KyResult::NOT_READABLE, "Error reading device port baud rates count."));
    EXPECT_EQ(mBridge->GetSupportedBaudRateCount(), 0U);
    mDevice.SetAvailable(Slot::IsFeatureReadable, "Uart0BaudRate", false);
    EXPECT_THAT(mBridge->RefreshSupportedBaudRates(),
                IsResult(KyResult::NOT_READABLE, "Device port baud rate is not readable."));
}

TEST_F(BridgeSettingsTest, ConfigureWritesModeParityStopBitsAndRateInThisOrder)
{
    OpenSelected();
    mBridge->SetConfiguration(With(115200, KyParityEven, 2));
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"GetFeatureAsString(BulkSelector)", "SetFeatureFromString(BulkSelector, \"Bulk3\")",
                     "GetFeatureAsString(BulkSelector)", "GetFeatureAsString(BulkMode)",
                     "SetFeatureFromString(BulkMode, \"UART\")", "GetFeatureAsString(BulkSelector)",
                     "IsFeatureWritable(BulkParity)", "GetFeatureAsString(BulkParity)",
                     "SetFeatureFromString(BulkParity, \"Even\")", "GetFeatureAsString(BulkSelector)",
                     "IsFeatureWritable(BulkNumOfStopBits)", "GetFeatureAsString(BulkNumOfStopBits)",
                     "SetFeatureFromString(BulkNumOfStopBits, \"Two\")", "GetFeatureAsString(BulkSelector)",
                     "GetFeatureAsString(BulkBaudRate)", "SetFeatureFromString(BulkBaudRate, \"Baud115200\")",
                     "SetFeatureFromString(BulkSelector, \"Bulk3\")"}));
    EXPECT_EQ(mBridge->GetBaudRate(), 115200U);
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeSettingsTest, ConfigureGoesOnAfterEveryRefusal)
{
    OpenSelected();
    mDevice.SetText("BulkSelector", "Bulk3");
    mDevice.Fail(Slot::SetFeatureFromString);
    EXPECT_THAT(mBridge->ConfigurePort(), IsOK());
    const std::string lClass = "KySerialLib::Bridge::";
    EXPECT_EQ(
        TakeLog(),
        (Lines{
            {PriorityError, lClass + "SyncBulkMode", "Error setting device serial bulk port to UART mode."},
            {PriorityError, lClass + "SyncParity", "Error setting device serial port parity."},
            {PriorityError, lClass + "SyncStopBits", "Error setting device serial port parity."},
            {PriorityError, lClass + "SyncBaudRate", "Error setting device serial port baud rate."}}));
    EXPECT_EQ(mBridge->GetBaudRate(), 0U);
}

TEST_F(BridgeSettingsTest, ConfigureRefusesAnInvalidConfiguration)
{
    OpenUart();
    mBridge->SetConfiguration(With(4800));
    EXPECT_THAT(mBridge->ConfigurePort(),
                IsResult(KyResult::BAD_PARAMETER,
                         "Could not configure device serial port, serial configuration is not valid."));
    EXPECT_EQ(TakeLog().back(),
              (LogLine{PriorityError, "KySerialLib::Bridge::ConfigurePort",
                       "Could not configure device serial port, serial configuration is not valid."}));
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_F(BridgeSettingsTest, UnchangedRateIsNotWrittenUnlessForced)
{
    OpenUart();
    EXPECT_THAT(mBridge->SyncBaudRate(false), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"GetFeatureAsString(Uart0BaudRate)",
                                          "SetFeatureFromString(Uart0BaudRate, \"Baud9600\")"}));
    EXPECT_THAT(mBridge->SyncBaudRate(false), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
    EXPECT_THAT(mBridge->SyncBaudRate(true), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"GetFeatureAsString(Uart0BaudRate)"});
    mDevice.SetText("Uart0BaudRate", "Baud19200");
    EXPECT_THAT(mBridge->SyncBaudRate(true), IsOK());
    EXPECT_EQ(mDevice.GetText("Uart0BaudRate"), "Baud9600");
}

TEST_F(BridgeSettingsTest, FailedRateIsNotRemembered)
{
    OpenUart();
    EXPECT_THAT(mBridge->SyncBaudRate(false), IsOK());
    mBridge->SetConfiguration(With(19200));
    for (const Slot lSlot : {Slot::GetFeatureAsString, Slot::SetFeatureFromString})
    {
        mDevice.FailCall(lSlot, 1);
        EXPECT_THAT(mBridge->SyncBaudRate(false),
                    IsResult(KyResult::UNSUPPORTED, "Error setting device serial port baud rate."));
        EXPECT_EQ(mBridge->GetBaudRate(), 9600U);
    }
    EXPECT_THAT(mBridge->SyncBaudRate(false), IsOK());
    EXPECT_EQ(mBridge->GetBaudRate(), 19200U);
}

TEST_F(BridgeSettingsTest, ModeIsSetToUartOnlyWhenItIsNot)
{
    OpenSelected();
    mDevice.SetText("BulkSelector", "Bulk3");
    EXPECT_THAT(mBridge->SyncBulkMode(), IsOK());
    EXPECT_EQ(mDevice.GetText("BulkMode"), "UART");
    mDevice.TakeCalls();
    EXPECT_THAT(mBridge->SyncBulkMode(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"GetFeatureAsString(BulkSelector)", "GetFeatureAsString(BulkMode)"}));
    mDevice.Fail(Slot::GetFeatureAsString, "BulkMode");
    EXPECT_THAT(mBridge->SyncBulkMode(),
                IsResult(KyResult::UNSUPPORTED, "Error reading device serial bulk port mode."));
}

TEST_F(BridgeSettingsTest, ParityAndStopBitsGoByTheEntriesNames)
{
    OpenUart();
    struct Case
    {
        KyParity mParity;
        uint32_t mStopBits;
        const char* mParityEntry;
        const char* mStopBitsEntry;
    };
    for (const Case& lCase : {Case{KyParityNone, 1, "None", "One"}, Case{KyParityEven, 2, "Even", "Two"},
                              Case{KyParityOdd, 1, "Odd", "One"}})
    {
        mBridge->SetConfiguration(With(9600, lCase.mParity, lCase.mStopBits));
        EXPECT_THAT(mBridge->SyncParity(), IsOK());
        EXPECT_EQ(mDevice.GetText("Uart0Parity"), lCase.mParityEntry);
        EXPECT_THAT(mBridge->SyncStopBits(), IsOK());
        EXPECT_EQ(mDevice.GetText("Uart0NumOfStopBits"), lCase.mStopBitsEntry);
        mDevice.TakeCalls();
        EXPECT_THAT(mBridge->SyncParity(), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(),
                  (Calls{"IsFeatureWritable(Uart0Parity)", "GetFeatureAsString(Uart0Parity)"}));
    }
    mDevice.Fail(Slot::GetFeatureAsString);
    const auto lRefusal = IsResult(KyResult::UNSUPPORTED, "Error reading device serial port parity.");
    EXPECT_THAT(mBridge->SyncParity(), lRefusal);
    EXPECT_THAT(mBridge->SyncStopBits(), lRefusal);
}

TEST_F(BridgeSettingsTest, UnexpectedParityAndStopBitsAreBrokenAssertionsAndWriteNothing)
{
    OpenUart();
    mBridge->SetConfiguration(With(9600, static_cast<KyParity>(3)));
    EXPECT_THAT(mBridge->SyncParity(), IsResult(KyResult::UNSUPPORTED, "Unexpected parity value."));
    EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityError, "KySerialLib::Bridge::SyncParity", "Unexpected parity value."}}));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsFeatureWritable(Uart0Parity)"});
    for (const uint32_t lStopBits : {0U, 3U})
    {
        mBridge->SetConfiguration(With(9600, KyParityNone, lStopBits));
        EXPECT_THAT(mBridge->SyncStopBits(), IsResult(KyResult::UNSUPPORTED, "Unexpected stop bits value."));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
        EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsFeatureWritable(Uart0NumOfStopBits)"});
    }
}

TEST_F(BridgeSettingsTest, WhatIsNotWritableIsLeftAlone)
{
    OpenUart();
    mDevice.SetAvailable(Slot::IsFeatureWritable, "Uart0Parity", false);
    mDevice.SetAvailable(Slot::IsFeatureWritable, "Uart0NumOfStopBits", false);
    EXPECT_THAT(mBridge->SyncParity(), IsOK());
    EXPECT_THAT(mBridge->SyncStopBits(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"IsFeatureWritable(Uart0Parity)", "IsFeatureWritable(Uart0NumOfStopBits)"}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeSettingsTest, EveryFailedCallIsSurvivedAndTheBridgeLetsGo)
{
    AddSettings(mDevice, "Bulk");
    AddBulkMode(mDevice);
    AddSelector(mDevice);
    JxUtilsLib::Logger::SetPriority(PriorityFatal);
    End();
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            mDevice.ClearCounts();
            mDevice.FailCall(aNth);
            {
                ScriptedBridge lBridge;
                if (lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk3).IsOK())
                {
                    static_cast<void>(lBridge.RefreshSupportedBaudRates());
                    static_cast<void>(lBridge.ConfigurePort());
                    EXPECT_THAT(lBridge.Recover(), IsOK());
                }
            }
            // A refusal to let the sink or the port go is the adapter's own doing; what is left must still end.
            aCount = mDevice.GetCallCount();
            mDevice.StopFailing();
            while (!mDevice.GetSinks().empty())
            {
                static_cast<void>(mDevice.UnregisterEventSink(mDevice.GetSinks().front()));
            }
            KySerialLib::PortMap& lPorts = KySerialLib::PortMap::GetInstance();
            EXPECT_TRUE(IsFree(KyDeviceSerialBulk3) || lPorts.Unlock(&mDevice, KyDeviceSerialBulk3));
        });
    EXPECT_GT(lRefused, 50);
    // The engine's own, of a device that cannot say how long its messages are.
    EXPECT_THAT(mAsserts.Take(), testing::Each("0"));
}

} // namespace
