#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <string.h>

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
