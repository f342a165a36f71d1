// As a customer's program: the adapter for GigE Vision devices, under a port.

#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <cstdio>

int main()
{
    KyGigE::DeviceAddress lAddress;
    const std::string lError = KyGigE::ParseDeviceAddress("gev://127.0.0.1:9", lAddress);
    KyGigE::ConnectionOptions lOptions;
    lOptions.mControl.mTimeout = 50;
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    const KyResult lConnected = KyGigE::GigEDeviceAdapter::Connect(lAddress, lOptions, lAdapter);
    KyDeviceSerialPort lPort;
    const KyResult lOpened = lPort.Open(lAdapter.get(), KyDeviceSerialUart0);
    KyGigE::DiscoveryOptions lSearch;
    lSearch.mAddress = "nowhere";
    std::vector<KyGigE::FoundDevice> lDevices;
    const bool lSearched = KyGigE::DiscoverDevices(lSearch, lDevices).empty();
    std::printf("address: %s, connect: %s, open: %s, search: %s, mac: %s\n", lError.empty() ? "good" : "bad",
                lConnected.GetCodeString().GetAscii(), lOpened.GetCodeString().GetAscii(),
                lSearched ? "good" : "refused", KyGigE::MacText(1).c_str());
}
