// What of the bridge to a host port needs no host port.

#include "BridgeCOM.h"

#include "BridgePacer.h"
#include "KySerial/Bridge/BridgeFixture.h"

using namespace KyTest;
using KyPlatform::HostLine;
using KySerialLib::BridgeCOM;

namespace
{

constexpr char cParse[] = "KySerialLib::BridgeCOM::ParseCOMPort";
constexpr char cMalformed[] = "Serial port string not formatted as expected. Example: COM5.";

class BridgeCOMTest : public EngineTest
{
protected:
    // A configuration becomes this line.
    static void ExpectLine(const KySerialPortConfiguration& aConfiguration, const HostLine& aLine)
    {
        SCOPED_TRACE(aConfiguration.mBaudRate);
        const HostLine lLine = BridgeCOM::ToHostLine(aConfiguration);
        EXPECT_EQ(lLine.mBaudRate, aLine.mBaudRate);
        EXPECT_EQ(lLine.mDataBits, aLine.mDataBits);
        EXPECT_EQ(lLine.mParity, aLine.mParity);
        EXPECT_EQ(lLine.mCheckParity, aLine.mCheckParity);
        EXPECT_EQ(lLine.mTwoStopBits, aLine.mTwoStopBits);
    }

    BridgeCOM mBridge;
};

TEST_F(BridgeCOMTest, TakesComNamesOfOneOrTwoDigitsInAnyCase)
{
    const std::pair<const char*, const char*> lNames[] = {
        {"COM1", R"(\\.\COM1)"}, {"com9", R"(\\.\COM9)"},   {"CoM12", R"(\\.\COM12)"},
        {"COM0", R"(\\.\COM0)"}, {"cOm07", R"(\\.\COM07)"}, {"COM10", R"(\\.\COM10)"}};
    for (const auto& [lName, lExpected] : lNames)
    {
        KyString lPath;
        EXPECT_THAT(mBridge.ParseCOMPort(lName, lPath), IsOK()) << lName;
        EXPECT_STREQ(lPath.GetAscii(), lExpected);
        EXPECT_STREQ(mBridge.GetSerialPort().GetAscii(), lName);
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BridgeCOMTest, RefusesEveryOtherName)
{
    KyString lPath("before");
    for (const char* lName : {"COM", "COM123", "COM100", "COMA", "LPT1", "COM1A", "COM5X", "", "5", "COM-",
                              "COM 1", "\xC3OM1", "CAM1", "CON1", "COM1\n", R"(\\.\COM1)"})
    {
        EXPECT_THAT(mBridge.ParseCOMPort(lName, lPath), IsResult(KyResult::BAD_PARAMETER, cMalformed))
            << lName;
        EXPECT_EQ(TakeLogOf("BridgeCOM"), (Lines{{PriorityError, cParse, cMalformed}}));
    }
    EXPECT_THAT(mBridge.ParseCOMPort(nullptr, lPath), IsResult(KyResult::BAD_PARAMETER, cMalformed));
    EXPECT_STREQ(lPath.GetAscii(), "before");
    EXPECT_STREQ(mBridge.GetSerialPort().GetAscii(), "");
}

TEST_F(BridgeCOMTest, ConvertsEachSetting)
{
    using Parity = HostLine::Parity;
    const std::pair<KySerialPortConfiguration, HostLine> lCases[] = {
        {{9600, KyParityNone, 8, 1}, {9600, 8, Parity::Unchanged, false, false}},
        {{14400, KyParityNone, 8, 2}, {14400, 8, Parity::Unchanged, false, true}},
        {{19200, KyParityNone, 7, 1}, {19200, 7, Parity::Unchanged, false, false}},
        {{28800, KyParityEven, 8, 1}, {28800, 8, Parity::Even, true, false}},
        {{38400, KyParityOdd, 8, 1}, {38400, 8, Parity::Odd, false, false}},
        {{57600, KyParityOdd, 7, 2}, {57600, 7, Parity::Odd, false, true}},
        {{115200, KyParityEven, 7, 2}, {115200, 7, Parity::Even, true, true}}};
    for (const auto& [lConfiguration, lLine] : lCases)
    {
        ExpectLine(lConfiguration, lLine);
    }
}

TEST_F(BridgeCOMTest, ConversionOfEveryInvalidValueIsABrokenAssertionAndMild)
{
    const KySerialPortConfiguration lInvalid[] = {
        {4800, KyParityNone, 8, 1}, {0, KyParityNone, 8, 1},    {9600, static_cast<KyParity>(-1), 8, 1},
        {9600, KyParityNone, 9, 1}, {9600, KyParityNone, 5, 1}, {9600, KyParityNone, 8, 0},
        {9600, KyParityNone, 8, 3}};
    for (const KySerialPortConfiguration& lConfiguration : lInvalid)
    {
        ExpectLine(lConfiguration, HostLine());
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    }
}

TEST_F(BridgeCOMTest, SupportsEveryRate)
{
    for (const uint32_t lRate : {0U, 300U, 9600U, 230400U, 0xFFFFFFFFU})
    {
        EXPECT_TRUE(mBridge.IsBaudRateSupported(lRate));
    }
}

TEST_F(BridgeCOMTest, RateIsTheConfigurationsUntilTheDeviceHasOne)
{
    EXPECT_EQ(mBridge.GetBaudRate(), 9600U);
    AddSettings(mDevice, "Uart0");
    ASSERT_THAT(mBridge.OpenDevicePort(&mDevice, KyDeviceSerialUart0), IsOK());
    EXPECT_EQ(mBridge.GetBaudRate(), 9600U);
}

TEST_F(BridgeCOMTest, OpensNoPortWithoutAWellFormedNameOfOneThatIsThere)
{
    EXPECT_THAT(mBridge.OpenCOMPort("COM5X", KySerialPortConfiguration()),
                IsResult(KyResult::BAD_PARAMETER, cMalformed));
    TakeLog();
    ExpectFailure(mBridge.OpenCOMPort("COM99", KySerialPortConfiguration()), KyResult::FAILURE,
                  "KySerialLib::BridgeCOM::OpenCOMPort", "Unable to open requested COM port.", "BridgeCOM");
    EXPECT_STREQ(mBridge.GetSerialPort().GetAscii(), "COM99");
}

TEST_F(BridgeCOMTest, SettingsNeedAnOpenPort)
{
    ExpectFailure(mBridge.SetSerialPortConfiguration(KySerialPortConfiguration()), KyResult::FAILURE,
                  "KySerialLib::BridgeCOM::SetSerialPortConfiguration",
                  "Unable to read current COM port configuration.");
}

TEST(BridgePacerTest, ASingleMissCostsNothingAndADeadLineIsTriedOnceASecond)
{
    KySerialLib::BridgePacer lPacer;
    std::vector<uint32_t> lDelays;
    for (int lIndex = 0; lIndex < 11; ++lIndex)
    {
        lPacer.Begin();
        lDelays.push_back(lPacer.GetDelay());
    }
    EXPECT_EQ(lDelays, (std::vector<uint32_t>{0, 10, 20, 40, 80, 160, 320, 640, 1000, 1000, 1000}));
    lPacer.Reset();
    lPacer.Begin();
    EXPECT_EQ(lPacer.GetDelay(), 0U);
}

TEST(BridgePacerTest, ATryThatTookItsTimeNeedsNoPause)
{
    KySerialLib::BridgePacer lPacer;
    for (int lIndex = 0; lIndex < 3; ++lIndex)
    {
        lPacer.Begin();
        JxUtilsLib::Thread::Sleep(15);
        EXPECT_EQ(lPacer.GetDelay(), 0U);
    }
}

} // namespace
