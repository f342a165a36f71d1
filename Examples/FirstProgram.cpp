#include "Simulator/Camera/CameraWithDevices.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include <KySerial/KyDeviceSerialPort.h>

#include <cstdio>

int main()
{
    const KySimulator::CameraWithDevices lCamera({});                  // with a lens on its first UART
    KySimulator::SimulatedDeviceAdapter lAdapter(lCamera.GetCamera()); // yours is an IKyDeviceAdapter
    KyDeviceSerialPort lPort;
    uint8_t lBytes[64] = "ID?\r\n";
    uint32_t lCount = 0;
    if (lPort.Open(&lAdapter, KyDeviceSerialUart0).IsOK() && lPort.Write(lBytes, 5, lCount).IsOK())
        while (lPort.Read(lBytes, sizeof(lBytes), lCount, 300).IsOK()) // until nothing comes for 300 ms
            std::fwrite(lBytes, 1, lCount, stdout);
    return lPort.Close().IsOK() ? 0 : 1;
}
