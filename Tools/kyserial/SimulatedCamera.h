#pragma once

#include <KySerial/IKyDeviceAdapter.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace KySerialTool
{

/// How the camera of --device sim differs from the usual one.
struct SimulatorOptions
{
    bool mFast = false;         ///< Lines take no time.
    bool mFeaturesOnly = false; ///< No UARTs, and bulk port 0 only through features.
    std::string mStateFile{};   ///< Memories are read from here and written back at the end; empty: neither.
    uint32_t mCutAfter = 0;     ///< The connection breaks with this access; 0: never.
    uint32_t mBackAfter = 0;    ///< Milliseconds after which it is back; 0: it stays away.
};

/// The camera of --device sim and what hangs on its ports:
///
/// | port                | on it                                                                |
/// |---------------------|----------------------------------------------------------------------|
/// | uart0, bulk0, bulk1 | a lens controller                                                    |
/// | the others          | a loop-back plug, for UART and USRT                                  |
/// | bulk0, bulk2        | an I2C bus: EEPROM of 256 bytes at 0x50, temperature sensor at 0x48  |
/// | bulk3               | an SPI bus: flash memory of 64 KiB                                   |
///
/// bulk2 starts in I2C mode, bulk3 in SPI mode, the others in UART mode.
class SimulatedCamera
{
public:
    /// Throws OperationError when the state file exists and cannot be used.
    explicit SimulatedCamera(const SimulatorOptions& aOptions);
    /// Writes the state file.
    ~SimulatedCamera();
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

    IKyDeviceAdapter& GetAdapter();
    /// Names and kinds of its features.
    std::vector<std::pair<std::string, std::string>> GetFeatures() const;

private:
    struct Parts;
    std::unique_ptr<Parts> mThis;
};

} // namespace KySerialTool
