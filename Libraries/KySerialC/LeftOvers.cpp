#include "LeftOvers.h"

#include "JxUtilsLib/LockScope.h"
#include "KyBase/KyPermanent.h"
#include "KySerial/DeviceProtocol.h"

#include <list>

namespace KySerialCLib
{

namespace
{

// Held while adapters are called to close something: two threads must not close at one device at a time.
struct Store
{
    JxUtilsLib::Mutex mMutex;
    std::list<LeftOver> mKept JX_GUARDED_BY(mMutex);
};

// Never destroyed: adapters may call sinks until the last moment of the process.
Store& GetStore()
{
    static KyPermanent<Store> sStore; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sStore.Get();
}

// \return Whether it is closed now.
bool Close(const LeftOver& aLeftOver, DeviceAdapter& aDevice)
{
    if (aLeftOver.mDevice->Hold())
    {
        const bool lIsClosed = aLeftOver.mClose().IsOK();
        aLeftOver.mDevice->Release();
        return lIsClosed;
    }
    // The device has been destroyed, and its functions must not be called any more. Those of the
    // other device reach the same camera.
    const DeviceAdapter::Loan lLoan(*aLeftOver.mDevice, aDevice);
    return aLeftOver.mClose().IsOK();
}

} // namespace

std::string IdentityOf(IKyDeviceAdapter& aDevice)
{
    int64_t lMac = 0;
    // The result is empty where the camera does not answer: two cameras must not be taken for one.
    if (aDevice.IsGigEVision())
    {
        return aDevice.GetIntegerValue(KyDeviceProtocol::cMacAddressFeature, lMac).IsOK()
                   ? "MAC " + std::to_string(lMac)
                   : std::string();
    }
    KyString lVendor;
    KyString lNumber;
    return aDevice.IsAlternateTransport() &&
                   aDevice.GetStringValue(KyDeviceProtocol::cVendorFeature, lVendor).IsOK() &&
                   aDevice.GetStringValue(KyDeviceProtocol::cSerialNumberFeature, lNumber).IsOK()
               ? std::string(lVendor.GetAscii()) + '\n' + lNumber.GetAscii()
               : std::string();
}

void KeepLeftOver(LeftOver aLeftOver)
{
    Store& lStore = GetStore();
    const JxUtilsLib::LockScope lScope(lStore.mMutex);
    lStore.mKept.push_back(std::move(aLeftOver));
}

void CloseLeftOvers(DeviceAdapter& aDevice, const std::string& aCamera, int32_t aSerial)
{
    Store& lStore = GetStore();
    const JxUtilsLib::LockScope lScope(lStore.mMutex);
    lStore.mKept.remove_if(
        [&](const LeftOver& aLeftOver)
        {
            // A port is claimed for the camera, so a left-over of any device of that camera is in the way.
            const bool lIsSame =
                aLeftOver.mDevice.get() == &aDevice || (!aCamera.empty() && aLeftOver.mCamera == aCamera);
            return lIsSame && aLeftOver.mSerial == aSerial && Close(aLeftOver, aDevice);
        });
}

} // namespace KySerialCLib
