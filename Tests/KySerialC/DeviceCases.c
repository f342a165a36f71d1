#include "CaseDeclarations.h"
#include "Check.h"
#include "SpyAdapter.h"

#include <KySimulatorC/kysimulator.h>

#include <stddef.h>
#include <string.h>

static int32_t Yes(void* aContext)
{
    (void)aContext;
    return 2; /* anything but 0 is a yes */
}

void KyDeviceC_CreatingRefusesNullAndIncompleteTables(void)
{
    KyAdapter lTable;
    KyDeviceHandle lDevice = 7;
    memset(&lTable, 0, sizeof lTable);
    lTable.mSize = sizeof lTable;
    CHECK_CODE(KyDeviceCreate(&lTable, &lDevice), KY_BAD_PARAMETER); /* mIsConnected is missing */
    CHECK(lDevice == 0);
    CHECK_CODE(KyDeviceCreate(NULL, &lDevice), KY_BAD_PARAMETER);
    lTable.mIsConnected = &Yes;
    CHECK_CODE(KyDeviceCreate(&lTable, NULL), KY_BAD_PARAMETER);
    lTable.mSize = offsetof(KyAdapter, mIsConnected);
    CHECK_CODE(KyDeviceCreate(&lTable, &lDevice), KY_BAD_PARAMETER);
    lTable.mSize = 0;
    CHECK_CODE(KyDeviceCreate(&lTable, &lDevice), KY_BAD_PARAMETER);
}

void KyDeviceC_ATableOfAnOlderHeaderLacksWhatLiesBeyondIt(void)
{
    KyAdapter lTable;
    KyDeviceHandle lDevice = 0;
    KyPortHandle lPort = 0;
    int32_t lAnswer = 7;
    char lText[8];
    uint32_t lSize = sizeof lText;
    memset(&lTable, 0xAB, sizeof lTable); /* what must not be called */
    lTable.mSize = offsetof(KyAdapter, mIsKorvoVideoInterface);
    lTable.mContext = NULL;
    lTable.mIsConnected = &Yes;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyDeviceCreate(&lTable, &lDevice));
    CHECK_OK(KyPortIsSupported(lDevice, KY_UART0, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KyPortIsSupported(lDevice, KY_BULK1, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_CODE(KyPortOpen(lPort, lDevice, KY_BULK1), KY_UNSUPPORTED);
    CHECK_CODE(KyDeviceGetFeature(lDevice, "BulkMode", lText, &lSize), KY_UNSUPPORTED);
    CHECK(strcmp(KyGetLastText(), "The device adapter does not have this function.") == 0);
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyDeviceDestroy(lDevice));
    KyLogSetPriority(KY_LOG_WARNING);
}

void KyDeviceC_ALargerTableIsTakenAsFarAsItIsKnown(void)
{
    struct
    {
        KyAdapter mTable;
        void* mUnknown[4];
    } lTable;
    KyDeviceHandle lDevice = 0;
    memset(&lTable, 0, sizeof lTable);
    lTable.mTable.mSize = sizeof lTable;
    lTable.mTable.mIsConnected = &Yes;
    CHECK_OK(KyDeviceCreate(&lTable.mTable, &lDevice));
    CHECK_OK(KyDeviceDestroy(lDevice));
}

/* A device whose adapter records the calls and passes them on to a simulated camera. */
typedef struct SpiedCamera
{
    TestCamera mCamera;
    SpyAdapter mSpy;
    KyDeviceHandle mDevice;
} SpiedCamera;

static void MakeSpiedCameraOver(SpiedCamera* aCamera, int32_t aTransport)
{
    KyAdapter lTable;
    aCamera->mCamera = MakeCameraOver(aTransport);
    lTable = MakeSpy(&aCamera->mSpy, aCamera->mCamera.mCamera);
    CHECK_OK(KyDeviceCreate(&lTable, &aCamera->mDevice));
}

static void MakeSpiedCamera(SpiedCamera* aCamera)
{
    MakeSpiedCameraOver(aCamera, KY_SIM_GIGE_VISION);
}

static void EndSpiedCamera(SpiedCamera* aCamera)
{
    CHECK_OK(KyDeviceDestroy(aCamera->mDevice));
    EndCamera(aCamera->mCamera);
}

void KyDeviceC_TheTextOfAFailedFunctionReachesTheCaller(void)
{
    SpiedCamera lCamera;
    MakeSpiedCamera(&lCamera);
    lCamera.mSpy.mRefusal = 0x1234;
    lCamera.mSpy.mRefusalText = "The lens cap is on.";
    CHECK_CODE(KyDeviceSetFeature(lCamera.mDevice, "BulkMode", "UART"), 0x1234);
    CHECK(strcmp(KyGetLastText(), "The lens cap is on.") == 0);
    lCamera.mSpy.mRefusalText = NULL;
    CHECK_CODE(KyDeviceSetFeature(lCamera.mDevice, "BulkMode", "UART"), 0x1234);
    CHECK(strlen(KyGetLastText()) == 0);
    EndSpiedCamera(&lCamera);
}

void KyDeviceC_ASuccessEmptiesTheText(void)
{
    const TestCamera lCamera = MakeCamera();
    CHECK_CODE(KyDeviceSetFeature(lCamera.mDevice, "NoSuchFeature", "1"), 0x8001);
    CHECK(strlen(KyGetLastText()) > 0);
    CHECK_OK(KyDeviceSetFeature(lCamera.mDevice, "BulkSelector", "Bulk3"));
    CHECK(strlen(KyGetLastText()) == 0);
    CHECK_CODE(KyDeviceSetFeature(lCamera.mDevice, NULL, "1"), KY_BAD_PARAMETER);
    CHECK_CODE(KyDeviceSetFeature(lCamera.mDevice, "BulkSelector", NULL), KY_BAD_PARAMETER);
    EndCamera(lCamera);
}

static void UsePort(SpiedCamera* aCamera, int32_t aSerial)
{
    KyPortHandle lPort = 0;
    uint32_t lCount = 0;
    uint8_t lByte = 0;
    CHECK_OK(KySimCameraPlug(aCamera->mCamera.mCamera, aSerial, KY_SIM_LOOPBACK));
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortOpen(lPort, aCamera->mDevice, aSerial));
    CHECK_OK(KyPortWrite(lPort, (const uint8_t*)"x", 1, &lCount));
    CHECK_OK(KyPortRead(lPort, &lByte, 1, &lCount, PATIENCE));
    CHECK(lByte == 'x');
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
}

