// Opens UART 0 of a camera, asks the lens controller on it for its state and prints the answer.

#include <KySerial/KyDeviceSerialPort.h>

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/LensController.h"

#include <cstdio>
#include <memory>

namespace
{

// What an application does with the adapter of a connected camera.
int AskLens(IKyDeviceAdapter& aCamera)
{
    KyDeviceSerialPort lPort;
    KyResult lResult = lPort.Open(&aCamera, KyDeviceSerialUart0);
    const char lCommand[] = "STATUS?\r\n";
    uint32_t lCount = 0;
    if (lResult.IsOK())
    {
        lResult = lPort.Write(reinterpret_cast<const uint8_t*>(lCommand), sizeof(lCommand) - 1, lCount);
    }
    uint8_t lAnswer[256];
    while (lResult.IsOK()) // the first byte may take a second, what follows is there or comes at once
    {
        lResult = lPort.Read(lAnswer, sizeof(lAnswer), lCount, 1000);
        std::fwrite(lAnswer, 1, lCount, stdout);
        if (lCount > 0 && lAnswer[lCount - 1] == '\n')
        {
            return lPort.Close().IsOK() ? 0 : 1;
        }
    }
    std::fprintf(stderr, "%s %s\n", lResult.GetCodeString().GetAscii(), lResult.GetDescription().GetAscii());
    return 1;
}

} // namespace

int main()
{
    auto lCamera = std::make_shared<KySimulator::CameraModel>();
    lCamera->Plug(KySimulator::Port::Uart0, std::make_shared<KySimulator::LensController>());
    KySimulator::SimulatedDeviceAdapter lAdapter(lCamera);
    return AskLens(lAdapter);
}
