#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <stddef.h>
#include <string.h>
#include <time.h>

static KyBridgeHandle MakeBridge(void)
{
    KyBridgeHandle lBridge = 0;
    CHECK_OK(KyBridgeCreate(&lBridge));
    return lBridge;
}

static KyLineSettings DefaultSettings(void)
{
    KyLineSettings lSettings;
    CHECK_OK(KyLineSettingsInit(&lSettings));
    return lSettings;
}

static KyBridgeFlow EmptyFlow(void)
{
    KyBridgeFlow lFlow;
    memset(&lFlow, 0, sizeof lFlow);
    lFlow.mSize = sizeof lFlow;
    return lFlow;
}

void KyBridgeC_AStoppedOneGivesNeutralValues(void)
{
    const KyBridgeHandle lBridge = MakeBridge();
    uint32_t lValue = 7;
    int32_t lSerial = 7;
    char lText[8] = "x";
    uint64_t lToDevice = 7;
    uint64_t lFromDevice = 7;
    KyLineSettings lSettings = DefaultSettings();
    KyBridgeFlow lTo = EmptyFlow();
    KyBridgeFlow lFrom = EmptyFlow();
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_CODE(KyBridgeStop(lBridge), KY_NO_CONNECTION);
    CHECK(strcmp(KyGetLastText(), "Bridge not started.") == 0);
    CHECK_CODE(KyBridgeRecover(lBridge), KY_NO_CONNECTION);
    CHECK_CODE(KyBridgeSetLineSettings(lBridge, &lSettings), KY_NO_CONNECTION);
    CHECK_CODE(KyBridgeSetHardCodedBaudRate(lBridge, 9600), KY_NO_CONNECTION);
    CHECK_OK(KyBridgeGetBaudRate(lBridge, &lValue));
    CHECK(lValue == 0);
    CHECK_OK(KyBridgeGetHardCodedBaudRate(lBridge, &lValue));
    CHECK(lValue == 0);
    CHECK_OK(KyBridgeGetSupportedBaudRateCount(lBridge, &lValue));
    CHECK(lValue == 0);
    CHECK_CODE(KyBridgeGetSupportedBaudRate(lBridge, 0, &lValue), KY_BAD_PARAMETER);
    CHECK_OK(KyBridgeGetDevicePort(lBridge, &lSerial));
    CHECK(lSerial == KY_INVALID_PORT);
    lValue = sizeof lText;
    CHECK_OK(KyBridgeGetName(lBridge, lText, &lValue));
    CHECK(lValue == 1 && lText[0] == '\0');
    CHECK_OK(KyBridgeGetHostPort(lBridge, lText, &lValue));
    CHECK_OK(KyBridgeGetStatistics(lBridge, &lToDevice, &lFromDevice));
    CHECK(lToDevice == 0 && lFromDevice == 0);
    CHECK_OK(KyBridgeGetFlows(lBridge, &lTo, &lFrom));
    CHECK(lTo.mTaken == 0 && lFrom.mTaken == 0);
    lTo.mTaken = 7;
    CHECK_CODE(KyBridgeStopAndGetFlows(lBridge, &lTo, &lFrom), KY_NO_CONNECTION);
    CHECK(lTo.mTaken == 0);
    CHECK_CODE(KyBridgeGetFlows(lBridge, NULL, &lFrom), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStopAndGetFlows(lBridge, &lTo, NULL), KY_BAD_PARAMETER);
    lFrom.mSize = 3;
    CHECK_CODE(KyBridgeGetFlows(lBridge, &lTo, &lFrom), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStopAndGetFlows(lBridge, &lTo, &lFrom), KY_BAD_PARAMETER);
    CHECK_OK(KyBridgeResetStatistics(lBridge));
    CHECK_OK(KyBridgeGetLineSettings(lBridge, &lSettings));
    CHECK(lSettings.mBaudRate == 0 && lSettings.mParity == -1);
    lSettings.mSize = 3;
    CHECK_CODE(KyBridgeGetLineSettings(lBridge, &lSettings), KY_BAD_PARAMETER);
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK_OK(KyBridgeDestroy(lBridge));
}

