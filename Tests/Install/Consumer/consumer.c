/* As a customer's program in C: the installed headers, the C library and the simulated camera. */

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    KySimCameraHandle lCamera = 0;
    KyDeviceHandle lDevice = 0;
    KyPortHandle lPort = 0;
    KyAdapter lAdapter;
    char lAnswer[64] = "";
    uint32_t lLength = 0;
    uint32_t lRead = 0;
    lAdapter.mSize = sizeof lAdapter;
    if (KySimCameraCreate(NULL, &lCamera) != KY_OK ||
        KySimCameraPlug(lCamera, KY_UART0, KY_SIM_LENS) != KY_OK ||
        KySimCameraGetAdapter(lCamera, &lAdapter) != KY_OK || KyDeviceCreate(&lAdapter, &lDevice) != KY_OK ||
        KyPortCreate(&lPort) != KY_OK || KyPortOpen(lPort, lDevice, KY_UART0) != KY_OK ||
        KyPortWrite(lPort, (const uint8_t*)"ID?\r\n", 5, &lRead) != KY_OK)
    {
        fprintf(stderr, "%s\n", KyGetLastText());
        return 1;
    }
    while (strchr(lAnswer, '\n') == NULL && lLength + 1 < sizeof lAnswer &&
           KyPortRead(lPort, (uint8_t*)lAnswer + lLength, 1, &lRead, 20000) == KY_OK)
    {
        lLength += lRead;
    }
    printf("%s", lAnswer);
    return strcmp(lAnswer, "ID KYLENS 1.0\r\n") == 0 && KyPortClose(lPort) == KY_OK ? 0 : 1;
}
