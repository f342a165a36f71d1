/* A camera on the network in C: finds cameras, or connects one and asks the lens on its first UART.
 *   NetworkCameraC                       the cameras that answer, and who controls them
 *   NetworkCameraC gev://192.168.1.20    this one, also by its MAC address, serial number, user name or model */

#include <KyGigEC/kygige.h>
#include <KySerialC/kyserial.h>
#include <stdio.h>

static int Fail(const char* aWhat)
{
    fprintf(stderr, "%s: %s\n", aWhat, KyGetLastText());
    return 1;
}

static void Print(void* aContext, const KyFoundCamera* aCamera)
{
    static const char* const cControls[] = {"unknown", "free", "taken", "exclusive"};
    (void)aContext;
    printf("%s %s %s %s\n", aCamera->mDevice, aCamera->mModel, aCamera->mSerialNumber,
           cControls[aCamera->mControl]);
}

static int Talk(KyPortHandle aPort)
{
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    if (KyPortWrite(aPort, (const uint8_t*)"STATUS?\r\n", 9, &lCount) != KY_OK)
    {
        return Fail("write");
    }
    while (lByte != '\n')
    {
        if (KyPortRead(aPort, &lByte, 1, &lCount, 20000) != KY_OK)
        {
            return Fail("read");
        }
        putchar(lByte);
    }
    return 0;
}

int main(int aCount, char** aArguments)
{
    KyCameraHandle lCamera = 0;
    KyDeviceHandle lDevice = 0;
    KyPortHandle lPort = 0;
    int lStatus = 0;
    if (aCount < 2)
    {
        return KyCameraFind(NULL, &Print, NULL, NULL) == KY_OK ? 0 : Fail("find");
    }
    if (KyCameraOpen(aArguments[1], NULL, &lCamera) != KY_OK)
    {
        return Fail("open the camera");
    }
    if (KyCameraGetDevice(lCamera, &lDevice) != KY_OK || KyPortCreate(&lPort) != KY_OK ||
        KyPortOpen(lPort, lDevice, KY_UART0) != KY_OK)
    {
        lStatus = Fail("open the port");
    }
    else
    {
        lStatus = Talk(lPort);
    }
    KyPortClose(lPort);
    KyPortDestroy(lPort); /* also after a failure */
    return KyCameraClose(lCamera) == KY_OK ? lStatus : Fail("close the camera");
}
