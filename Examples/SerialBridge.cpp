// Serves a camera's UART to Camera Link serial clients, and is such a client at once: usually another program
// is, which loads the clserzmo library and finds the server by its name.

#include <KySerial/KySerialBridge.h>
#include <clserzmo/clser.h>

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/LensController.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

namespace
{

// The client's side: finds the port of that name and asks the lens on it for its identity.
int AskLens(const std::string& aName)
{
    CLUINT32 lPorts = 0;
    clGetNumSerialPorts(&lPorts);
    for (CLUINT32 lIndex = 0; lIndex < lPorts; ++lIndex)
    {
        char lName[256] = "";
        CLUINT32 lSize = sizeof(lName);
        hSerRef lPort = nullptr;
        if (clGetSerialPortIdentifier(lIndex, lName, &lSize) != CL_ERR_NO_ERR || aName != lName ||
            clSerialInit(lIndex, &lPort) != CL_ERR_NO_ERR)
        {
            continue;
        }
        char lCommand[] = "ID?\r\n";
        char lAnswer[] = "ID KYLENS 1.0\r\n";
        CLUINT32 lWritten = sizeof(lCommand) - 1;
        CLUINT32 lRead = sizeof(lAnswer) - 1; // a read waits for all of them
        const bool lGood = clSerialWrite(lPort, lCommand, &lWritten, 5000) == CL_ERR_NO_ERR &&
                           clSerialRead(lPort, lAnswer, &lRead, 5000) == CL_ERR_NO_ERR;
        std::printf("%s", lGood ? lAnswer : "no answer\n");
        clSerialClose(lPort);
        return lGood ? 0 : 1;
    }
    std::printf("no server of that name\n");
    return 1;
}

} // namespace

int main()
{
    auto lCamera = std::make_shared<KySimulator::CameraModel>();
    lCamera->Plug(KySimulator::Port::Uart0, std::make_shared<KySimulator::LensController>());
    KySimulator::SimulatedDeviceAdapter lAdapter(lCamera);

    // Names are machine wide: two runs of this program at the same time need two.
    const auto lNow = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::string lName = "Example camera " + std::to_string(lNow);
    KySerialBridge lBridge;
    const KyResult lResult = lBridge.Start(lName.c_str(), &lAdapter, KyDeviceSerialUart0);
    if (!lResult.IsOK())
    {
        std::printf("%s %s\n", lResult.GetCodeString().GetAscii(), lResult.GetDescription().GetAscii());
        return 1;
    }
    const int lStatus = AskLens(lName);
    return lBridge.Stop().IsOK() ? lStatus : 1;
}
