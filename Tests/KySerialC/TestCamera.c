#include "Check.h"

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

TestCamera MakeCamera(void)
{
    return MakeCameraOver(KY_SIM_GIGE_VISION);
}

TestCamera MakeCameraOver(int32_t aTransport)
{
    TestCamera lCamera = {0, 0};
    KySimOptions lOptions;
    KyAdapter lAdapter;
    CHECK_OK(KySimOptionsInit(&lOptions));
    lOptions.mUnlimitedLineRate = 1;
    lOptions.mTransport = aTransport;
    CHECK_OK(KySimCameraCreate(&lOptions, &lCamera.mCamera));
    lAdapter.mSize = sizeof lAdapter;
    CHECK_OK(KySimCameraGetAdapter(lCamera.mCamera, &lAdapter));
    CHECK_OK(KyDeviceCreate(&lAdapter, &lCamera.mDevice));
    return lCamera;
}

void EndCamera(TestCamera aCamera)
{
    CHECK_OK(KyDeviceDestroy(aCamera.mDevice));
    CHECK_OK(KySimCameraDestroy(aCamera.mCamera));
}

uint64_t OpenPort(TestCamera aCamera, int32_t aSerial, int32_t aWhat)
{
    KyPortHandle lPort = 0;
    CHECK_OK(KySimCameraPlug(aCamera.mCamera, aSerial, aWhat));
    CHECK_OK(KyPortCreate(&lPort));
    CHECK_OK(KyPortOpen(lPort, aCamera.mDevice, aSerial));
    return lPort;
}

void ReadLine(uint64_t aPort, char* aText, uint32_t aSize)
{
    uint32_t lLength = 0;
    uint32_t lRead = 1;
    while (lLength + 1 < aSize && lRead == 1)
    {
        CHECK_OK(KyPortRead(aPort, (uint8_t*)aText + lLength, 1, &lRead, PATIENCE));
        if (lRead == 1 && aText[lLength] == '\n')
        {
            break;
        }
        lLength += lRead;
    }
    aText[lLength] = '\0';
}
