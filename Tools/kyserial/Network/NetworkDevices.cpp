#include "kyserial/NetworkDevices.h"

#include "kyserial/Failure.h"

#include <KyGigE/DeviceAddress.h>
#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>

#include <utility>

namespace KySerialTool
{

namespace
{

class NetworkDevice : public Device
{
public:
    explicit NetworkDevice(std::unique_ptr<KyGigE::GigEDeviceAdapter> aAdapter)
        : mAdapter(std::move(aAdapter))
    {
    }

    IKyDeviceAdapter& GetAdapter() override { return *mAdapter; }

    std::vector<DeviceFeature> ListFeatures() override
    {
        std::vector<DeviceFeature> lFeatures;
        for (const KyGigE::FeatureEntry& lEntry : mAdapter->ListFeatures())
        {
            lFeatures.push_back(
                {lEntry.mName, lEntry.mCategory, lEntry.mKind, lEntry.mVisibility, lEntry.mToolTip});
        }
        return lFeatures;
    }

private:
    const std::unique_ptr<KyGigE::GigEDeviceAdapter> mAdapter;
};

} // namespace

bool IsNetworkDevice(const std::string& aName)
{
    return aName.rfind("gev:", 0) == 0;
}

std::string CheckNetworkDevice(const std::string& aName)
{
    KyGigE::DeviceAddress lAddress;
    return KyGigE::ParseDeviceAddress(aName, lAddress);
}

std::unique_ptr<Device> OpenNetworkDevice(const std::string& aName)
{
    KyGigE::DeviceAddress lAddress;
    const std::string lError = KyGigE::ParseDeviceAddress(aName, lAddress);
    if (!lError.empty())
    {
        throw OperationError(lError);
    }
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    Check(KyGigE::GigEDeviceAdapter::Connect(lAddress, lAdapter), "cannot connect " + aName);
    return std::make_unique<NetworkDevice>(std::move(lAdapter));
}

std::vector<NetworkFinding> FindNetworkDevices(const NetworkSearch& aSearch)
{
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mAddress = aSearch.mAddress;
    lOptions.mInterface = aSearch.mInterface;
    lOptions.mPort = static_cast<uint16_t>(aSearch.mPort);
    lOptions.mTime = aSearch.mTime;
    std::vector<KyGigE::FoundDevice> lDevices;
    const std::string lError = KyGigE::DiscoverDevices(lOptions, lDevices);
    if (!lError.empty())
    {
        throw OperationError(lError);
    }
    std::vector<NetworkFinding> lFindings;
    for (const KyGigE::FoundDevice& lDevice : lDevices)
    {
        const KyGigE::DeviceInformation& lInformation = lDevice.mInformation;
        lFindings.push_back({KyGigE::DeviceAddressText({lDevice.mAddress, lDevice.mPort, {}}),
                             lDevice.mAddress, lDevice.mPort, KyGigE::MacText(lInformation.mMac),
                             lInformation.mVendor, lInformation.mModel, lInformation.mVersion,
                             lInformation.mSerialNumber, lInformation.mUserName, lDevice.mInterface});
    }
    return lFindings;
}

} // namespace KySerialTool
