#pragma once

#include <KyBase/KyString.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <string>
#include <utility>
#include <vector>

namespace KySerialTool
{

/// The line settings of a device's port as its features have them: protocol, rate, parity, stop bits.
///
/// For a device that was away and comes back with those that it starts with.
class PortSettings
{
public:
    explicit PortSettings(KyDeviceSerial aPort) : mPort(aPort) {}

    /// Takes down what the features say. Those that the device lacks, or refuses to read, are left out. A bulk
    /// port's features are its own only while the device's selector names it, and the selector is set so.
    void Read(IKyDeviceAdapter& aAdapter);

    /// Writes what was taken down. \return False when the device refuses any of it.
    bool Write(IKyDeviceAdapter& aAdapter) const;

    /// What was taken down, in the order in which it is written.
    const std::vector<std::pair<std::string, std::string>>& GetValues() const { return mValues; }

private:
    const KyDeviceSerial mPort;
    std::vector<std::pair<std::string, std::string>> mValues{}; // feature, value
};

} // namespace KySerialTool
