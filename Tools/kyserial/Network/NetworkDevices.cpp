#include "kyserial/Device/NetworkDevices.h"

#include "kyserial/Text/Failure.h"

#include <KyGigE/DeviceAddress.h>
#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace KySerialTool
{

namespace
{

/// Gives a device up when the program is to end, whatever it waits for. Until Grant() at once; from then on
/// after the time that a device which answers needs to get its settings back.
class InterruptGuard
{
public:
    explicit InterruptGuard(const KyPlatform::Console& aConsole)
        : mConsole(aConsole), mThread([this] { Watch(); })
    {
    }
    ~InterruptGuard()
    {
        {
            const std::lock_guard<std::mutex> lScope(mLock);
            mEnd = true;
        }
        mChanged.notify_all();
        mThread.join();
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// What a connection takes: it ends when this becomes true.
    const std::shared_ptr<std::atomic<bool>>& GetCancel() const { return mCancel; }
    void Grant() { mGranted = true; }

private:
    void Watch()
    {
        constexpr std::chrono::milliseconds cTick(50);
        constexpr int cGrace = 16;
        int lTicks = 0;
        std::unique_lock<std::mutex> lLock(mLock);
        while (!mChanged.wait_for(lLock, cTick, [this] { return mEnd; }))
        {
            lTicks += mConsole.IsInterrupted() ? 1 : 0;
            *mCancel = lTicks > (mGranted ? cGrace : 0);
        }
    }

    const KyPlatform::Console& mConsole;
    const std::shared_ptr<std::atomic<bool>> mCancel = std::make_shared<std::atomic<bool>>(false);
    std::atomic<bool> mGranted{false};
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mEnd = false;
    std::thread mThread; // last: it uses the others
};

class NetworkDevice : public Device
{
public:
    NetworkDevice(const std::string& aName, const KyPlatform::Console& aConsole, DeviceAccess aAccess)
        : mGuard(aConsole)
    {
        KyGigE::DeviceAddress lAddress;
        const std::string lError = KyGigE::ParseDeviceAddress(aName, lAddress);
        if (!lError.empty())
        {
            throw OperationError(lError);
        }
        KyGigE::ConnectionOptions lOptions;
        lOptions.mReadOnly = aAccess == DeviceAccess::Read;
        lOptions.mCancel = mGuard.GetCancel();
        Check(KyGigE::GigEDeviceAdapter::Connect(lAddress, lOptions, mAdapter), "cannot connect " + aName);
        mGuard.Grant();
    }

    IKyDeviceAdapter& GetAdapter() override { return *mAdapter; }

    uint64_t GetGeneration() override { return mAdapter->GetGeneration(); }

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
    InterruptGuard mGuard; // to the end: giving the device back may take time, too
    std::unique_ptr<KyGigE::GigEDeviceAdapter> mAdapter;
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

std::unique_ptr<Device> OpenNetworkDevice(const std::string& aName, const KyPlatform::Console& aConsole,
                                          DeviceAccess aAccess)
{
    return std::make_unique<NetworkDevice>(aName, aConsole, aAccess);
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
        // Where the address alone does not say which device it is, the interface does.
        const bool lTwin =
            std::count_if(lDevices.begin(), lDevices.end(),
                          [&](const KyGigE::FoundDevice& aOther) {
                              return aOther.mAddress == lDevice.mAddress && aOther.mPort == lDevice.mPort;
                          }) > 1;
        const std::string lInterface = lTwin ? lDevice.mInterface : std::string();
        lFindings.push_back({KyGigE::DeviceAddressText({lDevice.mAddress, lDevice.mPort, lInterface}),
                             lDevice.mAddress, lDevice.mPort, KyGigE::MacText(lInformation.mMac),
                             lInformation.mVendor, lInformation.mModel, lInformation.mVersion,
                             lInformation.mSerialNumber, lInformation.mUserName, lDevice.mInterface});
    }
    return lFindings;
}

} // namespace KySerialTool
