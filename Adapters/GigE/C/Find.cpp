#include "Camera.h"

#include <KyGigE/Controller.h>
#include <KyGigE/Discovery.h>

#include <vector>

using namespace KyGigECLib;

namespace
{

KyCameraSearch UsualSearch()
{
    const KyGigE::DiscoveryOptions lUsual;
    return {sizeof(KyCameraSearch), lUsual.mTime, nullptr, nullptr, lUsual.mPort, 1};
}

void AskControl(const KyGigE::FoundDevice& aDevice, KyGigE::Controller& aController, KyFoundCamera& aForm)
{
    if (!KyGigE::FindController(aDevice, aController).empty())
    {
        return; // a camera that does not answer this question is still listed
    }
    // Under exclusive access even reading fails, which a caller wants to know before it connects.
    const int32_t lTaken = aController.mExclusive ? KY_CONTROL_EXCLUSIVE : KY_CONTROL_TAKEN;
    aForm.mControl = aController.mControlled ? lTaken : KY_CONTROL_FREE;
    aForm.mController = aController.mAddress.c_str();
    aForm.mControllerPort = aController.mPort;
}

} // namespace

KyGigECLib::FoundCamera::FoundCamera(const KyGigE::DeviceInformation& aInformation,
                                     const KyGigE::DeviceAddress& aAddress, const std::string& aInterface)
    : mDevice(KyGigE::DeviceAddressText(aAddress)), mMac(KyGigE::MacText(aInformation.mMac))
{
    mForm.mSize = sizeof(KyFoundCamera);
    mForm.mPort = aAddress.mPort;
    mForm.mDevice = mDevice.c_str();
    mForm.mAddress = aAddress.mAddress.c_str();
    mForm.mMac = mMac.c_str();
    mForm.mSerialNumber = aInformation.mSerialNumber.c_str();
    mForm.mUserName = aInformation.mUserName.c_str();
    mForm.mVendor = aInformation.mVendor.c_str();
    mForm.mModel = aInformation.mModel.c_str();
    mForm.mVersion = aInformation.mVersion.c_str();
    mForm.mInformation = aInformation.mInformation.c_str();
    mForm.mInterface = aInterface.c_str();
    mForm.mController = "";
}

KyCode KyCameraSearchInit(KyCameraSearch* aSearch)
{
    return Run(
        [&]() -> KyResult
        {
            if (aSearch == nullptr)
            {
                return NullPointer("KyCameraSearchInit");
            }
            *aSearch = UsualSearch();
            return {};
        });
}

KyCode KyCameraFind(const KyCameraSearch* aSearch, KyFoundCameraFunction aFunction, void* aContext,
                    uint32_t* aCount)
{
    static constexpr char cFunction[] = "KyCameraFind";
    return Run(
        [&]() -> KyResult
        {
            uint32_t lCount = 0;
            uint32_t& lResultCount = aCount != nullptr ? *aCount : lCount;
            lResultCount = 0;
            if (aSearch != nullptr && !IsComplete(aSearch))
            {
                return NoStructure(cFunction);
            }
            const KyCameraSearch lSearch = aSearch != nullptr ? *aSearch : UsualSearch();
            if (lSearch.mPort == 0 || lSearch.mPort > UINT16_MAX)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "No such UDP port.");
            }
            const KyGigE::DiscoveryOptions lWhere = {TextOf(lSearch.mAddress),
                                                     static_cast<uint16_t>(lSearch.mPort),
                                                     TextOf(lSearch.mInterface), lSearch.mTime};
            std::vector<KyGigE::FoundDevice> lDevices;
            const std::string lError = KyGigE::DiscoverDevices(lWhere, lDevices);
            if (!lError.empty())
            {
                return Fail(KY_FAILURE, cFunction, lError.c_str());
            }
            for (const KyGigE::FoundDevice& lDevice : lDevices)
            {
                const KyGigE::DeviceAddress lAddress = {lDevice.mAddress, lDevice.mPort, lWhere.mInterface};
                // Its texts live until the caller's function returns.
                FoundCamera lCamera(lDevice.mInformation, lAddress, lDevice.mInterface);
                KyGigE::Controller lController;
                // A question to each camera of its own: it takes time where a camera does not answer it.
                if (lSearch.mAskControl != 0)
                {
                    AskControl(lDevice, lController, lCamera.mForm);
                }
                if (aFunction != nullptr)
                {
                    aFunction(aContext, &lCamera.mForm);
                }
            }
            lResultCount = static_cast<uint32_t>(lDevices.size());
            return {};
        });
}
