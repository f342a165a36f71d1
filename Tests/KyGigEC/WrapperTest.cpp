// The C++17 wrapper over the C interfaces, as a program of any compiler uses it.

#include "CameraOnNetwork.h"

#include <KySerialC/kyserial.hpp>

#include <array>
#include <string_view>
#include <type_traits>

using namespace std::chrono_literals;

namespace
{

constexpr std::chrono::seconds cLong{60};

ky::SimulatedCamera MakeSimulated()
{
    ky::SimulatedCamera lCamera = ky::SimulatedCamera::Create().OrThrow();
    lCamera.Plug(KY_UART0, KY_SIM_LENS).OrThrow();
    return lCamera;
}

TEST(WrapperTest, APortTalksToTheLens)
{
    const ky::SimulatedCamera lCamera = MakeSimulated();
    ky::Port lPort = ky::Port::Open(lCamera, KY_UART0).OrThrow();
    lPort.Write("ID?\r\n").OrThrow();
    EXPECT_EQ(lPort.ReadUntil('\n', cLong).OrThrow(), "ID KYLENS 1.0\r\n");
    uint32_t lWritten = 0;
    lPort.Write(std::string_view("ID?\r\n"), &lWritten).OrThrow();
    EXPECT_EQ(lWritten, 5U);
    std::array<uint8_t, 4> lBytes{};
    EXPECT_GE(lPort.Read(lBytes, cLong).OrThrow(), 1U);
    EXPECT_EQ(lBytes[0], 'I');
    EXPECT_TRUE(lPort.Flush().IsOK());
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_EQ(lPort.Flush().GetCode(), static_cast<KyCode>(KY_INVALID_HANDLE));
}

TEST(WrapperTest, FailuresAreResultsOrExceptions)
{
    const KyTest::QuietLog lQuiet;
    const ky::SimulatedCamera lCamera = MakeSimulated();
    ky::Outcome<ky::Port> lNone = ky::Port::Open(lCamera, 42);
    EXPECT_FALSE(lNone);
    EXPECT_EQ(lNone.GetCode(), static_cast<KyCode>(KY_BAD_PARAMETER));
    EXPECT_EQ(lNone.GetText(), "No such port.");
    try
    {
        static_cast<void>(std::move(lNone).OrThrow());
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const ky::Error& lError)
    {
        EXPECT_EQ(lError.GetCode(), static_cast<KyCode>(KY_BAD_PARAMETER));
        EXPECT_STREQ(lError.what(), "BAD_PARAMETER: No such port.");
    }
    ky::Port lPort = ky::Port::Open(lCamera, KY_UART0).OrThrow();
    EXPECT_EQ(lPort.ReadUntil('\n', 1ms).GetCode(), static_cast<KyCode>(KY_TIMED_OUT));
    const std::string lNoBus = ky::I2CBus::Open(lCamera, 42).GetText();
    EXPECT_NE(lNoBus, "");
    EXPECT_EQ(ky::SPIBus::Open(lCamera, 42).GetText(), lNoBus);
    EXPECT_EQ(ky::Bridge::StartClients("WrapperTest", lCamera, 42).GetText(),
              "Invalid device port requested.");
    EXPECT_EQ(lCamera.GetDevice().SetFeature("NoSuchFeature", "1").GetCode(), 0x8001U);
}

// The first try has room for 255 characters.
TEST(WrapperTest, ALongTextOfADeviceIsReadWhole)
{
    const KyTest::QuietLog lQuiet;
    static const std::string cLongText(1000, 'x');
    KyAdapter lTable{};
    lTable.mSize = sizeof lTable;
    lTable.mIsConnected = [](void*) -> int32_t { return 1; };
    lTable.mGetFeatureAsString = [](void*, const char* aName) -> KyCode
    { return std::string_view(aName) == "Long" ? KyReturnText(cLongText.c_str()) : KyCode{KY_FAILURE}; };
    const ky::Device lDevice = ky::Device::Create(lTable).OrThrow();
    EXPECT_EQ(lDevice.Get().GetFeature("Long").OrThrow(), cLongText);
    EXPECT_EQ(lDevice.Get().GetFeature("Other").GetCode(), static_cast<KyCode>(KY_FAILURE));
}

TEST(WrapperTest, ObjectsMoveAndGiveBackWhatTheyHave)
{
    static_assert(!std::is_copy_constructible_v<ky::Port> && !std::is_copy_assignable_v<ky::Camera>);
    const ky::SimulatedCamera lCamera = MakeSimulated();
    ky::Port lFirst = ky::Port::Open(lCamera, KY_UART0).OrThrow();
    const ky::Port lSecond = std::move(lFirst);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): empty is what is looked at
    EXPECT_EQ(lFirst.GetHandle(), 0U);
    EXPECT_NE(lSecond.GetHandle(), 0U);
    lFirst = ky::Port::Open(lCamera, KY_UART1).OrThrow();
    lFirst = ky::Port::Open(lCamera, KY_BULK1).OrThrow();  // the one before is closed
    EXPECT_TRUE(ky::Port::Open(lCamera, KY_UART1).IsOK()); // and at once closed again
    EXPECT_TRUE(ky::Port::IsSupported(lCamera, KY_UART1));
}

