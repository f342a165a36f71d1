#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <stddef.h>

/* One value of every type that the functions want. */
static uint8_t sByte;
static char sText[8];
static uint32_t sNumber;
static uint64_t sLong;
static int32_t sInteger;
static KyLineSettings sSettings;
static KyAdapter sAdapter;

/* Calls every function that takes aHandle; each has to refuse it. */
static void CallPorts(uint64_t aHandle)
{
    CHECK_CODE(KyPortDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortOpen(aHandle, 0, KY_UART0), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortClose(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortIsOpened(aHandle, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortWrite(aHandle, &sByte, 1, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortRead(aHandle, &sByte, 1, &sNumber, 0), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortFlushRxBuffer(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortGetRxBytesReady(aHandle, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortGetRxBufferSize(aHandle, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortSetRxBufferSize(aHandle, 1), KY_INVALID_HANDLE);
}

static void CallDevices(uint64_t aHandle)
{
    CHECK_CODE(KyDeviceDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyDeviceNotifyEvent(aHandle, 0, 0, 0, 0, NULL, 0), KY_INVALID_HANDLE);
    CHECK_CODE(KyDeviceNotifyFeatureInvalidated(aHandle, "x"), KY_INVALID_HANDLE);
    CHECK_CODE(KyDeviceGetFeature(aHandle, "x", sText, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyDeviceSetFeature(aHandle, "x", "x"), KY_INVALID_HANDLE);
    CHECK_CODE(KyDeviceIsConnected(aHandle, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KyPortIsSupported(aHandle, KY_UART0, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusIsSupported(aHandle, KY_BULK0, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusIsSupported(aHandle, KY_BULK0, &sInteger), KY_INVALID_HANDLE);
}

static void CallBuses(uint64_t aHandle)
{
    CHECK_CODE(KyI2CBusDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusOpen(aHandle, 0, KY_BULK0), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusClose(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusIsOpened(aHandle, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusWrite(aHandle, 0, &sByte, 1, 0, 1), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusRead(aHandle, 0, &sByte, 1, &sNumber, 0, 1), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusIndirectWrite(aHandle, 0, 0, &sByte, 1, 0), KY_INVALID_HANDLE);
    CHECK_CODE(KyI2CBusIndirectRead(aHandle, 0, 0, &sByte, 1, &sNumber, 0, 1), KY_INVALID_HANDLE);
}

static void CallSPIBuses(uint64_t aHandle)
{
    CHECK_CODE(KySPIBusDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusOpen(aHandle, 0, KY_BULK0), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusClose(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusIsOpened(aHandle, &sInteger), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusTransfer(aHandle, &sByte, 1, 0, 0, 1), KY_INVALID_HANDLE);
    CHECK_CODE(KySPIBusRead(aHandle, &sByte, 1, &sNumber, 0), KY_INVALID_HANDLE);
}

static void CallBridges(uint64_t aHandle)
{
    CHECK_CODE(KyBridgeDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeStartHost(aHandle, "COM1", NULL, 0, KY_UART0), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeStartClients(aHandle, "x", 0, KY_UART0), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeStop(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeRecover(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeSetLineSettings(aHandle, &sSettings), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetLineSettings(aHandle, &sSettings), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeSetHardCodedBaudRate(aHandle, 9600), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetHardCodedBaudRate(aHandle, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetSupportedBaudRateCount(aHandle, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetSupportedBaudRate(aHandle, 0, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetBaudRate(aHandle, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetName(aHandle, sText, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KyBridgeGetHostPort(aHandle, sText, &sNumber), KY_INVALID_HANDLE);
    sInteger = 7;
    CHECK_CODE(KyBridgeGetDevicePort(aHandle, &sInteger), KY_INVALID_HANDLE);
    CHECK(sInteger == KY_INVALID_PORT);
    sLong = 7;
    CHECK_CODE(KyBridgeGetStatistics(aHandle, &sLong, NULL), KY_INVALID_HANDLE);
    CHECK(sLong == 0);
    CHECK_CODE(KyBridgeResetStatistics(aHandle), KY_INVALID_HANDLE);
}

static void CallCameras(uint64_t aHandle)
{
    CHECK_CODE(KySimCameraDestroy(aHandle), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraGetAdapter(aHandle, &sAdapter), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraPlug(aHandle, KY_UART0, KY_SIM_LENS), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraInject(aHandle, KY_UART0, &sByte, 1), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraTakeWire(aHandle, KY_UART0, &sByte, 1, &sNumber), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraSetConnected(aHandle, 0), KY_INVALID_HANDLE);
    CHECK_CODE(KySimCameraWaitForEvents(aHandle), KY_INVALID_HANDLE);
}

static void CallAll(uint64_t aHandle)
{
    CallPorts(aHandle);
    CallDevices(aHandle);
    CallBuses(aHandle);
    CallSPIBuses(aHandle);
    CallBridges(aHandle);
    CallCameras(aHandle);
}

void KyHandleC_EveryFunctionRefusesNoHandle(void)
{
    KyLogSetPriority(KY_LOG_FATAL);
    sNumber = 7;
    CHECK_CODE(KyPortRead(0, &sByte, 1, &sNumber, 0), KY_INVALID_HANDLE);
    CHECK(sNumber == 0);
    CallAll(0);
    CallAll(1);
    CallAll(UINT64_MAX);
    KyLogSetPriority(KY_LOG_WARNING);
}

void KyHandleC_EveryFunctionRefusesTheHandleOfAnotherKind(void)
{
    const TestCamera lCamera = MakeCamera();
    KyPortHandle lPort = 0;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyPortCreate(&lPort));
    CallDevices(lPort);
    CallBuses(lPort);
    CallSPIBuses(lPort);
    CallBridges(lPort);
    CallCameras(lPort);
    CallPorts(lCamera.mDevice);
    CallPorts(lCamera.mCamera);
    CHECK_OK(KyPortDestroy(lPort));
    KyLogSetPriority(KY_LOG_WARNING);
    EndCamera(lCamera);
}

void KyHandleC_EveryFunctionRefusesAStaleHandle(void)
{
    const TestCamera lCamera = MakeCamera();
    KyPortHandle lPort = 0;
    KyPortHandle lNext = 0;
    KyI2CBusHandle lI2C = 0;
    KySPIBusHandle lSPI = 0;
    KyBridgeHandle lBridge = 0;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortDestroy(lPort));
    CHECK_OK(KyPortCreate(&lNext)); /* may have the former one's place */
    CallPorts(lPort);
    CHECK_OK(KyPortIsOpened(lNext, &sInteger));
    CHECK_OK(KyPortDestroy(lNext));
    CHECK_OK(KyI2CBusCreate(&lI2C));
    CHECK_OK(KyI2CBusDestroy(lI2C));
    CallBuses(lI2C);
    CHECK_OK(KySPIBusCreate(&lSPI));
    CHECK_OK(KySPIBusDestroy(lSPI));
    CallSPIBuses(lSPI);
    CHECK_OK(KyBridgeCreate(&lBridge));
    CHECK_OK(KyBridgeDestroy(lBridge));
    CallBridges(lBridge);
    EndCamera(lCamera);
    CallDevices(lCamera.mDevice);
    CallCameras(lCamera.mCamera);
    KyLogSetPriority(KY_LOG_WARNING);
}

void KyHandleC_NullForAResultIsRefused(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
    KyBridgeHandle lBridge = 0;
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyBridgeCreate(&lBridge));
    CHECK_CODE(KyPortCreate(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyI2CBusCreate(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KySPIBusCreate(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeCreate(NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortIsOpened(lPort, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortWrite(lPort, &sByte, 1, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortRead(lPort, &sByte, 1, NULL, 0), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortGetRxBytesReady(lPort, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortGetRxBufferSize(lPort, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyPortIsSupported(lCamera.mDevice, KY_UART0, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyDeviceIsConnected(lCamera.mDevice, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeGetBaudRate(lBridge, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeGetDevicePort(lBridge, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeGetSupportedBaudRate(lBridge, 0, NULL), KY_BAD_PARAMETER);
    CHECK_CODE(KyBridgeGetName(lBridge, sText, NULL), KY_BAD_PARAMETER);
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK_OK(KyBridgeDestroy(lBridge));
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

void KyHandleC_NoNumberIsGivenTwice(void)
{
    KyPortHandle lFormer = 0;
    int lTry = 0;
    for (lTry = 0; lTry < 1000; ++lTry)
    {
        KyPortHandle lPort = 0;
        CHECK_OK(KyPortCreate(&lPort));
        CHECK(lPort > lFormer); /* one place, whose generations only rise */
        CHECK_OK(KyPortDestroy(lPort));
        lFormer = lPort;
    }
}