void KyDeviceC_EveryFunctionOfTheTableIsReached(void)
{
    SpiedCamera lCamera;
    SpiedCamera lOther; /* is identified by vendor and serial number */
    KyBridgeHandle lBridge = 0;
    int32_t lAnswer = 0;
    int lFunction = 0;
    MakeSpiedCamera(&lCamera);
    UsePort(&lCamera, KY_UART0);
    UsePort(&lCamera, KY_BULK0); /* through the window of the register space */
    UsePort(&lCamera, KY_BULK1);
    CHECK_OK(KyI2CBusIsSupported(lCamera.mDevice, KY_BULK1, &lAnswer));
    CHECK_OK(KyBridgeCreate(&lBridge));
    CHECK_OK(KyBridgeStartClients(lBridge, KyTestUniqueName(), lCamera.mDevice, KY_BULK2));
    CHECK_OK(KyBridgeDestroy(lBridge));
    MakeSpiedCameraOver(&lOther, KY_SIM_ALTERNATE);
    UsePort(&lOther, KY_BULK1);
    for (lFunction = 0; lFunction < SPY_FUNCTIONS; ++lFunction)
    {
        if (KyTestCount(&lCamera.mSpy.mCalls[lFunction], 0) +
                KyTestCount(&lOther.mSpy.mCalls[lFunction], 0) ==
            0)
        {
            KyTestFail("function of the table", lFunction, "was not called");
        }
    }
    CHECK(lCamera.mSpy.mDevice == lCamera.mDevice && lOther.mSpy.mDevice == lOther.mDevice);
    EndSpiedCamera(&lCamera);
    EndSpiedCamera(&lOther);
}

void KyDeviceC_ItCannotBeDestroyedWhileSomethingIsOpenOnIt(void)
{
    const TestCamera lCamera = MakeCamera();
    KyPortHandle lPort = OpenPort(lCamera, KY_BULK1, KY_SIM_NOTHING);
    CHECK_CODE(KyDeviceDestroy(lCamera.mDevice), KY_WRONG_STATE);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
    CHECK_CODE(KyDeviceDestroy(lCamera.mDevice), KY_INVALID_HANDLE);
}

void KyDeviceC_AfterItsEndNoFunctionOfTheTableIsCalled(void)
{
    SpiedCamera lCamera;
    KyPortHandle lPort = 0;
    uint32_t lCalls = 0;
    MakeSpiedCamera(&lCamera);
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortOpen(lPort, lCamera.mDevice, KY_BULK3));
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera.mCamera, 0));
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyPortDestroy(lPort)); /* its engine keeps the claim, and listens */
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera.mCamera, 1));
    CHECK_OK(KyDeviceDestroy(lCamera.mDevice));
    lCalls = CountSpyCalls(&lCamera.mSpy);
    CHECK_OK(KySimCameraInject(lCamera.mCamera.mCamera, KY_BULK3, (const uint8_t*)"abc", 3));
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera.mCamera));
    CHECK(CountSpyCalls(&lCamera.mSpy) == lCalls);
    CHECK_CODE(KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, NULL, 0), KY_INVALID_HANDLE);
    EndCamera(lCamera.mCamera);
}

