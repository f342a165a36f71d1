// A program with a bridge, for tests with a bridge in another process: KyBridgeHost com PORT, or KyBridgeHost
// clser NAME. The device sends everything back. Says "ready" and waits for the end of its input, which names
// the bytes that went each way.

#include "EndToEnd/CameraTest.h"
#include "JxUtilsLib/Thread.h"

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
    unsigned long long lBytes = 0;
    for (int lDigit = std::getchar(); lDigit != EOF; lDigit = std::getchar())
    {
        lBytes = lBytes * 10 + static_cast<unsigned long long>(lDigit - '0');
    }
    // The other end has the last bytes before they are counted.
    for (int lTry = 0; lTry < 1000 && (lBridge.GetBytesSentToDevice() < lBytes ||
                                       lBridge.GetBytesReceivedFromDevice() < lBytes);
         ++lTry)
    {
        JxUtilsLib::Thread::Sleep(10);
    }
    std::printf("sent %llu received %llu\n", static_cast<unsigned long long>(lBridge.GetBytesSentToDevice()),
                static_cast<unsigned long long>(lBridge.GetBytesReceivedFromDevice()));
    return lBridge.Stop().IsOK() ? 0 : 1;
}
