// The sizes of the C interface's structures: every one that a caller can give.

#include "Check.h"
extern "C"
{
#include "SpyAdapter.h"
}
#include "Tests/Support/StructureSizes.h"

#include "KySimulatorC/kysimulator.h"

#include <gtest/gtest.h>

#include <cstddef>

using KyTest::ForEachSize;

namespace
{

constexpr KyCode cRefused = KY_BAD_PARAMETER;

/// What a structure's function gives for a size, where only one is right.
KyCode OnlyFor(uint32_t aRight, uint32_t aSize)
{
    return aSize == aRight ? KyCode{KY_OK} : cRefused;
}

class KySizesC : public testing::Test
{
protected:
    KySizesC() { KyLogSetPriority(KY_LOG_FATAL + 1); }
    ~KySizesC() override { KyLogSetPriority(KY_LOG_WARNING); }
};

TEST_F(KySizesC, ATableOfAnySizeCrashesNothing)
{
    const TestCamera lCamera = MakeCamera();
    SpyAdapter lSpy;
    const KyAdapter lModel = MakeSpy(&lSpy, lCamera.mCamera);
    ForEachSize(lModel,
                [&](KyAdapter* aTable, uint32_t aSize)
                {
                    KyDeviceHandle lDevice = 7;
                    const bool lIsLarge = aSize >= offsetof(KyAdapter, mIsKorvoVideoInterface);
                    EXPECT_EQ(KyDeviceCreate(aTable, &lDevice), lIsLarge ? KyCode{KY_OK} : cRefused) << aSize;
                    EXPECT_EQ(lDevice != 0, lIsLarge) << aSize;
                    if (!lIsLarge)
                    {
                        return;
                    }
                    // Functions that the table does not have as a whole are not called.
                    char lText[64];
                    uint32_t lLength = sizeof lText;
                    const bool lCanRead = aSize >= offsetof(KyAdapter, mGetFeatureAsString) +
                                                       sizeof(lModel.mGetFeatureAsString);
                    EXPECT_EQ(KyDeviceGetFeature(lDevice, "BulkSelector", lText, &lLength),
                              static_cast<KyCode>(lCanRead ? KY_OK : KY_UNSUPPORTED))
                        << aSize;
                    for (int32_t lSerial = KY_UART0; lSerial <= KY_BULK7; ++lSerial)
                    {
                        int32_t lAnswer = 7;
                        CHECK_OK(KyPortIsSupported(lDevice, lSerial, &lAnswer));
                    }
                    KyPortHandle lPort = 0;
                    CHECK_OK(KyPortCreate(&lPort));
                    if (KyPortOpen(lPort, lDevice, KY_BULK1) == KY_OK)
                    {
                        CHECK_OK(KyPortClose(lPort));
                    }
                    CHECK_OK(KyPortDestroy(lPort));
                    CHECK_OK(KyDeviceDestroy(lDevice));
                });
    EndCamera(lCamera);
}

TEST_F(KySizesC, ACamerasTableIsGivenInWholeFunctions)
{
    const TestCamera lCamera = MakeCamera();
    KyAdapter lModel{};
    ForEachSize(lModel,
                [&](KyAdapter* aTable, uint32_t aSize)
                {
                    const uint32_t lFirst = offsetof(KyAdapter, mIsKorvoVideoInterface);
                    EXPECT_EQ(KySimCameraGetAdapter(lCamera.mCamera, aTable),
                              aSize >= lFirst ? KyCode{KY_OK} : cRefused)
                        << aSize;
                    if (aSize >= lFirst)
                    {
                        EXPECT_LE(aTable->mSize, aSize);
                        EXPECT_LE(aTable->mSize, sizeof(KyAdapter));
                        EXPECT_EQ((aTable->mSize - lFirst) % sizeof(void*), 0U) << aSize;
                        EXPECT_NE(aTable->mIsConnected, nullptr);
                    }
                });
    EndCamera(lCamera);
}

TEST_F(KySizesC, LineSettingsHaveTheirSize)
{
    KyLineSettings lModel{};
    CHECK_OK(KyLineSettingsInit(&lModel));
    ForEachSize(lModel, [&](const KyLineSettings* aSettings, uint32_t aSize)
                { CHECK_CODE(KyLineSettingsCheck(aSettings), OnlyFor(sizeof lModel, aSize)); });
}

TEST_F(KySizesC, AnObserverHasItsSize)
{
    KyBridgeHandle lBridge = 0;
    CHECK_OK(KyBridgeCreate(&lBridge));
    ForEachSize(KyBridgeObserver{}, [&](const KyBridgeObserver* aObserver, uint32_t aSize)
                { CHECK_CODE(KyBridgeSetObserver(lBridge, aObserver), OnlyFor(sizeof *aObserver, aSize)); });
    CHECK_OK(KyBridgeDestroy(lBridge));
}

TEST_F(KySizesC, AFlowHasItsSizeOrThatOfBefore)
{
    KyBridgeHandle lBridge = 0;
    CHECK_OK(KyBridgeCreate(&lBridge));
    ForEachSize(KyBridgeFlow{},
                [&](KyBridgeFlow* aFlow, uint32_t aSize)
                {
                    KyBridgeFlow lOther{};
                    lOther.mSize = sizeof lOther;
                    const bool lIsKnown =
                        aSize == sizeof(KyBridgeFlow) || aSize == offsetof(KyBridgeFlow, mAway);
                    const KyCode lExpected = lIsKnown ? KyCode{KY_OK} : cRefused;
                    CHECK_CODE(KyBridgeGetFlows(lBridge, aFlow, &lOther), lExpected);
                    CHECK_CODE(KyBridgeGetFlows(lBridge, &lOther, aFlow), lExpected);
                    // A bridge that does not run says so, once the flows are accepted.
                    CHECK_CODE(KyBridgeStopAndGetFlows(lBridge, &lOther, aFlow),
                               static_cast<KyCode>(lIsKnown ? KY_NO_CONNECTION : KY_BAD_PARAMETER));
                });
    CHECK_OK(KyBridgeDestroy(lBridge));
}

TEST_F(KySizesC, OptionsOfACameraHaveTheirSize)
{
    KySimOptions lModel{};
    CHECK_OK(KySimOptionsInit(&lModel));
    ForEachSize(lModel,
                [&](const KySimOptions* aOptions, uint32_t aSize)
                {
                    KySimCameraHandle lCamera = 0;
                    CHECK_CODE(KySimCameraCreate(aOptions, &lCamera), OnlyFor(sizeof lModel, aSize));
                    CHECK_CODE(KySimCameraDestroy(lCamera),
                               static_cast<KyCode>(aSize == sizeof lModel ? KY_OK : KY_INVALID_HANDLE));
                });
}

} // namespace
