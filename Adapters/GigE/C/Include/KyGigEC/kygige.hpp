#ifndef KYGIGEC_KYGIGE_HPP
#define KYGIGEC_KYGIGE_HPP

#include <KyGigEC/kygige.h>
#include <KySerialC/kyserial.hpp>

#include <string>
#include <vector>

/// \file
/// Cameras on the network for C++17 programs of every compiler; see KySerialC/kyserial.hpp.

namespace ky
{

/// A camera that answered; see KyFoundCamera.
struct FoundCamera
{
    std::string mDevice; ///< What Camera::Open() takes.
    std::string mAddress;
    uint16_t mPort = 0;
    std::string mMac;
    std::string mSerialNumber;
    std::string mUserName;
    std::string mVendor;
    std::string mModel;
    std::string mVersion;
    std::string mInformation;
    std::string mInterface;
    int32_t mControl = KY_CONTROL_UNKNOWN;
    std::string mController;
    uint16_t mControllerPort = 0;
};

/// A feature; see KyFeature.
struct Feature
{
    std::string mName;
    std::string mCategory;
    std::string mVisibility;
    std::string mToolTip;
    int32_t mKind = KY_FEATURE_OTHER;
    int32_t mAccess = 0;
};

namespace Detail
{

// Without memory an entry is left out: nothing may be thrown into the library.
template<typename Entry, typename Form, Entry (*cConvert)(const Form&)>
void Collect(void* aContext, const Form* aForm)
{
    try
    {
        static_cast<std::vector<Entry>*>(aContext)->push_back(cConvert(*aForm));
    }
    catch (...)
    {
        static_cast<std::vector<Entry>*>(aContext)->shrink_to_fit();
    }
}

inline FoundCamera Convert(const KyFoundCamera& aForm)
{
    return {aForm.mDevice,
            aForm.mAddress,
            static_cast<uint16_t>(aForm.mPort),
            aForm.mMac,
            aForm.mSerialNumber,
            aForm.mUserName,
            aForm.mVendor,
            aForm.mModel,
            aForm.mVersion,
            aForm.mInformation,
            aForm.mInterface,
            aForm.mControl,
            aForm.mController,
            static_cast<uint16_t>(aForm.mControllerPort)};
}

inline Feature ConvertFeature(const KyFeature& aForm)
{
    return {aForm.mName, aForm.mCategory, aForm.mVisibility, aForm.mToolTip, aForm.mKind, aForm.mAccess};
}

} // namespace Detail

/// As KyCameraFind(). \param aSearch  Null: the usual values.
inline Outcome<std::vector<FoundCamera>> FindCameras(const KyCameraSearch* aSearch = nullptr)
{
    std::vector<FoundCamera> lFound;
    const KyCode lCode = KyCameraFind(aSearch, &Detail::Collect<FoundCamera, KyFoundCamera, &Detail::Convert>,
                                      &lFound, nullptr);
    return Made(lCode, std::move(lFound));
}

/// A connected camera, given back at the object's end. Ports on it have to end before.
class Camera
{
public:
    /// As KyCameraOpen(). \param aOptions  Null: the usual values.
    static Outcome<Camera> Open(const std::string& aName, const KyCameraOptions* aOptions = nullptr)
    {
        KyCameraHandle lHandle = 0;
        KyDeviceHandle lDevice = 0;
        KyCode lCode = KyCameraOpen(aName.c_str(), aOptions, &lHandle);
        Handle<&KyCameraClose> lCamera(lHandle);
        lCode = lCode == KY_OK ? KyCameraGetDevice(lHandle, &lDevice) : lCode;
        return Made(lCode, Camera(std::move(lCamera), lDevice));
    }

    KyCameraHandle GetHandle() const noexcept { return mHandle.Get(); }
    DeviceRef GetDevice() const noexcept { return DeviceRef(mDevice); }
    operator DeviceRef() const noexcept { return GetDevice(); } // NOLINT: it is one, and owns it too

    /// Zeros for a camera that was closed.
    KyCameraState GetState() const
    {
        KyCameraState lState{};
        lState.mSize = sizeof lState;
        static_cast<void>(KyCameraGetState(mHandle.Get(), &lState)); // nothing else can go wrong
        return lState;
    }
    /// As KyCameraWaitForChange().
    template<typename Representation, typename Period>
    Status WaitForChange(KyCameraState& aState, std::chrono::duration<Representation, Period> aTimeout) const
    {
        return Status(KyCameraWaitForChange(mHandle.Get(), &aState, Milliseconds(aTimeout)));
    }
    Status Reconnect() { return Status(KyCameraReconnect(mHandle.Get())); }
    Outcome<std::vector<Feature>> ListFeatures() const
    {
        std::vector<Feature> lFeatures;
        const KyCode lCode =
            KyCameraListFeatures(mHandle.Get(), &Detail::Collect<Feature, KyFeature, &Detail::ConvertFeature>,
                                 &lFeatures, nullptr);
        return Made(lCode, std::move(lFeatures));
    }
    Outcome<std::string> GetFeature(const std::string& aName) const { return GetDevice().GetFeature(aName); }
    Status SetFeature(const std::string& aName, const std::string& aValue)
    {
        return GetDevice().SetFeature(aName, aValue);
    }
    Status Execute(const std::string& aName) { return Status(KyCameraExecute(mHandle.Get(), aName.c_str())); }
    /// As KyCameraClose(); the object's end does that too, but drops the result.
    Status Close() { return Status(mHandle.Reset()); }

private:
    Camera(Handle<&KyCameraClose> aHandle, KyDeviceHandle aDevice)
        : mHandle(std::move(aHandle)), mDevice(aDevice)
    {
    }
    Handle<&KyCameraClose> mHandle;
    KyDeviceHandle mDevice;
};

} // namespace ky

#endif
