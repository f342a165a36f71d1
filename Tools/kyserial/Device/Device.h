#pragma once

#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/IKySerialBridgeObserver.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// A feature of a device, as its description lists it.
struct DeviceFeature
{
    std::string mName;
    std::string mCategory;
    std::string mKind; ///< "Integer", "Float", "Boolean", "Enumeration", "String", "Register", "Command".
    std::string mVisibility;
    std::string mToolTip;
};

/// A feature with its value of now.
struct FeatureFinding
{
    DeviceFeature mFeature;
    std::string mAccess;                 ///< "RW", "RO", "WO"; "-" when it cannot be used now.
    std::string mValue;                  ///< Empty without a value to show.
    std::vector<std::string> mEntries{}; ///< An enumeration's.
};

inline const char* AccessText(bool aReadable, bool aWritable)
{
    return aReadable ? (aWritable ? "RW" : "RO") : aWritable ? "WO" : "-";
}

/// A connected device; ends with the object.
class Device : public IKyDeviceGeneration
{
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// The way to the device; lives as long as this object.
    virtual IKyDeviceAdapter& GetAdapter() = 0;
    /// Its features, those that cannot be used now included.
    virtual std::vector<FeatureFinding> ReadFeatures() = 0;
    /// Why its description is of no use, as a sentence; empty when it is, and for a device that has none.
    virtual std::string GetDescriptionProblem() { return {}; }
    /// How many commands had to be sent again since it was connected.
    virtual uint64_t GetRepeatedCommands() { return 0; }

protected:
    Device() = default;
};

} // namespace KySerialTool