void KyBridgeC_ServesClientsUnderItsName(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyBridgeHandle lBridge = MakeBridge();
    const char* const lName = KyTestUniqueName();
    const uint32_t lNeeded = (uint32_t)strlen(lName) + 1;
    char lText[256];
    uint32_t lSize = 0;
    int32_t lSerial = 0;
    CHECK_OK(KyBridgeStartClients(lBridge, lName, lCamera.mDevice, KY_BULK1));
    CHECK_CODE(KyBridgeGetName(lBridge, NULL, &lSize), KY_BUFFER_TOO_SMALL);
    CHECK(lSize == lNeeded);
    lSize = lNeeded - 1;
    lText[0] = 'x';
    CHECK_CODE(KyBridgeGetName(lBridge, lText, &lSize), KY_BUFFER_TOO_SMALL);
    CHECK(lSize == lNeeded && lText[0] == 'x');
    CHECK_OK(KyBridgeGetName(lBridge, lText, &lSize));
    CHECK(strcmp(lText, lName) == 0);
    CHECK_OK(KyBridgeGetDevicePort(lBridge, &lSerial));
    CHECK(lSerial == KY_BULK1);
    CHECK_CODE(KyBridgeStartClients(lBridge, lName, lCamera.mDevice, KY_BULK2), KY_WRONG_STATE);
    CHECK_CODE(KyBridgeStartHost(lBridge, "COM1", NULL, lCamera.mDevice, KY_BULK2), KY_WRONG_STATE);
    CHECK(strcmp(KyGetLastText(), "Bridge already started.") == 0);
    CHECK_CODE(KyDeviceDestroy(lCamera.mDevice), KY_WRONG_STATE);
    CHECK_OK(KyBridgeRecover(lBridge));
    CHECK_OK(KyBridgeStop(lBridge));
    CHECK_OK(KyBridgeStartClients(lBridge, lName, lCamera.mDevice, KY_BULK1)); /* the name is free again */
    CHECK_OK(KyBridgeDestroy(lBridge));                                        /* stops it */
    EndCamera(lCamera);
}

/* The camera sends; no client takes more than the FIFO holds, and the stop cuts off the rest. */
void KyBridgeC_GivesTheAccountOfItsBytes(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyBridgeHandle lBridge = MakeBridge();
    const uint8_t lBytes[500] = {0};
    KyBridgeFlow lTo = EmptyFlow();
    KyBridgeFlow lFrom = EmptyFlow();
    int lTurn = 0;
    CHECK_OK(KyBridgeStartClients(lBridge, KyTestUniqueName(), lCamera.mDevice, KY_BULK1));
    for (lTurn = 0; lTurn < 4; ++lTurn)
    {
        CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK1, lBytes, sizeof lBytes));
    }
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_OK(KyBridgeGetFlows(lBridge, &lTo, &lFrom));
    CHECK(lTo.mTaken == 0 && lFrom.mTaken == 2000);
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyBridgeStopAndGetFlows(lBridge, &lTo, &lFrom));
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK(lFrom.mTaken == 2000 && lFrom.mDelivered <= 1023);
    CHECK(lFrom.mDelivered + lFrom.mCutOff == 2000);
    CHECK(lFrom.mOverrun + lFrom.mCleared + lFrom.mRefused == 0);
    CHECK_OK(KyBridgeDestroy(lBridge));
    EndCamera(lCamera);
}

/* What the observer below has heard. */
typedef struct Heard
{
    uint32_t mTraffic[2];
    uint32_t mCutOff;
    uint32_t mGone;
    uint32_t mBack;
    uint32_t mRate;
    uint32_t mQuestions;
} Heard;

static void HearTraffic(void* aContext, int32_t aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount)
{
    Heard* const lHeard = (Heard*)aContext;
    CHECK(aTime > (int64_t)1577836800 * 1000000); /* 2020 */
    CHECK(aBytes[0] == 0x11);
    KyTestCount(&lHeard->mTraffic[aWay], aCount);
}

static void HearLoss(void* aContext, int32_t aWay, int32_t aLoss, uint64_t aBytes)
{
    CHECK(aWay == KY_FROM_DEVICE && aLoss == KY_LOSS_CUT_OFF);
    KyTestCount(&((Heard*)aContext)->mCutOff, (uint32_t)aBytes);
}

static void HearGone(void* aContext)
{
    KyTestCount(&((Heard*)aContext)->mGone, 1);
}

static void HearBack(void* aContext, uint64_t aLost)
{
    CHECK(aLost == 0);
    KyTestCount(&((Heard*)aContext)->mBack, 1);
}

static void HearSettings(void* aContext, const KyLineSettings* aSettings)
{
    CHECK(aSettings->mSize == sizeof *aSettings && aSettings->mParity == KY_PARITY_NONE);
    KyTestCount(&((Heard*)aContext)->mRate, aSettings->mBaudRate);
}

static uint64_t NumberOfConnection(void* aContext)
{
    KyTestCount(&((Heard*)aContext)->mQuestions, 1);
    return 1;
}

static void WaitForCount(uint32_t* aCount, uint32_t aLeast)
{
    const time_t lEnd = time(NULL) + PATIENCE / 1000;
    while (KyTestCount(aCount, 0) < aLeast && time(NULL) < lEnd)
    {
    }
    CHECK(KyTestCount(aCount, 0) >= aLeast);
}