TEST(WrapperTest, APortOfALostCameraCanBeOpenedAgain)
{
    const KyTest::QuietLog lQuiet;
    ky::SimulatedCamera lCamera = MakeSimulated();
    for (int lRound = 0; lRound < 50; ++lRound)
    {
        ky::Port lPort = ky::Port::Open(lCamera, KY_UART0).OrThrow();
        lPort.Write("ID?\r\n").OrThrow();
        EXPECT_EQ(lPort.ReadUntil('\n', cLong).OrThrow(), "ID KYLENS 1.0\r\n");
        lCamera.SetConnected(false).OrThrow();
        EXPECT_FALSE(lCamera.GetDevice().IsConnected());
        EXPECT_EQ(lPort.Write("x").GetCode(), static_cast<KyCode>(KY_NO_CONNECTION));
        EXPECT_TRUE(lPort.Close().IsOK());
        lCamera.SetConnected(true).OrThrow();
    }
}

TEST(WrapperTest, BusesAndBridgesWork)
{
    ky::SimulatedCamera lCamera = MakeSimulated();
    lCamera.Plug(KY_BULK2, KY_SIM_I2C).OrThrow();
    lCamera.Plug(KY_BULK3, KY_SIM_FLASH).OrThrow();
    ky::I2CBus lI2C = ky::I2CBus::Open(lCamera, KY_BULK2).OrThrow();
    std::array<uint8_t, 2> lTemperature{};
    EXPECT_EQ(lI2C.ReadAt(0x48, 0, lTemperature).OrThrow(), 2U);
    EXPECT_EQ(lTemperature[0], 25);
    ky::SPIBus lSPI = ky::SPIBus::Open(lCamera, KY_BULK3).OrThrow();
    lSPI.Transfer("\x9f", 3).OrThrow();
    std::array<uint8_t, 3> lIdentity{};
    EXPECT_GE(lSPI.Read(lIdentity, cLong).OrThrow(), 1U);
    EXPECT_EQ(lIdentity[0], 0xEF);
    EXPECT_FALSE(ky::Bridge::StartHost("no such port", lCamera, KY_UART0));
}

TEST(WrapperTest, TimesAreRoundedUpAndCut)
{
    EXPECT_EQ(ky::Milliseconds(-1s), 0U);
    EXPECT_EQ(ky::Milliseconds(0ms), 0U);
    EXPECT_EQ(ky::Milliseconds(1ns), 1U);
    EXPECT_EQ(ky::Milliseconds(1500us), 2U);
    EXPECT_EQ(ky::Milliseconds(2s), 2000U);
    EXPECT_EQ(ky::Milliseconds(std::chrono::hours(24 * 365)), UINT32_MAX);
}

TEST(WrapperTest, ACameraIsFoundOpenedAndAsked)
{
    KyTest::CameraOnNetwork lThere;
    KyCameraSearch lSearch{};
    EXPECT_OK(KyCameraSearchInit(&lSearch));
    lSearch.mAddress = "127.0.0.1";
    lSearch.mPort = lThere.mCamera.GetEndpoint().mPort;
    lSearch.mTime = 60000; // the answer ends the search
    const std::vector<ky::FoundCamera> lFound = ky::FindCameras(&lSearch).OrThrow();
    ASSERT_EQ(lFound.size(), 1U);
    EXPECT_EQ(lFound[0].mVendor, "Korvo");
    EXPECT_EQ(lFound[0].mControl, KY_CONTROL_FREE);
    ky::Camera lCamera = ky::Camera::Open(lFound[0].mDevice).OrThrow();
    EXPECT_EQ(lCamera.GetState().mGeneration, 1U);
    lCamera.SetFeature("BulkSelector", "Bulk3").OrThrow();
    EXPECT_EQ(lCamera.GetFeature("BulkSelector").OrThrow(), "Bulk3");
    EXPECT_FALSE(lCamera.ListFeatures().OrThrow().empty());
    {
        ky::Port lPort = ky::Port::Open(lCamera, KY_UART0).OrThrow();
        lPort.Write("ID?\r\n").OrThrow();
        EXPECT_EQ(lPort.ReadUntil('\n', cLong).OrThrow(), "ID KYLENS 1.0\r\n");
    }
    EXPECT_TRUE(lCamera.Close().IsOK());
}

} // namespace
