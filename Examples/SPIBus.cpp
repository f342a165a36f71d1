// Reads the identity and the first bytes of a flash memory on an SPI bus of a camera.

#include <KySerial/KyDeviceSPIBus.h>

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/SpiFlash.h"

#include <cstdio>
#include <memory>

namespace
{

// One transfer: writes a command and reads the answer, which comes in one or more pieces.
KyResult Exchange(KyDeviceSPIBus& aBus, const uint8_t* aCommand, uint32_t aCommandSize, uint8_t* aAnswer,
                  uint32_t aAnswerSize)
{
    KyResult lResult = aBus.BurstWriteAndRead(aCommand, aCommandSize, aAnswerSize, false, true);
    uint32_t lDone = 0;
    while (lResult.IsOK() && lDone < aAnswerSize)
    {
        uint32_t lRead = 0;
        lResult = aBus.BurstRead(aAnswer + lDone, aAnswerSize - lDone, lRead, 5000);
        lDone += lRead;
    }
    return lResult;
}

// What an application does with the adapter of a connected camera.
KyResult UseBus(IKyDeviceAdapter& aCamera, KyDeviceSerial aPort)
{
    const uint8_t lIdentify[] = {0x9F};
    const uint8_t lRead[] = {0x03, 0x00, 0x00, 0x00};
    uint8_t lAnswer[4] = {};
    KyDeviceSPIBus lBus;
    KyResult lResult = lBus.Open(&aCamera, aPort);
    lResult = lResult.IsOK() ? Exchange(lBus, lIdentify, sizeof(lIdentify), lAnswer, 3) : lResult;
    if (lResult.IsOK())
    {
        std::printf("flash %02x %02x %02x\n", lAnswer[0], lAnswer[1], lAnswer[2]);
        lResult = Exchange(lBus, lRead, sizeof(lRead), lAnswer, 4);
    }
    if (lResult.IsOK())
    {
        std::printf("content %02x %02x %02x %02x\n", lAnswer[0], lAnswer[1], lAnswer[2], lAnswer[3]);
    }
    const KyResult lClosed = lBus.Close();
    return lResult.IsOK() ? lClosed : lResult;
}

} // namespace

int main()
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mBulk[3].mMode = KySimulator::Protocol::Spi; // on a real camera: its feature "BulkMode"
    auto lCamera = std::make_shared<KySimulator::CameraModel>(lConfiguration);
    auto lFlash = std::make_shared<KySimulator::SpiFlash>();
    lFlash->SetContents({'K', 'y'});
    lCamera->PlugSpi(KySimulator::Port::Bulk3, std::make_shared<KySimulator::SpiBusPeer>(lFlash));
    KySimulator::SimulatedDeviceAdapter lAdapter(lCamera);

    const KyResult lResult = UseBus(lAdapter, KyDeviceSerialBulk3);
    std::printf("%s %s\n", lResult.GetCodeString().GetAscii(), lResult.GetDescription().GetAscii());
    return lResult.IsOK() ? 0 : 1;
}