void KyBridgeC_AnObserverHearsWhatItDoes(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyBridgeHandle lBridge = MakeBridge();
    uint8_t lBytes[500];
    Heard lHeard;
    KyBridgeObserver lObserver;
    KyBridgeFlow lTo = EmptyFlow();
    KyBridgeFlow lFrom = EmptyFlow();
    memset(lBytes, 0x11, sizeof lBytes); /* whatever the pieces that it comes in */
    memset(&lHeard, 0, sizeof lHeard);
    memset(&lObserver, 0, sizeof lObserver);
    lObserver.mContext = &lHeard;
    lObserver.mTraffic = &HearTraffic;
    lObserver.mLoss = &HearLoss;
    lObserver.mDeviceGone = &HearGone;
    lObserver.mDeviceBack = &HearBack;
    lObserver.mSettings = &HearSettings;
    CHECK_CODE(KyBridgeSetObserver(lBridge, &lObserver), KY_BAD_PARAMETER);
    lObserver.mSize = sizeof lObserver;
    CHECK_OK(KyBridgeSetObserver(lBridge, &lObserver));
    CHECK_OK(KyBridgeSetReconnect(lBridge, 1, &NumberOfConnection, &lHeard));
    CHECK_OK(KyBridgeStartClients(lBridge, KyTestUniqueName(), lCamera.mDevice, KY_BULK1));
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_CODE(KyBridgeSetObserver(lBridge, NULL), KY_WRONG_STATE);
    CHECK_CODE(KyBridgeSetReconnect(lBridge, 0, NULL, NULL), KY_WRONG_STATE);
    CHECK(KyTestCount(&lHeard.mRate, 0) == 9600);
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK1, lBytes, sizeof lBytes));
    WaitForCount(&lHeard.mTraffic[KY_FROM_DEVICE], sizeof lBytes);
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 0));
    WaitForCount(&lHeard.mGone, 1);
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 1));
    WaitForCount(&lHeard.mBack, 1);
    CHECK(KyTestCount(&lHeard.mRate, 0) == 2 * 9600);
    CHECK(KyTestCount(&lHeard.mQuestions, 0) > 0);
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK1, lBytes, sizeof lBytes));
    CHECK_OK(
        KySimCameraInject(lCamera.mCamera, KY_BULK1, lBytes, sizeof lBytes)); /* more than the FIFO takes */
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_OK(KyBridgeStopAndGetFlows(lBridge, &lTo, &lFrom));
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK(lFrom.mCutOff > 0 && KyTestCount(&lHeard.mCutOff, 0) == lFrom.mCutOff);
    CHECK(lHeard.mTraffic[KY_TO_DEVICE] == 0 && lHeard.mGone == 1 && lHeard.mBack == 1);
    CHECK_OK(KyBridgeSetObserver(lBridge, NULL)); /* nobody hears the next start */
    CHECK_OK(KyBridgeStartClients(lBridge, KyTestUniqueName(), lCamera.mDevice, KY_BULK1));
    CHECK_OK(KyBridgeDestroy(lBridge));
    CHECK(lHeard.mRate == 2 * 9600);
    EndCamera(lCamera);
}

void KyBridgeC_FlowsOfEarlierApplicationsAreShorter(void)
{
    const KyBridgeHandle lBridge = MakeBridge();
    KyBridgeFlow lTo = EmptyFlow();
    KyBridgeFlow lFrom = EmptyFlow();
    lTo.mSize = offsetof(KyBridgeFlow, mAway);
    lTo.mCutOff = 7;
    lTo.mAway = 7; /* memory that an earlier application has for something else */
    CHECK_OK(KyBridgeGetFlows(lBridge, &lTo, &lFrom));
    CHECK(lTo.mCutOff == 0 && lTo.mAway == 7);
    CHECK_OK(KyBridgeDestroy(lBridge));
}

