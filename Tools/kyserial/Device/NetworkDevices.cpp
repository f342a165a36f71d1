#include "kyserial/Device/NetworkDevices.h"

#include "kyserial/Text/Failure.h"

#include <KyGigE/Controller.h>
#include <KyGigE/DeviceAddress.h>
#include <KyGigE/DeviceIp.h>
#include <KyGigE/DeviceName.h>
#include <KyGigE/Discovery.h>
#include <KyGigE/GigEDeviceAdapter.h>

#include <JxUtilsLib/Condition.h>
#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Mutex.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace KySerialTool
{

namespace
{

/// Gives a device up when the program is to end, whatever it waits for. Until Grant() at once; from then on
/// after the time that a device which answers needs to get its settings back.
class InterruptGuard
{
public:
    explicit InterruptGuard(const KyToolPlatform::Console& aConsole);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// What a connection takes: it ends when this becomes true.
    const std::shared_ptr<std::atomic<bool>>& GetCancel() const { return mCancel; }
    void Grant() { mGranted = true; }
    /// Called again and again, by one thread.
    void Look()
    {
        constexpr int cGrace = 16;
        // Counted in turns of the watch, so no clock has to be asked.
        mTicks += mConsole.IsInterrupted() ? 1 : 0;
        // A connection that is being made ends at once. One that is used gets the time to put the device's settings
        // back.
        *mCancel = mTicks > (mGranted ? cGrace : 0);
    }

private:
    const KyToolPlatform::Console& mConsole;
    const std::shared_ptr<std::atomic<bool>> mCancel = std::make_shared<std::atomic<bool>>(false);
    std::atomic<bool> mGranted{false};
    int mTicks = 0; // of Look()
    std::shared_ptr<class InterruptWatch> mWatch{};
};

/// The thread that looks for all guards of the program; it is there as long as one of them is.
class InterruptWatch
{
public:
    /// The watch of the program, made by the first that asks.
    static std::shared_ptr<InterruptWatch> Get()
    {
        static JxUtilsLib::Mutex sLock;
        static std::weak_ptr<InterruptWatch> sWatch;
        const JxUtilsLib::LockScope lScope(sLock);
        // Weak: the thread ends with the last device, and the next one starts it anew.
        std::shared_ptr<InterruptWatch> lWatch = sWatch.lock();
        if (lWatch == nullptr)
        {
            sWatch = lWatch = std::make_shared<InterruptWatch>();
        }
        return lWatch;
    }

    InterruptWatch() : mThread([this] { Run(); }) {}
    ~InterruptWatch()
    {
        {
            const JxUtilsLib::LockScope lScope(mLock);
            mEnd = true;
        }
        mChanged.NotifyAll();
        mThread.join();
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    void Add(InterruptGuard& aGuard)
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mGuards.push_back(&aGuard);
    }
    /// From then on the guard is not looked at.
    void Remove(const InterruptGuard& aGuard)
    {
        const JxUtilsLib::LockScope lScope(mLock);
        std::erase(mGuards, &aGuard);
    }

private:
    void Run()
    {
        constexpr uint32_t cTick = 50; // milliseconds
        const JxUtilsLib::LockScope lScope(mLock);
        while (!mEnd)
        {
            mChanged.WaitFor(mLock, cTick); // one that ends early makes the time shorter, which does no harm
            for (InterruptGuard* const lGuard : mGuards)
            {
                lGuard->Look();
            }
        }
    }

    JxUtilsLib::Mutex mLock;
    JxUtilsLib::Condition mChanged;
    std::vector<InterruptGuard*> mGuards JX_GUARDED_BY(mLock);
    bool mEnd JX_GUARDED_BY(mLock) = false;
    std::thread mThread; // last: it uses the others
};

InterruptGuard::InterruptGuard(const KyToolPlatform::Console& aConsole)
    : mConsole(aConsole), mWatch(InterruptWatch::Get())
{
    mWatch->Add(*this);
}

InterruptGuard::~InterruptGuard()
{
    mWatch->Remove(*this);
}

class NetworkDevice : public Device
{
public:
    NetworkDevice(const std::string& aName, const KyToolPlatform::Console& aConsole, DeviceAccess aAccess)
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
        KyResult lResult = KyGigE::GigEDeviceAdapter::Connect(lAddress, lOptions, mAdapter);
        // Reading needs no control. A command that would like it, and does not need it, goes on without.
        if (lResult.GetCode() == cControlledByAnother && aAccess == DeviceAccess::ControlIfFree)
        {
            lOptions.mReadOnly = true;
            lResult = KyGigE::GigEDeviceAdapter::Connect(lAddress, lOptions, mAdapter);
        }
        Check(lResult, "cannot connect " + aName);
        // From here on the device may have settings to get back, and an interruption leaves time for that.
        mGuard.Grant();
    }

    IKyDeviceAdapter& GetAdapter() override { return *mAdapter; }

    uint64_t GetGeneration() override { return mAdapter->GetGeneration(); }

    std::string GetDescriptionProblem() override { return mAdapter->GetDescriptionProblem(); }

    uint64_t GetRepeatedCommands() override { return mAdapter->GetFigures().mRepeatedCommands; }

    std::vector<FeatureFinding> ReadFeatures() override
    {
        std::vector<FeatureFinding> lFindings;
        for (const KyGigE::FeatureReading& lReading : mAdapter->ReadFeatures())
        {
            const KyGigE::FeatureEntry& lEntry = lReading.mFeature;
            lFindings.push_back(
                {{lEntry.mName, lEntry.mCategory, lEntry.mKind, lEntry.mVisibility, lEntry.mToolTip},
                 AccessText(lEntry.mReadable, lEntry.mWritable),
                 lReading.mValue,
                 lReading.mEntries});
        }
        return lFindings;
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

std::unique_ptr<Device> OpenNetworkDevice(const std::string& aName, const KyToolPlatform::Console& aConsole,
                                          DeviceAccess aAccess)
{
    return std::make_unique<NetworkDevice>(aName, aConsole, aAccess);
}

std::string FindNetworkController(const std::string& aName)
{
    KyGigE::DeviceAddress lAddress;
    KyGigE::Controller lController;
    if (!KyGigE::ParseDeviceAddress(aName, lAddress).empty())
    {
        return {};
    }
    KyGigE::FoundDevice lDevice;
    lDevice.mAddress = lAddress.mAddress;
    lDevice.mPort = lAddress.mPort;
    lDevice.mInterface = lAddress.mInterface;
    // A device may be controlled and not say by what.
    const bool lIsKnown =
        KyGigE::FindController(lDevice, lController).empty() && !lController.mAddress.empty();
    return lIsKnown ? lController.mAddress + ':' + std::to_string(lController.mPort) : std::string();
}

namespace
{

KyGigE::DiscoveryOptions ToOptions(const NetworkSearch& aSearch)
{
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mAddress = aSearch.mAddress;
    lOptions.mInterface = aSearch.mInterface;
    lOptions.mPort = static_cast<uint16_t>(aSearch.mPort);
    lOptions.mTime = aSearch.mTime;
    return lOptions;
}

void ThrowUnlessEmpty(const std::string& aError)
{
    if (!aError.empty())
    {
        throw OperationError(aError);
    }
}

/// \param aInterface  Empty where the address alone says which device it is.
NetworkFinding ToFinding(const KyGigE::FoundDevice& aDevice, const std::string& aInterface)
{
    const KyGigE::DeviceInformation& lInformation = aDevice.mInformation;
    return {KyGigE::DeviceAddressText({aDevice.mAddress, aDevice.mPort, aInterface}),
            aDevice.mAddress,
            aDevice.mPort,
            KyGigE::MacText(lInformation.mMac),
            lInformation.mVendor,
            lInformation.mModel,
            lInformation.mVersion,
            lInformation.mSerialNumber,
            lInformation.mUserName,
            aDevice.mInterface};
}

/// "00:11:22:33:44:55", also with "-" or without anything between. \return Empty for any other text.
std::optional<uint64_t> ParseMac(const std::string& aText)
{
    std::string lDigits = aText;
    const char lSeparator = aText.size() > 2 && (aText[2] == ':' || aText[2] == '-') ? aText[2] : '\0';
    // From the end, so that the places of those before do not move; below 0 the index is larger than any.
    for (size_t lIndex = 14; lSeparator != '\0' && aText.size() == 17 && lIndex < aText.size(); lIndex -= 3)
    {
        if (aText[lIndex] == lSeparator)
        {
            lDigits.erase(lIndex, 1);
        }
    }
    const bool lGood =
        lDigits.size() == 12 && lDigits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return lGood ? std::optional<uint64_t>(std::stoull(lDigits, nullptr, 16)) : std::nullopt;
}

/// "24" as "255.255.255.0"; anything else as it is.
std::string MaskText(const std::string& aText)
{
    // Two digits at most, so the conversion cannot fail.
    const bool lNumber = !aText.empty() && aText.size() < 3 &&
                         aText.find_first_not_of("0123456789") == std::string::npos && std::stoi(aText) <= 32;
    if (!lNumber)
    {
        return aText;
    }
    const int lOnes = std::stoi(aText);
    const uint32_t lMask = lOnes == 0 ? 0 : UINT32_MAX << (32 - lOnes);
    std::string lText;
    for (const uint32_t lShift : {24U, 16U, 8U, 0U})
    {
        lText += (lText.empty() ? "" : ".") + std::to_string(lMask >> lShift & 0xFFU);
    }
    return lText;
}

} // namespace

bool IsNameOf(const std::string& aName, const NetworkFinding& aFinding)
{
    KyGigE::FoundDevice lDevice;
    lDevice.mAddress = aFinding.mAddress;
    lDevice.mInformation.mMac = ParseMac(aFinding.mMac).value_or(0);
    lDevice.mInformation.mSerialNumber = aFinding.mSerialNumber;
    lDevice.mInformation.mUserName = aFinding.mUserName;
    lDevice.mInformation.mModel = aFinding.mModel;
    return KyGigE::IsNameOf(aName, lDevice);
}

std::vector<NetworkFinding> FindNetworkDevices(const NetworkSearch& aSearch)
{
    std::vector<KyGigE::FoundDevice> lDevices;
    ThrowUnlessEmpty(KyGigE::DiscoverDevices(ToOptions(aSearch), lDevices));
    std::vector<NetworkFinding> lFindings;
    for (const KyGigE::FoundDevice& lDevice : lDevices)
    {
        // Where the address alone does not say which device it is, the interface does.
        const bool lTwin =
            std::count_if(lDevices.begin(), lDevices.end(),
                          [&](const KyGigE::FoundDevice& aOther) {
                              return aOther.mAddress == lDevice.mAddress && aOther.mPort == lDevice.mPort;
                          }) > 1;
        lFindings.push_back(ToFinding(lDevice, lTwin ? lDevice.mInterface : std::string()));
    }
    return lFindings;
}

std::string ParseIpChange(const std::string& aText, IpChange& aChange)
{
    const size_t lEquals = aText.find('=');
    const size_t lSlash = aText.find('/', lEquals);
    if (lEquals == std::string::npos || lSlash == std::string::npos)
    {
        return '"' + aText + "\" does not fit; use MAC=ADDRESS/MASK[/GATEWAY]";
    }
    const auto lMac = ParseMac(aText.substr(0, lEquals));
    if (!lMac)
    {
        return '"' + aText.substr(0, lEquals) + "\" is no MAC address; use one like 00:11:22:33:44:55";
    }
    const size_t lSecond = aText.find('/', lSlash + 1);
    aChange.mMac = *lMac;
    aChange.mAddress = aText.substr(lEquals + 1, lSlash - lEquals - 1);
    aChange.mMask = MaskText(aText.substr(lSlash + 1, lSecond - lSlash - 1));
    aChange.mGateway = lSecond != std::string::npos ? aText.substr(lSecond + 1) : "";
    return {};
}

NetworkFinding ForceIp(const NetworkSearch& aSearch, const IpChange& aChange)
{
    KyGigE::FoundDevice lDevice;
    ThrowUnlessEmpty(KyGigE::ForceIp(ToOptions(aSearch), aChange.mMac,
                                     {aChange.mAddress, aChange.mMask, aChange.mGateway}, lDevice));
    return ToFinding(lDevice, {});
}

void StoreIp(const NetworkSearch& aSearch, const IpChange& aChange)
{
    ThrowUnlessEmpty(KyGigE::StoreIp(ToOptions(aSearch), aChange.mMac,
                                     {aChange.mAddress, aChange.mMask, aChange.mGateway}));
}

} // namespace KySerialTool
