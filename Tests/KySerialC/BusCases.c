#include "CaseDeclarations.h"
#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <string.h>

static KyI2CBusHandle OpenI2C(TestCamera aCamera, int32_t aSerial)
{
    KyI2CBusHandle lBus = 0;
    CHECK_OK(KySimCameraPlug(aCamera.mCamera, aSerial, KY_SIM_I2C));
    CHECK_OK(KyI2CBusCreate(&lBus));
    CHECK_OK(KyI2CBusOpen(lBus, aCamera.mDevice, aSerial));
    return lBus;
}

static void EndI2C(KyI2CBusHandle aBus)
{
    CHECK_OK(KyI2CBusClose(aBus));
    CHECK_OK(KyI2CBusDestroy(aBus));
}

/* A read that is repeated while the EEPROM is busy with its last write, or a busy machine answers late. */
static void ReadPatiently(KyI2CBusHandle aBus, uint8_t aSlave, uint8_t aOffset, uint8_t* aBytes,
                          uint32_t aSize)
{
    KyCode lCode = KY_TIMED_OUT;
    uint32_t lRead = 0;
    int lTry = 0;
    for (lTry = 0; lTry < 100000 && lCode != KY_OK; ++lTry)
    {
        lCode = KyI2CBusIndirectRead(aBus, aSlave, aOffset, aBytes, aSize, &lRead, 1, 1);
    }
    CHECK_CODE(lCode, KY_OK);
    CHECK(lRead == aSize);
}

void KyI2CBusC_ReadsBackWhatItWroteToAnEeprom(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyI2CBusHandle lBus = OpenI2C(lCamera, KY_BULK2);
    uint8_t lBytes[4] = {0};
    KyLogSetPriority(KY_LOG_FATAL);
    CHECK_OK(KyI2CBusIndirectWrite(lBus, 0x50, 0x20, (const uint8_t*)"\xDE\xAD\xBE\xEF", 4, 1));
    ReadPatiently(lBus, 0x50, 0x20, lBytes, 4);
    CHECK(memcmp(lBytes, "\xDE\xAD\xBE\xEF", 4) == 0);
    KyLogSetPriority(KY_LOG_WARNING);
    EndI2C(lBus);
    EndCamera(lCamera);
}

void KyI2CBusC_AHeldBusGoesOnWithARepeatedStart(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyI2CBusHandle lBus = OpenI2C(lCamera, KY_BULK0);
    const uint8_t lPointer = 2; /* the sensor's hysteresis: 75 degrees */
    uint8_t lBytes[2] = {0};
    uint32_t lRead = 0;
    KyCode lCode = KY_TIMED_OUT;
    int lTry = 0;
    KyLogSetPriority(KY_LOG_FATAL);
    for (lTry = 0; lTry < 200 && lCode == KY_TIMED_OUT; ++lTry)
    {
        CHECK_OK(KyI2CBusWrite(lBus, 0x48, &lPointer, 1, 0, 0));
        lCode = KyI2CBusRead(lBus, 0x48, lBytes, 2, &lRead, 0, 1);
    }
    CHECK_CODE(lCode, KY_OK);
    CHECK(lRead == 2 && lBytes[0] == 75 && lBytes[1] == 0);
    KyLogSetPriority(KY_LOG_WARNING);
    EndI2C(lBus);
    EndCamera(lCamera);
}

void KyI2CBusC_SaysWhenNobodyAcknowledges(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyI2CBusHandle lBus = OpenI2C(lCamera, KY_BULK3);
    CHECK_CODE(KyI2CBusWrite(lBus, 0x51, (const uint8_t*)"", 1, 1, 1), 0x8F01); /* the camera's own code */
    CHECK(strcmp(KyGetCodeName(0x8F01), "UNKNOWN") == 0);
    EndI2C(lBus);
    EndCamera(lCamera);
}

