#pragma once

#include "kyserial/Device/PortSettings.h"

#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialPortConfiguration.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// Settings of a line as far as a command line gives them.
struct LineSelection
{
    std::optional<uint32_t> mBaudRate{};
    std::optional<KyParity> mParity{};
    std::optional<uint32_t> mBits{};
    std::optional<uint32_t> mStopBits{};
};

/// The settings, with the library's own where none are given.
KySerialPortConfiguration ToConfiguration(const LineSelection& aSelection);

/// "9600 8N1".
std::string LineText(const KySerialPortConfiguration& aLine);

/// Line settings of a device's port for the life of the object; then the port has its former ones again.
class PortLine
{
public:
    /// Takes the former settings down. The device's selector must name the port, if it is a bulk port.
    PortLine(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort);
    /// Puts back what Set() changed. What the device refuses here is not reported: it is gone, mostly.
    ~PortLine();
    PortLine(const PortLine&) = delete;
    PortLine& operator=(const PortLine&) = delete;

    /// Changes what is given. Throws OperationError when the device lacks the setting or refuses the value.
    void Set(const LineSelection& aSelection);

private:
    void SetOne(const std::string& aSuffix, const std::string& aEntry);

    IKyDeviceAdapter& mAdapter;
    const KyDeviceSerial mPort;
    PortSettings mFormer;
    bool mChanged = false;
};

} // namespace KySerialTool
