// A camera on the network: finds cameras, or connects one and asks the lens on its first UART.
//   NetworkCamera                       the cameras that answer
//   NetworkCamera gev://192.168.1.20    this one, also by its MAC address, serial number, user name or model

#include <KyGigE/DeviceName.h>
#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace
{

int Fail(const std::string& aText)
{
    std::fprintf(stderr, "%s\n", aText.c_str());
    return 1;
}

int List()
{
    std::vector<KyGigE::FoundDevice> lDevices;
    const std::string lError = KyGigE::DiscoverDevices({}, lDevices);
    for (const KyGigE::FoundDevice& lDevice : lDevices)
    {
        std::printf("%s %s %s\n", lDevice.mAddress.c_str(), lDevice.mInformation.mModel.c_str(),
                    lDevice.mInformation.mSerialNumber.c_str());
    }
    return lError.empty() ? 0 : Fail(lError);
}

int Ask(const std::string& aName)
{
    KyGigE::DeviceAddress lAddress;
    const std::string lError = KyGigE::FindDevice(aName, {}, lAddress);
    if (!lError.empty())
    {
        return Fail(lError);
    }
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lCamera;
    KyResult lResult = KyGigE::GigEDeviceAdapter::Connect(lAddress, lCamera);
    if (!lResult.IsOK())
    {
        return Fail(lResult.GetDescription().GetAscii());
    }
    KyDeviceSerialPort lPort;
    const std::string lQuestion = "STATUS?\r\n";
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    lResult = lPort.Open(lCamera.get(), KyDeviceSerialUart0);
    lResult = lResult.IsOK() ? lPort.Write(reinterpret_cast<const uint8_t*>(lQuestion.data()),
                                           static_cast<uint32_t>(lQuestion.size()), lCount)
                             : lResult;
    while (lResult.IsOK() && lByte != '\n')
    {
        lResult = lPort.Read(&lByte, 1, lCount, 20000);
        std::fwrite(&lByte, 1, lCount, stdout);
    }
    const KyResult lClosed = lPort.Close();
    return lResult.IsOK() && lClosed.IsOK() ? 0 : Fail(lResult.GetDescription().GetAscii());
}

} // namespace

int main(int aCount, char** aArguments)
{
    return aCount > 1 ? Ask(aArguments[1]) : List();
}
