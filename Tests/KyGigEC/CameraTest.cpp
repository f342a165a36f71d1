// A camera on the network through the C interface: opening, its connection, closing.

#include "CameraOnNetwork.h"
#include "Support/StructureSizes.h"

#include <thread>

using namespace KyTest;

namespace
{

constexpr KyCode cAccessDenied = 0x8006;

KyPortHandle OpenPort(KyCameraHandle aCamera, int32_t aSerial)
{
    KyPortHandle lPort = 0;
    EXPECT_OK(KyPortCreate(&lPort));
    EXPECT_OK(KyPortOpen(lPort, DeviceOf(aCamera), aSerial));
    return lPort;
}

TEST(KyCameraC, ItsPortsTalkToTheLens)
{
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    for (const int32_t lSerial : {KY_UART0, KY_BULK1})
    {
        const KyPortHandle lPort = OpenPort(lCamera, lSerial);
        EXPECT_EQ(AskLens(lPort), "ID KYLENS 1.0\r\n");
        EXPECT_OK(KyPortClose(lPort));
        EXPECT_OK(KyPortDestroy(lPort));
    }
    EXPECT_NE(lThere.mCamera.GetController().mPort, 0);
    EXPECT_OK(KyCameraClose(lCamera));
    EXPECT_EQ(lThere.mCamera.GetController().mPort, 0);
}

TEST(KyCameraC, AnAddressAloneWillDo)
{
    CameraOnNetwork lThere;
    EXPECT_OK(KyCameraClose(Open(lThere.Name().substr(6))));
}

TEST(KyCameraC, OpeningSaysWhatIsWrong)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const std::string lName = lThere.Name();
    KyCameraOptions lOptions = QuickOptions();
    KyCameraHandle lCamera = 7;
    EXPECT_CODE(KyCameraOpen(nullptr, nullptr, &lCamera), KY_BAD_PARAMETER);
    EXPECT_EQ(lCamera, 0U);
    EXPECT_CODE(KyCameraOpen(lName.c_str(), nullptr, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraOpen("gev://1.2.3", nullptr, &lCamera), KY_FAILURE);
    EXPECT_NE(std::string(KyGetLastText()).find("\"1.2.3\""), std::string::npos) << KyGetLastText();
    lOptions.mAttempts = 0;
    EXPECT_CODE(KyCameraOpen(lName.c_str(), &lOptions, &lCamera), KY_BAD_PARAMETER);
    lOptions = QuickOptions();
    lOptions.mHeartbeatPeriod = 0;
    EXPECT_CODE(KyCameraOpen(lName.c_str(), &lOptions, &lCamera), KY_BAD_PARAMETER);
    lOptions = QuickOptions();
    lOptions.mInterface = "none7";
    EXPECT_CODE(KyCameraOpen(lName.c_str(), &lOptions, &lCamera), KY_FAILURE);
    lThere.mCamera.Unplug();
    EXPECT_CODE(KyCameraOpen(lName.c_str(), nullptr, &lCamera), KY_NO_CONNECTION);
    EXPECT_EQ(lCamera, 0U);
}

TEST(KyCameraC, OneApplicationControlsItAndOthersMayRead)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lFirst = Open(lThere.Name());
    KyCameraHandle lSecond = 7;
    KyCameraOptions lOptions = QuickOptions();
    EXPECT_CODE(KyCameraOpen(lThere.Name().c_str(), &lOptions, &lSecond), cAccessDenied);
    EXPECT_EQ(lSecond, 0U);
    lOptions.mReadOnly = 1;
    lSecond = Open(lThere.Name(), lOptions);
    char lText[64];
    uint32_t lSize = sizeof lText;
    EXPECT_OK(KyCameraGetFeature(lSecond, "BulkSelector", lText, &lSize));
    EXPECT_CODE(KyCameraSetFeature(lSecond, "BulkSelector", "Bulk3"), cAccessDenied);
    EXPECT_OK(KyCameraClose(lSecond));
    EXPECT_OK(KyCameraClose(lFirst));
}

TEST(KyCameraC, ItIsNotClosedWhileAPortIsOpen)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    const KyPortHandle lPort = OpenPort(lCamera, KY_BULK1);
    EXPECT_CODE(KyCameraClose(lCamera), KY_WRONG_STATE);
    EXPECT_EQ(AskLens(lPort), "ID KYLENS 1.0\r\n");
    EXPECT_OK(KyPortClose(lPort));
    EXPECT_OK(KyCameraClose(lCamera));
    EXPECT_CODE(KyCameraClose(lCamera), KY_INVALID_HANDLE);
    EXPECT_OK(KyPortDestroy(lPort));
}