void KyDeviceC_TextsAreReturnedFromInsideTheirFunctionsOnly(void)
{
    SpiedCamera lCamera;
    char lText[16];
    uint32_t lSize = sizeof lText;
    MakeSpiedCamera(&lCamera);
    CHECK_CODE(KyReturnText("x"), KY_WRONG_STATE);
    CHECK_CODE(KyReturnText(NULL), KY_BAD_PARAMETER);
    UsePort(&lCamera, KY_BULK1); /* PostWrite has tried it */
    CHECK_CODE(lCamera.mSpy.mReturned, KY_WRONG_STATE);
    CHECK_OK(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", lText, &lSize));
    CHECK(strcmp(lText, "UART") == 0);
    EndSpiedCamera(&lCamera);
}

void KyDeviceC_EventsReachThePortsUntilTheyAreClosed(void)
{
    const TestCamera lCamera = MakeCamera();
    /* A receive interrupt of UART 0 that the camera has not raised: one byte, 'k'. */
    static const uint8_t cPayload[] = {0x02, 0, 0, 0, 'k', 0, 0x01, 0};
    const KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    uint8_t lByte = 0;
    uint32_t lRead = 0;
    CHECK_OK(KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, cPayload, sizeof cPayload));
    CHECK_OK(KyPortRead(lPort, &lByte, 1, &lRead, 0));
    CHECK(lByte == 'k');
    CHECK_CODE(KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, NULL, 8), KY_BAD_PARAMETER);
    CHECK_OK(KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, NULL, 0));
    CHECK_CODE(KyDeviceNotifyFeatureInvalidated(lCamera.mDevice, NULL), KY_BAD_PARAMETER);
    CHECK_OK(KyDeviceNotifyFeatureInvalidated(lCamera.mDevice, "NoSuchFeature"));
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, cPayload, sizeof cPayload));
    CHECK_OK(KyPortGetRxBytesReady(lPort, &lRead));
    CHECK(lRead == 0);
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

static uint32_t sUnregistered;

static KyCode RefuseSink(void* aContext, KyDeviceHandle aDevice)
{
    (void)aContext;
    (void)aDevice;
    return 0x1234;
}

static KyCode CountUnregistered(void* aContext, KyDeviceHandle aDevice)
{
    (void)aContext;
    (void)aDevice;
    ++sUnregistered;
    return KY_OK;
}

void KyDeviceC_APortWhoseSinkIsRefusedGetsNoEvents(void)
{
    static const uint8_t cPayload[] = {0x02, 0, 0, 0, 'k', 0, 0x01, 0};
    const TestCamera lCamera = MakeCamera();
    KyAdapter lTable;
    KyDeviceHandle lDevice = 0;
    KyPortHandle lPort = 0;
    uint32_t lReady = 7;
    lTable.mSize = sizeof lTable;
    CHECK_OK(KySimCameraGetAdapter(lCamera.mCamera, &lTable));
    lTable.mRegisterEventSink = &RefuseSink;
    lTable.mUnregisterEventSink = &CountUnregistered;
    sUnregistered = 0;
    CHECK_OK(KyDeviceCreate(&lTable, &lDevice));
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortOpen(lPort, lDevice, KY_UART0));
    CHECK_OK(KyDeviceNotifyEvent(lDevice, 0x9000, 0, 0, 0, cPayload, sizeof cPayload));
    CHECK_OK(KyPortGetRxBytesReady(lPort, &lReady));
    CHECK(lReady == 0);
    CHECK_OK(KyPortClose(lPort));
    CHECK(sUnregistered == 0); /* nothing was registered */
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyDeviceDestroy(lDevice));
    EndCamera(lCamera);
}

/* Reports, from inside a report: a port's sink reads this feature. */
static KyDeviceHandle sDevice;
static KyCode sResult;
static KyCode sChangeResult;
static int32_t sHasText;
static KyCode (*sGetRegisterLength)(void*, const char*, int64_t*);
static KyCode (*sGetIntegerValue)(void*, const char*, int64_t*);

static KyCode ReportFromInside(void* aContext, const char* aName, int64_t* aLength)
{
    sResult = KyDeviceNotifyEvent(sDevice, 0x9000, 0, 0, 0, NULL, 0);
    sChangeResult = KyDeviceNotifyFeatureInvalidated(sDevice, "NoSuchFeature");
    sHasText =
        strcmp(KyGetLastText(), "Inside another report of this thread, or of a device that ends.") == 0;
    return sGetIntegerValue(aContext, aName, aLength);
}

