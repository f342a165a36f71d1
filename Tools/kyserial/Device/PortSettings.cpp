#include "kyserial/Device/PortSettings.h"

#include "kyserial/Device/PortName.h"

namespace KySerialTool
{

namespace
{

const char* const cSelector = "BulkSelector";

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
    std::string lPrefix = "Uart" + std::to_string(mPort);
    std::vector<std::string> lNames;
    if (IsBulk(mPort))
    {
        lPrefix = "Bulk" + std::to_string(BulkIndex(mPort));
        if (aAdapter.IsFeatureAvailable(cSelector))
        {
            mValues.emplace_back(cSelector, lPrefix); // first: the others depend on it
            static_cast<void>(
                aAdapter.SetFeatureFromString(cSelector, lPrefix.c_str())); // Write() reports it
            lPrefix = "Bulk";
        }
        lNames.emplace_back("BulkMode");
    }
    for (const char* const lName : {"Parity", "NumOfStopBits", "BaudRate"})
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
        lDone = (ReadFeature(aAdapter, lName) == lValue ||
                 aAdapter.SetFeatureFromString(lName.c_str(), lValue.c_str()).IsOK()) &&
                lDone;
    }
    return lDone;
}

} // namespace KySerialTool
