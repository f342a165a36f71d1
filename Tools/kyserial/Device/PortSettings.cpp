#include "kyserial/Device/PortSettings.h"

#include "kyserial/Device/PortName.h"

#include <KySerial/DeviceProtocol.h>

namespace KySerialTool
{

namespace
{

using namespace KyDeviceProtocol;

/// The feature's value; empty when it cannot be read.
std::string ReadFeature(IKyDeviceAdapter& aAdapter, const std::string& aName)
{
    KyString lValue;
    const bool lRead = aAdapter.IsFeatureAvailable(aName.c_str()) &&
                       aAdapter.IsFeatureReadable(aName.c_str()) &&
                       aAdapter.GetFeatureAsString(aName.c_str(), lValue).IsOK();
    return lRead ? lValue.GetAscii() : "";
}

} // namespace

void PortSettings::Read(IKyDeviceAdapter& aAdapter)
{
    mValues.clear();
    std::string lPrefix = UartName(static_cast<size_t>(mPort));
    std::vector<std::string> lNames;
    if (IsBulk(mPort))
    {
        lPrefix = BulkName(BulkIndex(mPort));
        if (aAdapter.IsFeatureAvailable(cBulkSelectorFeature))
        {
            mValues.emplace_back(cBulkSelectorFeature, lPrefix); // first: the others depend on it
            static_cast<void>(
                aAdapter.SetFeatureFromString(cBulkSelectorFeature, lPrefix.c_str())); // Write() reports it
            lPrefix = cBulkPrefix;
        }
        lNames.emplace_back(cBulkModeFeature);
    }
    for (const char* const lName : {cParitySuffix, cStopBitsSuffix, cBaudRateSuffix})
    {
        lNames.push_back(lPrefix + lName);
    }
    for (const std::string& lName : lNames)
    {
        const std::string lValue = ReadFeature(aAdapter, lName);
        if (!lValue.empty())
        {
            mValues.emplace_back(lName, lValue);
        }
    }
}

bool PortSettings::Write(IKyDeviceAdapter& aAdapter) const
{
    bool lDone = true;
    for (const auto& [lName, lValue] : mValues)
    {
        // A setting that has its value already needs no write, which the device may refuse. One that is
        // refused does not keep the others from going back.
        lDone = (ReadFeature(aAdapter, lName) == lValue ||
                 aAdapter.SetFeatureFromString(lName.c_str(), lValue.c_str()).IsOK()) &&
                lDone;
    }
    return lDone;
}

} // namespace KySerialTool
