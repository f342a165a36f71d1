// The C++17 wrapper over the C interface, for every compiler: a lens on the first UART of a camera on the network, or of
// a simulated one.
//   AnyCompiler                       the simulated camera
//   AnyCompiler gev://192.168.1.20    a camera, also by its MAC address, serial number, user name or model

#include <KySerialC/kyserial.hpp>

#include <chrono>
#include <cstdio>

namespace
{

void AskLens(ky::DeviceRef aCamera)
{
    ky::Port lPort = ky::Port::Open(aCamera, KY_UART0).OrThrow();
    lPort.Write("STATUS?\r\n").OrThrow();
    std::printf("%s", lPort.ReadUntil('\n', std::chrono::seconds(20)).OrThrow().c_str());
}

} // namespace

int main(int aCount, char** aArguments)
{
    try
    {
        if (aCount > 1)
        {
            const ky::Camera lCamera = ky::Camera::Open(aArguments[1]).OrThrow();
            AskLens(lCamera);
        }
        else
        {
            ky::SimulatedCamera lCamera = ky::SimulatedCamera::Create().OrThrow();
            lCamera.Plug(KY_UART0, KY_SIM_LENS).OrThrow();
            AskLens(lCamera);
        }
        return 0;
    }
    catch (const std::exception& lError)
    {
        std::fprintf(stderr, "%s\n", lError.what());
        return 1;
    }
}