void KyI2CBusC_RefusesWhatCannotWork(void)
{
    const TestCamera lCamera = MakeCamera();
    KyI2CBusHandle lBus = 0;
    int32_t lAnswer = -1;
    uint32_t lRead = 7;
    uint8_t lByte = 0;
    KyLogSetPriority(KY_LOG_FATAL + 1);
    CHECK_OK(KyI2CBusCreate(&lBus));
    CHECK_OK(KyI2CBusIsOpened(lBus, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_CODE(KyI2CBusWrite(lBus, 0x50, &lByte, 1, 1, 1), KY_NOT_OPEN);
    CHECK_CODE(KyI2CBusClose(lBus), KY_NOT_OPEN);
    CHECK_CODE(KyI2CBusOpen(lBus, lCamera.mDevice, KY_UART0), KY_UNSUPPORTED);
    CHECK_CODE(KyI2CBusOpen(lBus, lCamera.mDevice, 42), KY_BAD_PARAMETER);
    CHECK_CODE(KyI2CBusOpen(lBus, lBus, KY_BULK1), KY_INVALID_HANDLE);
    CHECK_OK(KyI2CBusIsSupported(lCamera.mDevice, KY_BULK1, &lAnswer));
    CHECK(lAnswer == 1);
    CHECK_OK(KyI2CBusIsSupported(lCamera.mDevice, KY_UART1, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KyI2CBusOpen(lBus, lCamera.mDevice, KY_BULK1));
    CHECK_CODE(KyI2CBusOpen(lBus, lCamera.mDevice, KY_BULK1), KY_WRONG_STATE);
    CHECK_CODE(KyI2CBusRead(lBus, 0x50, NULL, 1, &lRead, 1, 1), KY_BAD_PARAMETER);
    CHECK(lRead == 0);
    CHECK_CODE(KyI2CBusRead(lBus, 0x50, &lByte, 65536, &lRead, 1, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KyI2CBusIndirectRead(lBus, 0x50, 0, NULL, 1, &lRead, 1, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KyI2CBusIndirectRead(lBus, 0x50, 0, &lByte, 65536, &lRead, 1, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KyI2CBusWrite(lBus, 0x50, NULL, 1, 1, 1), KY_BAD_PARAMETER);
    CHECK_OK(KyI2CBusIsOpened(lBus, &lAnswer));
    CHECK(lAnswer == 1);
    KyLogSetPriority(KY_LOG_WARNING);
    EndI2C(lBus);
    EndCamera(lCamera);
}

void KyI2CBusC_CanBeOpenedAgain(void)
{
    const TestCamera lCamera = MakeCamera();
    const KyI2CBusHandle lBus = OpenI2C(lCamera, KY_BULK4);
    KyI2CBusHandle lOther = 0;
    CHECK_OK(KyI2CBusClose(lBus));
    CHECK_OK(KyI2CBusOpen(lBus, lCamera.mDevice, KY_BULK5)); /* port 4 is free */
    lOther = OpenI2C(lCamera, KY_BULK4);
    EndI2C(lOther);
    EndI2C(lBus);
    EndCamera(lCamera);
}

static KySPIBusHandle OpenSPI(TestCamera aCamera, int32_t aSerial)
{
    KySPIBusHandle lBus = 0;
    CHECK_OK(KySimCameraPlug(aCamera.mCamera, aSerial, KY_SIM_FLASH));
    CHECK_OK(KySPIBusCreate(&lBus));
    CHECK_OK(KySPIBusOpen(lBus, aCamera.mDevice, aSerial));
    return lBus;
}

void KySPIBusC_ReadsTheIdentityOfAFlash(void)
{
    const TestCamera lCamera = MakeCamera();
    const KySPIBusHandle lBus = OpenSPI(lCamera, KY_BULK3);
    uint8_t lBytes[3] = {0};
    uint32_t lDone = 0;
    uint32_t lRead = 1;
    CHECK_OK(KySPIBusTransfer(lBus, (const uint8_t*)"\x9F", 1, 3, 0, 1));
    while (lDone < 3 && lRead > 0)
    {
        CHECK_OK(KySPIBusRead(lBus, lBytes + lDone, 3 - lDone, &lRead, PATIENCE));
        lDone += lRead;
    }
    CHECK(memcmp(lBytes, "\xEF\x30\x10", 3) == 0);
    CHECK_OK(KySPIBusClose(lBus));
    CHECK_OK(KySPIBusDestroy(lBus));
    EndCamera(lCamera);
}

void KySPIBusC_RefusesWhatCannotWork(void)
{
    const TestCamera lCamera = MakeCamera();
    KySPIBusHandle lBus = OpenSPI(lCamera, KY_BULK6);
    KySPIBusHandle lClosed = 0;
    static const uint8_t cBytes[256];
    uint8_t lByte = 0;
    uint32_t lRead = 7;
    int32_t lAnswer = -1;
    KyLogSetPriority(KY_LOG_FATAL + 1);
    CHECK_CODE(KySPIBusTransfer(lBus, cBytes, 256, 0, 0, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KySPIBusTransfer(lBus, NULL, 1, 0, 0, 1), KY_BAD_PARAMETER);
    CHECK_CODE(KySPIBusRead(lBus, NULL, 1, &lRead, 0), KY_BAD_PARAMETER);
    CHECK(lRead == 0);
    CHECK_CODE(KySPIBusRead(lBus, &lByte, 0, &lRead, 0), KY_BAD_PARAMETER);
    CHECK_CODE(KySPIBusRead(lBus, &lByte, 1, &lRead, 1), KY_TIMED_OUT);
    CHECK_CODE(KySPIBusOpen(lBus, lCamera.mDevice, KY_BULK6), KY_WRONG_STATE);
    CHECK_OK(KySPIBusIsOpened(lBus, &lAnswer));
    CHECK(lAnswer == 1);
    CHECK_OK(KySPIBusIsSupported(lCamera.mDevice, KY_BULK6, &lAnswer));
    CHECK(lAnswer == 1);
    CHECK_OK(KySPIBusIsSupported(lCamera.mDevice, KY_UART0, &lAnswer));
    CHECK(lAnswer == 0);
    CHECK_OK(KySPIBusCreate(&lClosed));
    CHECK_CODE(KySPIBusTransfer(lClosed, cBytes, 1, 0, 0, 1), KY_NOT_OPEN);
    CHECK_CODE(KySPIBusOpen(lClosed, lCamera.mDevice, KY_BULK6), KY_FAILURE); /* in use */
    CHECK_OK(KySPIBusIsOpened(lClosed, &lAnswer));
    CHECK(lAnswer == 0);
    KyLogSetPriority(KY_LOG_WARNING);
    CHECK_OK(KySPIBusDestroy(lClosed));
    CHECK_OK(KySPIBusClose(lBus));
    CHECK_OK(KySPIBusDestroy(lBus));
    EndCamera(lCamera);
}