void KyBridgeC_StartingSaysWhatIsWrong(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyBridgeHandle lBridge = MakeBridge();
    KyLineSettings lSettings = DefaultSettings();
    int32_t lSerial = 0;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_CODE(KyBridgeStartHost(lBridge, "PORT1", &lSettings, lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartHost(lBridge, NULL, NULL, lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartHost(lBridge, "COM1", &lSettings, lCamera.mDevice, KY_INVALID_PORT),
               KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartHost(lBridge, "COM1", &lSettings, 0, KY_BULK1), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeStartClients(lBridge, "x", 0, KY_BULK1), KY_INVALID_HANDLE);
    lSettings.mBaudRate = 4800;
    CHECK_CODE(KyBridgeStartHost(lBridge, "COM1", &lSettings, lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    lSettings.mSize = 0;
    CHECK_CODE(KyBridgeStartHost(lBridge, "COM1", &lSettings, lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartClients(lBridge, "", lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartClients(lBridge, NULL, lCamera.mDevice, KY_BULK1), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeStartClients(lBridge, "x", lCamera.mDevice, KY_INVALID_PORT), KY_UNSUPPORTED);
    CHECK_CODE(KyBridgeStartClients(lBridge, "x", lCamera.mDevice, 42), KY_BAD_PARAMETER);
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 0));
    CHECK_CODE(KyBridgeStartClients(lBridge, "x", lCamera.mDevice, KY_BULK1), KY_NO_CONNECTION);
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK_OK(KyBridgeGetDevicePort(lBridge, &lSerial));
    CHECK(lSerial == KY_INVALID_PORT);
    CHECK_OK(KyBridgeDestroy(lBridge));
    EndCamera(lCamera);
}

void KyBridgeC_OffersTheDevicesRatesOrTheHardCodedOne(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyBridgeHandle lBridge = MakeBridge();
    uint32_t lCount = 0;
    uint32_t lRate = 0;
    uint32_t lIndex = 0;
    int lHas9600 = 0;
    KyLineSettings lSettings = DefaultSettings();
    CHECK_OK(KyBridgeStartClients(lBridge, KyTestUniqueName(), lCamera.mDevice, KY_BULK2));
    CHECK_OK(KyBridgeGetSupportedBaudRateCount(lBridge, &lCount));
    CHECK(lCount > 1);
    for (lIndex = 0; lIndex < lCount; ++lIndex)
    {
        CHECK_OK(KyBridgeGetSupportedBaudRate(lBridge, lIndex, &lRate));
        lHas9600 = lHas9600 || lRate == 9600;
    }
    CHECK(lHas9600);
    CHECK_CODE(KyBridgeGetSupportedBaudRate(lBridge, lCount, &lRate), KY_BAD_PARAMETER);
    CHECK(lRate == 0);
    CHECK_OK(KyBridgeGetHardCodedBaudRate(lBridge, &lRate));
    CHECK(lRate == 9600);
    CHECK_OK(KyBridgeSetHardCodedBaudRate(lBridge, 115200));
    CHECK_OK(KyBridgeGetHardCodedBaudRate(lBridge, &lRate));
    CHECK(lRate == 115200);
    CHECK_CODE(KyBridgeSetHardCodedBaudRate(lBridge, 1234), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeSetLineSettings(lBridge, &lSettings), KY_WRONG_STATE);
    CHECK_CODE(KyBridgeSetLineSettings(lBridge, NULL), KY_BAD_PARAMETER);
    CHECK_OK(KyBridgeGetStatistics(lBridge, NULL, NULL));
    CHECK_OK(KyBridgeStop(lBridge));
    CHECK_OK(KyBridgeDestroy(lBridge));
    EndCamera(lCamera);
}

void KyLineSettingsC_AreCheckedValueByValue(void)
{
    KyLineSettings lSettings = DefaultSettings();
    CHECK(lSettings.mSize == sizeof lSettings && lSettings.mBaudRate == 9600 &&
          lSettings.mParity == KY_PARITY_NONE && lSettings.mBitsPerByte == 8 && lSettings.mStopBits == 1);
    CHECK_OK(KyLineSettingsCheck(&lSettings));
    CHECK_CODE(KyLineSettingsInit(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyLineSettingsCheck(NULL), KY_BAD_PARAMETER);
    KyLogSetPriority(KY_LOG_FATAL);
    lSettings.mBaudRate = 4800;
    CHECK_CODE(KyLineSettingsCheck(&lSettings), KY_BAD_PARAMETER);
    CHECK(strstr(KyGetLastText(), "9600") != NULL);
    lSettings = DefaultSettings();
    lSettings.mParity = 3;
    CHECK_CODE(KyLineSettingsCheck(&lSettings), KY_BAD_PARAMETER);
    lSettings = DefaultSettings();
    lSettings.mBitsPerByte = 9;
    CHECK_CODE(KyLineSettingsCheck(&lSettings), KY_BAD_PARAMETER);
    lSettings = DefaultSettings();
    lSettings.mStopBits = 0;
    CHECK_CODE(KyLineSettingsCheck(&lSettings), KY_BAD_PARAMETER);
    lSettings = DefaultSettings();
    lSettings.mSize = sizeof lSettings + 4;
    CHECK_CODE(KyLineSettingsCheck(&lSettings), KY_BAD_PARAMETER);
    KyLogSetPriority(KY_LOG_WARNING);
}
