#include "kyserial/Device/NetworkDevices.h"

#include "kyserial/Text/Failure.h"

namespace KySerialTool
{

namespace
{

const char* const cMissing = "this program was built without GigE Vision devices";

} // namespace

bool IsNetworkDevice(const std::string& aName)
{
    return aName.rfind("gev:", 0) == 0;
}

std::string CheckNetworkDevice(const std::string& aName)
{
    return '"' + aName + "\" cannot be used: " + cMissing;
}

std::unique_ptr<Device> OpenNetworkDevice(const std::string& /*aName*/,
                                          const KyPlatform::Console& /*aConsole*/, DeviceAccess /*aAccess*/)
{
    throw OperationError(cMissing);
}

std::vector<NetworkFinding> FindNetworkDevices(const NetworkSearch& /*aSearch*/)
{
    throw OperationError(cMissing);
}

} // namespace KySerialTool
