/* Opens UART 0 of a simulated camera in C, asks the lens controller on it for its state and prints the
   answer. With a camera of your own, fill in a KyAdapter instead of asking the simulator for one. */

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

#include <stdio.h>

/* Says what failed. */
static int Report(KyCode aCode)
{
    if (aCode != KY_OK)
    {
        fprintf(stderr, "%s %s\n", KyGetCodeName(aCode), KyGetLastText());
    }
    return aCode != KY_OK;
}

/* What an application does with the device that stands for its camera. */
static KyCode AskLens(KyDeviceHandle aCamera)
{
    static const uint8_t cCommand[] = "STATUS?\r\n";
    uint8_t lAnswer[256];
    uint32_t lCount = 0;
    KyPortHandle lPort = 0;
    KyCode lCode = KyPortCreate(&lPort);
    if (lCode != KY_OK)
    {
        return lCode;
    }
    lCode = KyPortOpen(lPort, aCamera, KY_UART0);
    if (lCode == KY_OK)
    {
        lCode = KyPortWrite(lPort, cCommand, sizeof cCommand - 1, &lCount);
    }
    while (lCode == KY_OK) /* the first byte may take a second, what follows is there or comes at once */
    {
        lCode = KyPortRead(lPort, lAnswer, sizeof lAnswer, &lCount, 1000);
        fwrite(lAnswer, 1, lCount, stdout);
        if (lCount > 0 && lAnswer[lCount - 1] == '\n')
        {
            break;
        }
    }
    Report(lCode);
    KyPortClose(lPort);
    KyPortDestroy(lPort);
    return lCode;
}

int main(void)
{
    KySimCameraHandle lCamera = 0;
    KyDeviceHandle lDevice = 0;
    KyAdapter lAdapter;
    int lStatus = 0;
    lAdapter.mSize = sizeof lAdapter;
    lStatus = Report(KySimCameraCreate(NULL, &lCamera)) ||
              Report(KySimCameraPlug(lCamera, KY_UART0, KY_SIM_LENS)) ||
              Report(KySimCameraGetAdapter(lCamera, &lAdapter)) ||
              Report(KyDeviceCreate(&lAdapter, &lDevice)) || AskLens(lDevice) != KY_OK;
    KyDeviceDestroy(lDevice);
    KySimCameraDestroy(lCamera);
    return lStatus;
}
