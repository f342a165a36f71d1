// Finds what is on an I2C bus of a camera, reads the temperature sensor and writes and reads the EEPROM.

#include <KySerial/KyDeviceI2CBus.h>

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/TemperatureSensor.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

constexpr bool cFast = true;
constexpr bool cCombined = true;

// Reads from a register of a slave. An EEPROM does not answer while it writes, and a bus waits for an answer
// for 50 ms only: ask again.
KyResult ReadAt(KyDeviceI2CBus& aBus, uint8_t aSlave, uint8_t aOffset, uint8_t* aBuffer, uint32_t aSize)
{
    KyResult lResult;
    for (int lTry = 0; lTry < 100000; ++lTry)
    {
        uint32_t lRead = 0;
        lResult = aBus.IndirectBurstRead(aSlave, aOffset, aBuffer, aSize, lRead, cFast, cCombined);
        if (lResult.IsOK())
        {
            break;
        }
    }
    return lResult;
}

// What an application does with the adapter of a connected camera.
KyResult UseBus(IKyDeviceAdapter& aCamera, KyDeviceSerial aPort)
{
    KyDeviceI2CBus lBus;
    KyResult lResult = lBus.Open(&aCamera, aPort);
    for (uint8_t lSlave = 0x08; lSlave < 0x78 && lResult.IsOK(); ++lSlave)
    {
        const uint8_t lRegister = 0;
        if (lBus.BurstWrite(lSlave, &lRegister, 1, cFast).IsOK())
        {
            std::printf("slave at 0x%02x\n", lSlave);
        }
    }
    uint8_t lTemperature[2] = {};
    lResult = lResult.IsOK() ? ReadAt(lBus, 0x48, 0, lTemperature, 2) : lResult;
    if (lResult.IsOK())
    {
        std::printf("temperature %d.%d\n", lTemperature[0], lTemperature[1] != 0 ? 5 : 0);
        const char lText[] = "KySerial"; // one page of eight bytes
        lResult = lBus.IndirectBurstWrite(0x50, 0x00, reinterpret_cast<const uint8_t*>(lText), 8, cFast);
    }
    char lBack[9] = "";
    lResult = lResult.IsOK() ? ReadAt(lBus, 0x50, 0x00, reinterpret_cast<uint8_t*>(lBack), 8) : lResult;
    std::printf("EEPROM: %s\n", lBack);
    const KyResult lClosed = lBus.Close();
    return lResult.IsOK() ? lClosed : lResult;
}

} // namespace

int main()
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mBulk[0].mMode = KySimulator::Protocol::I2C; // on a real camera: its feature "BulkMode"
    auto lCamera = std::make_shared<KySimulator::CameraModel>(lConfiguration);
    auto lWires = std::make_shared<KySimulator::I2CBusPeer>();
    lWires->SetDevice(0x50, std::make_shared<KySimulator::Eeprom24C02>());
    lWires->SetDevice(0x48, std::make_shared<KySimulator::TemperatureSensor>());
    lCamera->PlugI2C(KySimulator::Port::Bulk0, lWires);
    KySimulator::SimulatedDeviceAdapter lAdapter(lCamera);

    const KyResult lResult = UseBus(lAdapter, KyDeviceSerialBulk0);
    std::printf("%s %s\n", lResult.GetCodeString().GetAscii(), lResult.GetDescription().GetAscii());
    return lResult.IsOK() ? 0 : 1;
}
