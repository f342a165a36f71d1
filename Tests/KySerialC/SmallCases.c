#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <stddef.h>
#include <string.h>

/* The binary interface: what programs are compiled with stays. */
_Static_assert(sizeof(KyAdapter) == 224, "26 functions after size and context");
_Static_assert(offsetof(KyAdapter, mContext) == 8, "size, then context");
_Static_assert(offsetof(KyAdapter, mIsConnected) == 16, "the function that every table has comes first");
_Static_assert(offsetof(KyAdapter, mReadRegister) == 48, "four questions before the registers");
_Static_assert(offsetof(KyAdapter, mIsFeatureAvailable) == 72, "three register functions");
_Static_assert(offsetof(KyAdapter, mGetIntegerValue) == 120, "six questions about features");
_Static_assert(offsetof(KyAdapter, mGetRegisterLength) == 160, "five values");
_Static_assert(offsetof(KyAdapter, mRegisterFeatureInterest) == 192, "four for register features");
_Static_assert(offsetof(KyAdapter, mUnregisterEventSink) == 216, "the last");
_Static_assert(sizeof(KyLineSettings) == 20, "five numbers");
_Static_assert(offsetof(KyLineSettings, mStopBits) == 16, "the last");
_Static_assert(sizeof(KyLogRecord) == 48, "two numbers, four texts, a number");
_Static_assert(offsetof(KyLogRecord, mLine) == 40, "the last");
_Static_assert(sizeof(KySimOptions) == 16, "four numbers");
_Static_assert(sizeof(KyDeviceHandle) == 8 && sizeof(KyPortHandle) == 8 && sizeof(KyI2CBusHandle) == 8,
               "64 bits");
_Static_assert(sizeof(KySPIBusHandle) == 8 && sizeof(KyBridgeHandle) == 8 && sizeof(KyCode) == 4,
               "64 and 32");
_Static_assert(KY_NO_CONNECTION == 0x17 && KY_TIMED_OUT == 0x1E && KY_NOT_OPEN == 0x605, "fixed numbers");
_Static_assert(KY_FAILURE == 0x4000 && KY_BAD_PARAMETER == 0x4001 && KY_INVALID_HANDLE == 0x4010,
               "fixed numbers");

typedef struct LogNotes
{
    int mLines;
    int32_t mPriority;
    char mMessage[200];
    char mCategory[20];
} LogNotes;

static void NoteLine(void* aContext, const KyLogRecord* aRecord)
{
    LogNotes* const lNotes = (LogNotes*)aContext;
    if (aRecord->mSize == sizeof *aRecord && aRecord->mLine > 0 && strlen(aRecord->mFile) > 0)
    {
        ++lNotes->mLines;
    }
    lNotes->mPriority = aRecord->mPriority;
    strncpy(lNotes->mMessage, aRecord->mMessage, sizeof lNotes->mMessage - 1);
    strncpy(lNotes->mCategory, aRecord->mCategory, sizeof lNotes->mCategory - 1);
    CHECK(strcmp(aRecord->mFunction, "KyPortClose") == 0);
}

void KyLogC_LinesGoToTheFunction(void)
{
    LogNotes lNotes;
    memset(&lNotes, 0, sizeof lNotes);
    CHECK_OK(KyLogSetSink(&NoteLine, &lNotes));
    CHECK_CODE(KyPortClose(1), KY_INVALID_HANDLE);
    CHECK(lNotes.mLines == 1 && lNotes.mPriority == KY_LOG_ERROR);
    CHECK(strcmp(lNotes.mMessage, "No such object.") == 0 && strcmp(lNotes.mCategory, "KySerialLib") == 0);
    CHECK_OK(KyLogSetPriority(KY_LOG_FATAL));
    CHECK(KyLogGetPriority() == KY_LOG_FATAL);
    CHECK_CODE(KyPortClose(1), KY_INVALID_HANDLE);
    CHECK(lNotes.mLines == 1);
    CHECK_OK(KyLogSetPriority(KY_LOG_WARNING));
    CHECK_OK(KyLogSetSink(NULL, NULL));
    CHECK_CODE(KyPortClose(1), KY_INVALID_HANDLE); /* to standard error */
    CHECK(lNotes.mLines == 1);
}

/* Counts the lines that hold both texts, the second after the first. */
typedef struct LineCount
{
    const char* mFirst;
    const char* mSecond;
    int mLines;
} LineCount;

static void CountLine(void* aContext, const KyLogRecord* aRecord)
{
    LineCount* const lCount = (LineCount*)aContext;
    const char* const lFirst = strstr(aRecord->mMessage, lCount->mFirst);
    lCount->mLines += lFirst != NULL && strstr(lFirst, lCount->mSecond) != NULL;
}

void KyLogC_ABrokenAssertionIsALineOfADebugBuild(void)
{
#if defined(NDEBUG)
    const int cExpected = 0;
#else
    const int cExpected = 1;
#endif
    const TestCamera lCamera = MakeCamera();
    LineCount lCount = {"BulkIPEngine.cpp:", ": assertion \"false\" failed", 0};
    int32_t lAnswer = 7;
    CHECK_OK(KyLogSetSink(&CountLine, &lCount));
    CHECK_OK(
        KyI2CBusIsSupported(lCamera.mDevice, KY_UART0, &lAnswer)); /* never a bus; the device is not asked */
    CHECK(lAnswer == 0);
    CHECK_OK(KyLogSetSink(NULL, NULL));
    CHECK(lCount.mLines == cExpected);
    EndCamera(lCamera);
}

