#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <string.h>

static void TalkToLens(int32_t aSerial)
{
    static const char cCommands[] = "ZOOM 1200\r\nSTATUS?\r\n";
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, aSerial, KY_SIM_LENS);
    char lLine[64];
    uint32_t lWritten = 0;
    CHECK_OK(KyPortWrite(lPort, (const uint8_t*)cCommands, sizeof cCommands - 1, &lWritten));
    CHECK(lWritten == sizeof cCommands - 1);
    ReadLine(lPort, lLine, sizeof lLine);
    CHECK(strcmp(lLine, "OK\r") == 0);
    ReadLine(lPort, lLine, sizeof lLine);
    CHECK(strcmp(lLine, "STATUS READY ZOOM 1200 FOCUS 1000 IRIS 100\r") == 0);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KyPortC_TalksToTheLensOnAUart(void)
{
    TalkToLens(KY_UART0);
}

void KyPortC_TalksToTheLensOnABulkPortThroughRegisters(void)
{
    TalkToLens(KY_BULK0);
}

void KyPortC_TalksToTheLensOnABulkPortThroughFeatures(void)
{
    TalkToLens(KY_BULK5);
}

void KyPortC_OpeningSaysWhatIsWrong(void)
{
    const TestCamera lCamera = MakeCamera();
    KyPortHandle lOther = 0;
    int32_t lAnswer = -1;
    const KyPortHandle lPort = OpenPort(lCamera, KY_UART1, KY_SIM_NOTHING);
    CHECK_CODE(KyPortOpen(lPort, lCamera.mDevice, KY_UART0), KY_WRONG_STATE);
    CHECK(strcmp(KyGetLastText(), "Open already: close it first.") == 0);
    CHECK_OK(KyPortIsOpened(lPort, &lAnswer));
    CHECK(lAnswer == 1);
    CHECK_OK(KyPortCreate(&lOther));
    CHECK_CODE(KyPortOpen(lOther, lCamera.mDevice, KY_UART1), KY_FAILURE); /* claimed by the first */
    CHECK(strlen(KyGetLastText()) > 0);
    CHECK_CODE(KyPortOpen(lOther, lCamera.mDevice, KY_INVALID_PORT), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortOpen(lOther, lCamera.mDevice, KY_BULK7 + 1), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortOpen(lOther, 0, KY_UART0), KY_INVALID_HANDLE);
    CHECK_OK(KyPortIsOpened(lOther, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KyPortIsSupported(lCamera.mDevice, KY_BULK7, &lAnswer));
    CHECK(lAnswer == 1);
    CHECK_OK(KyPortIsSupported(lCamera.mDevice, KY_BULK7 + 1, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortOpen(lOther, lCamera.mDevice, KY_UART1));
    CHECK_OK(KyPortClose(lOther));
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyPortDestroy(lOther));
    EndCamera(lCamera);
}

void KyPortC_AClosedPortRefusesBytes(void)
{
    KyPortHandle lPort = 0;
    uint32_t lCount = 7;
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_CODE(KyPortWrite(lPort, (const uint8_t*)"x", 1, &lCount), KY_NO_CONNECTION);
    CHECK(lCount == 0);
    CHECK_CODE(KyPortClose(lPort), KY_NO_CONNECTION);
    CHECK_OK(KyPortDestroy(lPort));
}

void KyPortC_TheReceiveBufferCanBeAskedFlushedAndMadeAnew(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_BULK2, KY_SIM_NOTHING);
    uint32_t lValue = 0;
    uint8_t lBytes[8];
    CHECK_OK(KyPortGetRxBufferSize(lPort, &lValue));
    CHECK(lValue == 16384);
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK2, (const uint8_t*)"abc", 3));
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_OK(KyPortGetRxBytesReady(lPort, &lValue));
    CHECK(lValue == 3);
    CHECK_OK(KyPortFlushRxBuffer(lPort));
    CHECK_OK(KyPortGetRxBytesReady(lPort, &lValue));
    CHECK(lValue == 0);
    CHECK_OK(KyPortSetRxBufferSize(lPort, 3)); /* holds two */
    CHECK_OK(KySimCameraInject(lCamera.mCamera, KY_BULK2, (const uint8_t*)"defg", 4));
    CHECK_OK(KySimCameraWaitForEvents(lCamera.mCamera));
    CHECK_OK(KyPortRead(lPort, lBytes, sizeof lBytes, &lValue, 0));
    CHECK(lValue == 2 && memcmp(lBytes, "fg", 2) == 0);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KyPortC_ReadingNothingTimesOutAndGivesNone(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    uint8_t lByte = 0;
    uint32_t lRead = 7;
    CHECK_CODE(KyPortRead(lPort, &lByte, 1, &lRead, 1), KY_TIMED_OUT);
    CHECK(lRead == 0);
    CHECK_CODE(KyPortRead(lPort, NULL, 1, &lRead, 0), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortRead(lPort, &lByte, 0, &lRead, 0), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortWrite(lPort, NULL, 1, &lRead), KY_BAD_PARAMETER);
    CHECK_OK(KyPortWrite(lPort, NULL, 0, &lRead));
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KyPortC_ADisconnectedDeviceShowsAndComesBack(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_BULK1, KY_SIM_LOOPBACK);
    uint32_t lWritten = 0;
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 0));
    CHECK_CODE(KyPortWrite(lPort, (const uint8_t*)"x", 1, &lWritten), KY_NO_CONNECTION);
    CHECK_CODE(KyPortClose(lPort), KY_NO_CONNECTION);
    CHECK_CODE(KyDeviceDestroy(lCamera.mDevice), KY_WRONG_STATE); /* the port still has it */
    CHECK_OK(KySimCameraSetConnected(lCamera.mCamera, 1));
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KyPortC_AnOpenPortCanBeDestroyed(void)
{
    const TestCamera lCamera = MakeCamera();
    KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    KyLogSetPriority(KY_LOG_FATAL); /* it warns */
    CHECK_OK(KyPortDestroy(lPort));
    KyLogSetPriority(KY_LOG_WARNING);
    lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING); /* not claimed any more */
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}