void KyDeviceC_AReportFromInsideAReportIsRefused(void)
{
    const TestCamera lCamera = MakeCamera();
    KyAdapter lTable;
    KyPortHandle lPort = 0;
    lTable.mSize = sizeof lTable;
    CHECK_OK(KySimCameraGetAdapter(lCamera.mCamera, &lTable));
    sGetRegisterLength = lTable.mGetRegisterLength;
    sGetIntegerValue = lTable.mGetIntegerValue;
    lTable.mGetIntegerValue = &ReportFromInside;
    sResult = KY_OK;
    CHECK_OK(KyDeviceCreate(&lTable, &sDevice));
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortOpen(lPort, sDevice, KY_BULK6));
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK6, (const uint8_t*)"abc", 3));
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_CODE(sResult, KY_WRONG_STATE);
    CHECK_CODE(sChangeResult, KY_WRONG_STATE);
    CHECK(sHasText);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyDeviceDestroy(sDevice));
    EndCamera(lCamera);
}

/* A node map that keeps what the last event of each port brought: 'a' and 'b' of bulk 1, 'c' of bulk 2. */
static KyCode GetKeptLength(void* aContext, const char* aName, int64_t* aValue)
{
    if (strcmp(aName, "EventBulk1UpstreamDataLength") == 0)
    {
        *aValue = 2;
        return KY_OK;
    }
    *aValue = 1;
    return strcmp(aName, "EventBulk2UpstreamDataLength") == 0 ? KY_OK
                                                              : sGetIntegerValue(aContext, aName, aValue);
}

static KyCode GetKeptBytes(void* aContext, const char* aName, uint8_t* aBuffer, int64_t aLength)
{
    (void)aContext;
    memcpy(aBuffer, strcmp(aName, "EventBulk1UpstreamDataBuffer") == 0 ? "ab" : "c", (size_t)aLength);
    return KY_OK;
}

void KyDeviceC_AnEventOfOnePortDoesNotBringTheLastBytesOfAnotherAgain(void)
{
    const TestCamera lCamera = MakeCamera();
    KyAdapter lTable;
    KyPortHandle lPorts[2] = {0, 0};
    uint8_t lBytes[8] = {0};
    uint32_t lRead = 0;
    int lIndex = 0;
    lTable.mSize = sizeof lTable;
    CHECK_OK(KySimCameraGetAdapter(lCamera.mCamera, &lTable));
    sGetIntegerValue = lTable.mGetIntegerValue;
    lTable.mGetIntegerValue = &GetKeptLength;
    lTable.mGetRegisterData = &GetKeptBytes;
    CHECK_OK(KyDeviceCreate(&lTable, &sDevice));
    for (lIndex = 0; lIndex < 2; ++lIndex)
    {
        CHECK_OK(KyPortCreate(&lPorts[lIndex]));
        CHECK_OK(KyPortOpen(lPorts[lIndex], sDevice, KY_BULK1 + lIndex));
    }
    CHECK_OK(KyDeviceNotifyFeatureInvalidated(sDevice, "EventBulk1UpstreamDataBuffer"));
    CHECK_OK(KyDeviceNotifyFeatureInvalidated(sDevice, "EventBulk2UpstreamDataBuffer"));
    CHECK_OK(KyPortRead(lPorts[0], lBytes, sizeof lBytes, &lRead, 0));
    CHECK(lRead == 2 && memcmp(lBytes, "ab", 2) == 0);
    CHECK_OK(KyPortRead(lPorts[1], lBytes, sizeof lBytes, &lRead, 0));
    CHECK(lRead == 1 && lBytes[0] == 'c');
    for (lIndex = 0; lIndex < 2; ++lIndex)
    {
        CHECK_OK(KyPortClose(lPorts[lIndex]));
        CHECK_OK(KyPortDestroy(lPorts[lIndex]));
    }
    CHECK_OK(KyDeviceDestroy(sDevice));
    EndCamera(lCamera);
}

void KyDeviceC_TextsGoIntoTheCallersBufferIfTheyFit(void)
{
    const TestCamera lCamera = MakeCamera();
    char lText[8] = "before";
    uint32_t lSize = 0;
    CHECK_CODE(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", NULL, &lSize), KY_BUFFER_TOO_SMALL);
    CHECK(lSize == 5);
    lSize = 4;
    CHECK_CODE(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", lText, &lSize), KY_BUFFER_TOO_SMALL);
    CHECK(lSize == 5 && strcmp(lText, "before") == 0);
    CHECK_OK(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", lText, &lSize));
    CHECK(strcmp(lText, "UART") == 0);
    CHECK_CODE(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", lText, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyDeviceGetFeature(lCamera.mDevice, NULL, lText, &lSize), KY_BAD_PARAMETER);
    EndCamera(lCamera);
}
