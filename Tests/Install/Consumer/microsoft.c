/* A program for the Microsoft linker and its object format, without any header or library of a Windows compiler: only the
 * installed headers, our import libraries, and three functions of the system. */

#include <KySerialC/kyserial.h>
#include <KySimulatorC/kysimulator.h>

__declspec(dllimport) void* __stdcall GetStdHandle(unsigned long aWhich);
__declspec(dllimport) int __stdcall WriteFile(void* aFile, const void* aBytes, unsigned long aSize,
                                              unsigned long* aWritten, void* aOverlapped);
__declspec(dllimport) __declspec(noreturn) void __stdcall ExitProcess(unsigned aStatus);

static int Talk(void)
{
    KySimCameraHandle lCamera = 0;
    KyDeviceHandle lDevice = 0;
    KyPortHandle lPort = 0;
    KyAdapter lAdapter;
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    unsigned long lWritten = 0;
    lAdapter.mSize = sizeof lAdapter;
    if (KySimCameraCreate(0, &lCamera) != KY_OK || KySimCameraPlug(lCamera, KY_UART0, KY_SIM_LENS) != KY_OK ||
        KySimCameraGetAdapter(lCamera, &lAdapter) != KY_OK || KyDeviceCreate(&lAdapter, &lDevice) != KY_OK ||
        KyPortCreate(&lPort) != KY_OK || KyPortOpen(lPort, lDevice, KY_UART0) != KY_OK ||
        KyPortWrite(lPort, (const uint8_t*)"ID?\r\n", 5, &lCount) != KY_OK)
    {
        return 1;
    }
    while (lByte != '\n')
    {
        if (KyPortRead(lPort, &lByte, 1, &lCount, 20000) != KY_OK)
        {
            return 2;
        }
        WriteFile(GetStdHandle((unsigned long)-11), &lByte, lCount, &lWritten, 0);
    }
    return KyPortClose(lPort) == KY_OK ? 0 : 3;
}

void Start(void)
{
    ExitProcess((unsigned)Talk());
}
