#include "EndToEnd/CameraTest.h"

#include <map>

using KySimulator::NetworkForms;
using KyTest::CameraLink;

// Cameras that give other forms to what they send.

namespace
{

struct FormsCase
{
    const char* mName;
    NetworkForms mForms;
};

class FormsTest : public testing::TestWithParam<FormsCase>
{
protected:
    FormsTest()
        : mModel(std::make_shared<KySimulator::CameraModel>(Fast()))
        , mLink(mModel, CameraLink::Patient(), GetParam().mForms)
    {
    }

    static KySimulator::CameraConfiguration Fast()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mSerialNumber = "F1";
        return lConfiguration;
    }

    const std::shared_ptr<KySimulator::CameraModel> mModel;
    CameraLink mLink;
};

TEST_P(FormsTest, EveryFeatureOfTheDescriptionCanBeRead)
{
    const std::map<std::string, std::string> lTexts = {
        {"DeviceVendorName", "Korvo"}, {"DeviceModelName", "Simulated Camera"},
        {"DeviceVersion", "1"},        {"DeviceManufacturerInfo", "Simulated camera with serial ports"},
        {"DeviceSerialNumber", "F1"},  {"GevHeartbeatTimeout", "60000"},
        {"GevCCP", "ControlAccess"},   {"TLParamsLocked", "0"}};
    for (const auto& [lName, lText] : lTexts)
    {
        KyString lValue;
        const KyResult lResult = mLink.GetAdapter().GetFeatureAsString(lName.c_str(), lValue);
        EXPECT_TRUE(lResult.IsOK()) << lName << ": " << lResult.GetDescription().GetAscii();
        EXPECT_STREQ(lValue.GetAscii(), lText.c_str()) << lName;
    }
    EXPECT_TRUE(mLink.GetAdapter().SetFeatureFromString("TLParamsLocked", "1").IsOK());
    EXPECT_TRUE(mLink.GetAdapter().SetFeatureFromString("GevHeartbeatTimeout", "50000").IsOK());
    EXPECT_FALSE(mLink.GetAdapter().SetFeatureFromString("GevHeartbeatTimeout", "499").IsOK());
    EXPECT_FALSE(mLink.GetAdapter().SetFeatureFromString("TLParamsLocked", "2").IsOK());
}

TEST_P(FormsTest, BytesComeBackWholeAndInOrder)
{
    for (const KyDeviceSerial lDevicePort : {KyDeviceSerialUart1, KyDeviceSerialBulk0, KyDeviceSerialBulk1})
    {
        mModel->Plug(static_cast<KySimulator::Port>(lDevicePort),
                     std::make_shared<KySimulator::LoopbackPeer>());
        KyDeviceSerialPort lPort;
        ASSERT_TRUE(lPort.Open(&mLink.GetAdapter(), lDevicePort).IsOK());
        std::string lText;
        for (int lCount = 0; lCount < 200; ++lCount)
        {
            lText += std::to_string(lCount) + ' ';
        }
        KyTest::Send(lPort, lText);
        EXPECT_EQ(KyTest::Receive(lPort, lText.size()), lText) << static_cast<int>(lDevicePort);
        EXPECT_TRUE(lPort.Close().IsOK());
    }
    EXPECT_EQ(mLink.GetAdapter().GetFigures().mForeignEvents, 0U);
}

// Bytes that come from the line while nothing acknowledges an event wait, and go out together.
TEST_P(FormsTest, AFloodOfEventsComesWholeAndInOrder)
{
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&mLink.GetAdapter(), KyDeviceSerialBulk2).IsOK());
    std::string lExpected;
    for (int lCount = 0; lCount < 500; ++lCount)
    {
        const std::string lPiece = std::to_string(lCount) + ';';
        mModel->InjectBytes(KySimulator::Port::Bulk2, reinterpret_cast<const uint8_t*>(lPiece.data()),
                            lPiece.size());
        lExpected += lPiece;
    }
    EXPECT_EQ(KyTest::Receive(lPort, lExpected.size()), lExpected);
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_EQ(mLink.GetAdapter().GetFigures().mForeignEvents, 0U);
}

INSTANTIATE_TEST_SUITE_P(All, FormsTest,
                         testing::Values(FormsCase{"Usual", {}},
                                         FormsCase{"SeveralEventsInAPacket", {33, false, false, false}},
                                         FormsCase{"LongEventIds", {1, true, false, false}},
                                         FormsCase{"ZippedDescription", {1, false, true, false}},
                                         FormsCase{"SecondUrl", {1, false, false, true}},
                                         FormsCase{"AllOfThem", {5, true, true, true}}),
                         [](const auto& aCase) { return std::string(aCase.param.mName); });

} // namespace
