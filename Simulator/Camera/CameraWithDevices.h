#pragma once

#include "Simulator/Camera/CameraModel.h"

#include <memory>
#include <string>

namespace KySimulator
{

/// How a CameraWithDevices differs from the usual one.
struct EquipmentOptions
{
    bool mFast = false;         ///< Lines take no time.
    bool mFeaturesOnly = false; ///< No UARTs, and bulk port 0 only through features.
};

/// A camera with something on each of its ports, as the programs have it:
///
/// | port                | on it                                                                |
/// |---------------------|----------------------------------------------------------------------|
/// | uart0, bulk0, bulk1 | a lens controller                                                    |
/// | the others          | a loop-back plug, for UART and USRT                                  |
/// | bulk0, bulk2        | an I2C bus: EEPROM of 256 bytes at 0x50, temperature sensor at 0x48  |
/// | bulk3               | an SPI bus: flash memory of 64 KiB                                   |
///
/// bulk2 starts in I2C mode, bulk3 in SPI mode, the others in UART mode.
class CameraWithDevices
{
public:
    /// \param aConfiguration  Its line rate, UARTs and protocols follow from aOptions.
    explicit CameraWithDevices(const EquipmentOptions& aOptions,
                               const CameraConfiguration& aConfiguration = {});
    ~CameraWithDevices();
    CameraWithDevices(const CameraWithDevices&) = delete;
    CameraWithDevices& operator=(const CameraWithDevices&) = delete;

    const std::shared_ptr<CameraModel>& GetCamera() const;

    /// Sets the memories on the buses to what SaveState() wrote. A file that does not exist changes nothing.
    /// \return False, with nothing changed, when the file is another one.
    bool LoadState(const std::string& aPath);
    /// \return False when the file cannot be written.
    bool SaveState(const std::string& aPath) const;

private:
    struct Parts;
    std::unique_ptr<Parts> mThis;
};

} // namespace KySimulator
