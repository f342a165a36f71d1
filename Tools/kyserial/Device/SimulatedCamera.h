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
    /// Receives true when the state file cannot be written at the end.
    std::shared_ptr<bool> mStateIsLost = std::make_shared<bool>(false);
};

/// The camera of --device sim, with what CameraWithDevices has on its ports.
class SimulatedCamera
{
public:
    /// Throws OperationError when the state file exists and cannot be used.
    explicit SimulatedCamera(const SimulatorOptions& aOptions);
    /// Writes the state file. A failure is printed, and noted in SimulatorOptions::mStateIsLost.
    ~SimulatedCamera();
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

    IKyDeviceAdapter& GetAdapter();
    /// How often it was connected.
    uint64_t GetGeneration() const;
    /// Names and kinds of its features.
    std::vector<std::pair<std::string, std::string>> GetFeatures() const;

private:
    struct Parts;
    std::unique_ptr<Parts> mThis;
};

} // namespace KySerialTool
