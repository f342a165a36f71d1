#include "Simulator/Camera/CameraWithDevices.h"

#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/LensController.h"
#include "Simulator/Peers/LoopbackPeer.h"
#include "Simulator/Peers/SpiFlash.h"
#include "Simulator/Peers/TemperatureSensor.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <vector>

namespace KySimulator
{

namespace
{

CameraConfiguration Configure(const EquipmentOptions& aOptions, const CameraConfiguration& aConfiguration)
{
    CameraConfiguration lConfiguration = aConfiguration;
    lConfiguration.mUnlimitedLineRate = aOptions.mFast;
    // Applications take bulk port 0 for one with registers as soon as there is a UART, so a camera without
    // them has no UART either.
    lConfiguration.mUartCount = aOptions.mFeaturesOnly ? 0 : 2;
    // The modes that fit the buses below, so that a first read works without any setting.
    lConfiguration.mBulk[2].mMode = Protocol::I2C;
    lConfiguration.mBulk[3].mMode = Protocol::Spi;
    return lConfiguration;
}

/// An I2C bus with its two devices on a port.
std::shared_ptr<Eeprom24C02> PlugBus(CameraModel& aCamera, Port aPort)
{
    auto lEeprom = std::make_shared<Eeprom24C02>();
    auto lBus = std::make_shared<I2CBusPeer>();
    lBus->SetDevice(Eeprom24C02::cAddress, lEeprom);
    lBus->SetDevice(TemperatureSensor::cAddress, std::make_shared<TemperatureSensor>());
    aCamera.PlugI2C(aPort, lBus);
    return lEeprom;
}

} // namespace

struct CameraWithDevices::Parts
{
    Parts(const EquipmentOptions& aOptions, const CameraConfiguration& aConfiguration)
        : mCamera(std::make_shared<CameraModel>(Configure(aOptions, aConfiguration)))
        , mFlash(std::make_shared<SpiFlash>())
    {
    }

    const std::shared_ptr<CameraModel> mCamera;
    std::array<std::shared_ptr<Eeprom24C02>, 2> mEeproms;
    const std::shared_ptr<SpiFlash> mFlash;
};

CameraWithDevices::CameraWithDevices(const EquipmentOptions& aOptions,
                                     const CameraConfiguration& aConfiguration)
    : mThis(std::make_unique<Parts>(aOptions, aConfiguration))
{
    CameraModel& lCamera = *mThis->mCamera;
    // A lens controller where users expect a device, an echo everywhere else: every port answers something.
    for (const Port lPort : {Port::Uart0, Port::Bulk0, Port::Bulk1})
    {
        lCamera.Plug(lPort, std::make_shared<LensController>());
    }
    for (const Port lPort :
         {Port::Uart1, Port::Bulk2, Port::Bulk3, Port::Bulk4, Port::Bulk5, Port::Bulk6, Port::Bulk7})
    {
        lCamera.Plug(lPort, std::make_shared<LoopbackPeer>());
    }
    mThis->mEeproms = {PlugBus(lCamera, Port::Bulk0), PlugBus(lCamera, Port::Bulk2)};
    lCamera.PlugSpi(Port::Bulk3, std::make_shared<SpiBusPeer>(mThis->mFlash));
}

CameraWithDevices::~CameraWithDevices() = default;

const std::shared_ptr<CameraModel>& CameraWithDevices::GetCamera() const
{
    return mThis->mCamera;
}

bool CameraWithDevices::LoadState(const std::string& aPath)
{
    std::ifstream lFile(aPath, std::ios::binary);
    if (!lFile.is_open())
    {
        return true; // the first run has no file yet; SaveState() makes it
    }
    // One byte more than the state has: a longer file shows itself, and a file without an end (a device file) is
    // not read for ever.
    constexpr size_t cSize = 2 * Eeprom24C02::cSize + SpiFlash::cSize;
    std::vector<uint8_t> lState(cSize + 1);
    lFile.read(reinterpret_cast<char*>(lState.data()), static_cast<std::streamsize>(lState.size()));
    // A file of another size is not one of SaveState(). Nothing of it is taken, so that no memory is half old
    // and half new.
    if (lFile.gcount() != static_cast<std::streamsize>(cSize))
    {
        return false;
    }
    lState.pop_back();
    auto lNext = lState.begin();
    for (const auto& lEeprom : mThis->mEeproms)
    {
        std::array<uint8_t, Eeprom24C02::cSize> lContents{};
        std::copy_n(lNext, lContents.size(), lContents.begin());
        lEeprom->SetContents(lContents);
        lNext += Eeprom24C02::cSize;
    }
    mThis->mFlash->SetContents({lNext, lState.end()});
    return true;
}

bool CameraWithDevices::SaveState(const std::string& aPath) const
{
    std::vector<uint8_t> lState;
    for (const auto& lEeprom : mThis->mEeproms)
    {
        const auto lContents = lEeprom->GetContents();
        lState.insert(lState.end(), lContents.begin(), lContents.end());
    }
    const std::vector<uint8_t> lFlash = mThis->mFlash->GetContents();
    lState.insert(lState.end(), lFlash.begin(), lFlash.end());
    // The order of the parts is the file's format: LoadState() reads the same one.
    std::ofstream lFile(aPath, std::ios::binary | std::ios::trunc);
    lFile.write(reinterpret_cast<const char*>(lState.data()), static_cast<std::streamsize>(lState.size()));
    return static_cast<bool>(lFile.flush());
}

} // namespace KySimulator