TEST(KyCameraC, EveryFunctionRefusesWhatIsNoCamera)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lStale = Open(lThere.Name());
    KyPortHandle lPort = 0;
    EXPECT_OK(KyPortCreate(&lPort));
    EXPECT_OK(KyCameraClose(lStale));
    for (const KyCameraHandle lNone : {KyCameraHandle{0}, lStale, KyCameraHandle{lPort}})
    {
        KyDeviceHandle lDevice = 7;
        KyCameraState lState{};
        lState.mSize = sizeof lState;
        lState.mGeneration = 7;
        uint32_t lCount = 7;
        char lText[8];
        uint32_t lSize = sizeof lText;
        EXPECT_CODE(KyCameraClose(lNone), KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraGetDevice(lNone, &lDevice), KY_INVALID_HANDLE);
        EXPECT_EQ(lDevice, 0U);
        EXPECT_CODE(KyCameraGetInformation(
                        lNone, [](void*, const KyFoundCamera*) { ADD_FAILURE(); }, nullptr),
                    KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraGetState(lNone, &lState), KY_INVALID_HANDLE);
        EXPECT_EQ(lState.mGeneration, 0U);
        EXPECT_EQ(lState.mSize, sizeof lState);
        EXPECT_CODE(KyCameraWaitForChange(lNone, &lState, cPatience), KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraReconnect(lNone), KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraListFeatures(lNone, nullptr, nullptr, &lCount), KY_INVALID_HANDLE);
        EXPECT_EQ(lCount, 0U);
        EXPECT_CODE(KyCameraDescribeFeature(
                        lNone, "Width", [](void*, const KyFeature*) {}, nullptr),
                    KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraListEntries(
                        lNone, "BulkMode", [](void*, const char*) {}, nullptr),
                    KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraGetFeature(lNone, "BulkMode", lText, &lSize), KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraSetFeature(lNone, "BulkMode", "UART"), KY_INVALID_HANDLE);
        EXPECT_CODE(KyCameraExecute(lNone, "BulkMode"), KY_INVALID_HANDLE);
    }
    EXPECT_OK(KyPortDestroy(lPort));
}