void KyResultC_CodesHaveNamesAndTheVersionItsParts(void)
{
    CHECK(strcmp(KyGetCodeName(KY_OK), "OK") == 0);
    CHECK(strcmp(KyGetCodeName(KY_TIMED_OUT), "TIMED_OUT") == 0);
    CHECK(strcmp(KyGetCodeName(KY_INVALID_HANDLE), "INVALID_HANDLE") == 0);
    CHECK(strcmp(KyGetCodeName(0x7777), "UNKNOWN") == 0);
    CHECK(KyGetVersion() == KYTEST_VERSION);
}

void KyResultC_ALongTextIsCut(void)
{
    char lLong[700];
    memset(lLong, 'x', sizeof lLong);
    lLong[sizeof lLong - 1] = '\0';
    KySetLastText(lLong);
    CHECK(strlen(KyGetLastText()) == 511);
    KySetLastText(KyGetLastText());
    CHECK(strlen(KyGetLastText()) == 511);
    KySetLastText(NULL);
    CHECK(strlen(KyGetLastText()) == 0);
}

void KySimCameraC_WhatIsInjectedIsReadAndWhatIsWrittenIsOnTheWire(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    uint8_t lBytes[8];
    uint32_t lCount = 0;
    CHECK_OK(KyPortWrite(lPort, (const uint8_t*)"out", 3, &lCount));
    CHECK_OK(KySimCameraTakeWire(lCamera.mCamera, KY_UART0, lBytes, sizeof lBytes, &lCount));
    CHECK(lCount == 3 && memcmp(lBytes, "out", 3) == 0);
    CHECK_OK(KySimCameraTakeWire(lCamera.mCamera, KY_UART0, lBytes, sizeof lBytes, &lCount));
    CHECK(lCount == 0);
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_UART0, (const uint8_t*)"in", 2));
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_OK(KyPortRead(lPort, lBytes, sizeof lBytes, &lCount, PATIENCE));
    CHECK(lCount == 2 && memcmp(lBytes, "in", 2) == 0);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KySimCameraC_RefusesWhatCannotWork(void)
{
    const TestCamera lCamera = MakeCamera();
    KySimCameraHandle lOther = 7;
    KySimOptions lOptions;
    KyAdapter lAdapter;
    uint8_t lByte = 0;
    uint32_t lCount = 7;
    CHECK_CODE(KySimOptionsInit(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraCreate(NULL, NULL), KY_BAD_PARAMETER);
    CHECK_OK(KySimOptionsInit(&lOptions));
    lOptions.mTransport = 3;
    CHECK_CODE(KySimCameraCreate(&lOptions, &lOther), KY_BAD_PARAMETER);
    CHECK(lOther == 0);
    lOptions.mTransport = KY_SIM_ALTERNATE;
    lOptions.mSize = 0;
    CHECK_CODE(KySimCameraCreate(&lOptions, &lOther), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraGetAdapter(lCamera.mCamera, NULL), KY_BAD_PARAMETER);
    lAdapter.mSize = 8;
    CHECK_CODE(KySimCameraGetAdapter(lCamera.mCamera, &lAdapter), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraPlug(lCamera.mCamera, KY_UART0, KY_SIM_I2C), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraPlug(lCamera.mCamera, KY_BULK7 + 1, KY_SIM_LENS), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraPlug(lCamera.mCamera, KY_BULK7, KY_SIM_FLASH + 1), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraInject(lCamera.mCamera, -1, &lByte, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraInject(lCamera.mCamera, KY_UART0, NULL, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KySimCameraTakeWire(lCamera.mCamera, KY_UART0, NULL, 1, &lCount), KY_BAD_PARAMETER);
    CHECK(lCount == 0);
    CHECK_CODE(KySimCameraTakeWire(lCamera.mCamera, KY_UART0, &lByte, 1, NULL), KY_BAD_PARAMETER);
    EndCamera(lCamera);
}

/* A refused listener leaves nothing that would be taken for one. */
void KySimCameraC_AListenerThatWasRefusedIsTakenWhenItComesAgain(void)
{
    const TestCamera lCamera = MakeCamera();
    KyAdapter lTable;
    KyPortHandle lPort = 0;
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    lTable.mSize = sizeof lTable;
    CHECK_OK(KySimCameraGetAdapter(lCamera.mCamera, &lTable));
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 0));
    CHECK_CODE(lTable.mRegisterEventSink(lTable.mContext, lCamera.mDevice), KY_NO_CONNECTION);
    CHECK_CODE(lTable.mRegisterEventSink(lTable.mContext, lCamera.mDevice), KY_NO_CONNECTION);
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 1));
    lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_UART0, (const uint8_t*)"x", 1));
    CHECK_OK(KyPortRead(lPort, &lByte, 1, &lCount, PATIENCE));
    CHECK(lCount == 1 && lByte == 'x');
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KySimCameraC_AnEndedOneIsDisconnected(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_BULK1, KY_SIM_NOTHING);
    char lText[8];
    uint32_t lSize = sizeof lText;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KySimCameraDestroy(lCamera.mCamera));
    CHECK_CODE(KyPortWrite(lPort, (const uint8_t*)"x", 1, &lSize), KY_NO_CONNECTION);
    CHECK_CODE(KyDeviceGetFeature(lCamera.mDevice, "BulkMode", lText, &lSize), KY_NO_CONNECTION);
    CHECK(strcmp(KyGetLastText(), "The camera is gone.") == 0);
    CHECK_CODE(KySimCameraWaitForEvents(lCamera.mCamera), KY_INVALID_HANDLE);
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyDeviceDestroy(lCamera.mDevice));
    KyLogSetPriority(KY_LOG_WARNING);
}
