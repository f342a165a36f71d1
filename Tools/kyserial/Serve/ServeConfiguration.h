#pragma once

#include "kyserial/Bridge/BridgedPort.h"
#include "kyserial/Device/SimulatedCamera.h"
#include "kyserial/Serve/ServiceLog.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// A port of a device in the configuration of the service.
struct ServedPortEntry
{
    BridgeSelection mBridge{};
    bool mTerminal = false; ///< The web page may send bytes to it.
    uint32_t mLine = 0;     ///< Of the file.

    /// Whether both are the same port in the same manner, wherever they stand in the file.
    bool IsSame(const ServedPortEntry& aOther) const;
};

/// A device in it.
struct ServedDeviceEntry
{
    std::string mName{};   ///< What status and log call it.
    std::string mDevice{}; ///< As --device takes it.
    SimulatorOptions mSimulator{};
    std::optional<LogLevel> mLevel{}; ///< Of its lines in the log; nothing: that of the service.
    std::vector<ServedPortEntry> mPorts{};
    uint32_t mLine = 0;

    /// Whether both are the same device, whatever their ports and levels.
    bool IsSame(const ServedDeviceEntry& aOther) const;
};

/// The configuration of the service.
struct ServeConfiguration
{
    std::string mName = "kyserial";    ///< By which status and --reload find the service.
    std::optional<TcpSettings> mWeb{}; ///< Where web page, status and metrics are; nothing: nowhere.
    uint32_t mWebLine = 0;
    std::string mWebToken{}; ///< Which whoever sends bytes from the web page has to know; empty: nobody may.
    ServiceLogSettings mLog{};
    uint32_t mLogLine = 0;
    std::vector<ServedDeviceEntry> mDevices{};
};

/// What is wrong with a configuration.
struct ConfigurationFault
{
    uint32_t mLine = 0;  ///< 0: of the file as a whole.
    std::string mText{}; ///< What is wrong, and what would be right.
};

/// Reads a configuration and finds all of its faults.
/// \param aText    The file's content.
/// \param aFaults  Receives the faults in the order of their lines; empty: the configuration can be used.
/// Throws nothing but std::bad_alloc, whatever the text.
ServeConfiguration ParseServeConfiguration(const std::string& aText,
                                           std::vector<ConfigurationFault>& aFaults);

/// A fault as "FILE:LINE: TEXT".
std::string FaultText(const std::string& aFile, const ConfigurationFault& aFault);

/// Reads a file; one that cannot be read is a fault too.
ServeConfiguration LoadServeConfiguration(const std::string& aFile, std::vector<ConfigurationFault>& aFaults);

} // namespace KySerialTool