TEST(KyCameraC, NullForAResultIsRefused)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    EXPECT_CODE(KyCameraOptionsInit(nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraSearchInit(nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraGetDevice(lCamera, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraGetInformation(lCamera, nullptr, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraGetState(lCamera, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraWaitForChange(lCamera, nullptr, 0), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraDescribeFeature(lCamera, "BulkMode", nullptr, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraListEntries(lCamera, "BulkMode", nullptr, nullptr), KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraListEntries(
                    lCamera, nullptr, [](void*, const char*) {}, nullptr),
                KY_BAD_PARAMETER);
    EXPECT_CODE(KyCameraExecute(lCamera, nullptr), KY_BAD_PARAMETER);
    EXPECT_OK(KyCameraListFeatures(lCamera, nullptr, nullptr, nullptr));
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraC, ItSaysWhatItIs)
{
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    std::string lText;
    EXPECT_OK(KyCameraGetInformation(
        lCamera,
        [](void* aContext, const KyFoundCamera* aCamera)
        {
            EXPECT_EQ(aCamera->mSize, sizeof(KyFoundCamera));
            EXPECT_EQ(aCamera->mControl, KY_CONTROL_UNKNOWN);
            *static_cast<std::string*>(aContext) = std::string(aCamera->mDevice) + ' ' + aCamera->mVendor +
                                                   ' ' + aCamera->mInterface + aCamera->mController;
        },
        &lText));
    EXPECT_EQ(lText, lThere.Name() + " Korvo ");
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraC, ALossAndAReturnAreObserved)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    KyCameraState lState{};
    lState.mSize = sizeof lState;
    EXPECT_OK(KyCameraWaitForChange(lCamera, &lState, 0)); // a state of zeros is another one
    EXPECT_EQ(lState.mIsConnected, 1);
    EXPECT_EQ(lState.mGeneration, 1U);
    EXPECT_CODE(KyCameraWaitForChange(lCamera, &lState, 1), KY_TIMED_OUT);
    lThere.mCamera.Unplug();
    EXPECT_OK(KyCameraWaitForChange(lCamera, &lState, cPatience));
    EXPECT_EQ(lState.mIsConnected, 0);
    EXPECT_EQ(lState.mLosses, 1U);
    EXPECT_EQ(lState.mGeneration, 1U);
    char lText[8];
    uint32_t lSize = sizeof lText;
    EXPECT_CODE(KyCameraGetFeature(lCamera, "BulkSelector", lText, &lSize), KY_NO_CONNECTION);
    EXPECT_CODE(KyCameraListFeatures(lCamera, nullptr, nullptr, nullptr), KY_NO_CONNECTION);
    EXPECT_CODE(KyCameraExecute(lCamera, "BulkSelector"), KY_NO_CONNECTION);
    EXPECT_TRUE(lThere.mCamera.Plug());
    EXPECT_OK(KyCameraWaitForChange(lCamera, &lState, cPatience));
    EXPECT_EQ(lState.mIsConnected, 1);
    EXPECT_EQ(lState.mGeneration, 2U);
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraC, WithoutReconnectingItWaitsToBeAsked)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    KyCameraOptions lOptions = QuickOptions();
    lOptions.mReconnect = 0;
    const KyCameraHandle lCamera = Open(lThere.Name(), lOptions);
    EXPECT_OK(KyCameraReconnect(lCamera)); // it is not lost
    EXPECT_EQ(StateOf(lCamera).mGeneration, 1U);
    lThere.mCamera.Unplug();
    EXPECT_TRUE(WaitForConnection(lCamera, false));
    EXPECT_CODE(KyCameraReconnect(lCamera), KY_NO_CONNECTION);
    EXPECT_TRUE(lThere.mCamera.Plug());
    EXPECT_OK(KyCameraReconnect(lCamera));
    EXPECT_EQ(StateOf(lCamera).mGeneration, 2U);
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraC, ItCanBeClosedWhileSomebodyWaitsForAChange)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    KyCameraState lState = StateOf(lCamera);
    std::thread lWaiter(
        [&] { EXPECT_CODE(KyCameraWaitForChange(lCamera, &lState, cPatience), KY_INVALID_HANDLE); });
    EXPECT_OK(KyCameraClose(lCamera));
    lWaiter.join();
}

TEST(KyCameraC, ALostOneCanBeClosed)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    lThere.mCamera.Unplug();
    EXPECT_TRUE(WaitForConnection(lCamera, false));
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraC, StructuresOfAnySizeCrashNothing)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const std::string lName = lThere.Name();
    const auto lExpected = [](bool aIsLarge) { return aIsLarge ? KY_OK : KY_BAD_PARAMETER; };
    ForEachSize(QuickOptions(),
                [&](const KyCameraOptions* aOptions, uint32_t aSize)
                {
                    KyCameraHandle lCamera = 0;
                    EXPECT_CODE(KyCameraOpen(lName.c_str(), aOptions, &lCamera),
                                lExpected(aSize >= sizeof(KyCameraOptions)));
                    if (lCamera != 0)
                    {
                        EXPECT_OK(KyCameraClose(lCamera));
                    }
                });
    const KyCameraHandle lCamera = Open(lName);
    ForEachSize(KyCameraState{},
                [&](KyCameraState* aState, uint32_t aSize)
                {
                    const bool lIsLarge = aSize >= sizeof(KyCameraState);
                    EXPECT_CODE(KyCameraWaitForChange(lCamera, aState, 0), lExpected(lIsLarge));
                    EXPECT_CODE(KyCameraGetState(lCamera, aState), lExpected(lIsLarge));
                    EXPECT_EQ(aState->mSize, aSize);
                });
    EXPECT_OK(KyCameraClose(lCamera));
    KyCameraSearch lSearch{};
    EXPECT_OK(KyCameraSearchInit(&lSearch));
    lSearch.mAddress = "127.0.0.1";
    lSearch.mPort = lThere.mCamera.GetEndpoint().mPort;
    lSearch.mTime = cPatience; // the answer ends the search
    ForEachSize(lSearch,
                [&](const KyCameraSearch* aSearch, uint32_t aSize)
                {
                    uint32_t lCount = 7;
                    const bool lIsLarge = aSize >= sizeof(KyCameraSearch);
                    EXPECT_CODE(KyCameraFind(aSearch, nullptr, nullptr, &lCount), lExpected(lIsLarge));
                    EXPECT_EQ(lCount, lIsLarge ? 1U : 0U);
                });
}

} // namespace
