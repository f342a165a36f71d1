// As a customer's program: the installed headers and the C++ library.

#include <JxUtilsLib/Logger.h>
#include <KySerial/KyDeviceI2CBus.h>
#include <KySerial/KyDeviceSPIBus.h>
#include <KySerial/KyDeviceSerialPort.h>
#include <KySerial/KySerialBridge.h>
#include <clserzmo/clser.h>

#include <cstdio>

int main()
{
    JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal);
    KyDeviceSerialPort lPort;
    const KyResult lResult = lPort.Open(nullptr, KyDeviceSerialBulk1);
    const KySerialBridge lBridge;
    CLUINT32 lPorts = 0;
    std::printf("open: %s, bridge: %u, clser: %d\n", lResult.GetCodeString().GetAscii(),
                lBridge.GetBaudRate(), clGetNumSerialPorts(&lPorts));
    return lResult.GetCode() == KyResult::NO_CONNECTION ? 0 : 1;
}
