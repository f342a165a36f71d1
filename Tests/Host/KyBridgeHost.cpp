// A program with a bridge, for tests with a bridge in another process: KyBridgeHost com PORT, or KyBridgeHost
// clser NAME. The device sends everything back. Says "ready" and its end waits for the end of its input.

#include "EndToEnd/CameraTest.h"

#include <KySerial/KySerialBridge.h>

#include <cstdio>
#include <string>

int main(int aCount, char** aArguments)
{
    if (aCount != 3)
    {
        return 2;
    }
    KyTest::Camera lCamera;
    lCamera.PlugLoopback(KyDeviceSerialBulk1);
    KySerialBridge lBridge;
    const bool lIsCom = std::string(aArguments[1]) == "com";
    const KyResult lStarted =
        lIsCom ? lBridge.Start(aArguments[2], KySerialPortConfiguration(115200, KyParityNone, 8, 1),
                               &lCamera.Adapter(), KyDeviceSerialBulk1)
               : lBridge.Start(aArguments[2], &lCamera.Adapter(), KyDeviceSerialBulk1);
    if (!lStarted.IsOK())
    {
        std::fprintf(stderr, "%s\n", lStarted.GetDescription().GetAscii());
        return 1;
    }
    std::puts("ready");
    static_cast<void>(std::fflush(stdout));
    while (std::getchar() != EOF)
    {
    }
    // The last bytes are counted after they have been passed on: only once the relay has ended are all
    // counted.
    const bool lStopped = lBridge.Stop().IsOK();
    std::printf("sent %llu received %llu\n", static_cast<unsigned long long>(lBridge.GetBytesSentToDevice()),
                static_cast<unsigned long long>(lBridge.GetBytesReceivedFromDevice()));
    return lStopped ? 0 : 1;
}
