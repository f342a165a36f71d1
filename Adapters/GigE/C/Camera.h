#pragma once

#include "KyGigEC/kygige.h"
#include "OutOfMemory.h"
#include "Table/AdapterObject.h"

#include <KyGigE/GigEDeviceAdapter.h>

#include <memory>
#include <string>

namespace KyGigECLib
{

/// A connected camera with its adapter and the device that was made of it.
class Camera final : public KySerialCLib::AdapterObject
{
public:
    Camera(std::unique_ptr<KyGigE::GigEDeviceAdapter> aAdapter, KyGigE::DeviceAddress aAddress)
        : AdapterObject(std::shared_ptr<KyGigE::GigEDeviceAdapter>(std::move(aAdapter)))
        , mAddress(std::move(aAddress))
    {
    }

    /// As AdapterObject::Adapter().
    KyGigE::GigEDeviceAdapter& NetworkAdapter() { return static_cast<KyGigE::GigEDeviceAdapter&>(Adapter()); }
    const KyGigE::DeviceAddress& GetAddress() const { return mAddress; }

    KyDeviceHandle mDevice = 0; ///< Set before the camera's handle is given out.

private:
    const KyGigE::DeviceAddress mAddress;
};

/// A failure that is found in this layer: logged, and the result to return.
KyResult Fail(KyCode aCode, const char* aFunction, const char* aText) noexcept;

/// Runs a function's body. \param aBody  Gives a KyResult; may throw.
template<typename Body>
KyCode Run(const Body& aBody) noexcept
{
    return KySerialCLib::FinishCall(KySerialLib::CatchOutOfMemory(aBody));
}

/// Runs the body of a function that works on a camera. \param aBody  Gets the camera.
template<typename Body>
KyCode RunOn(const char* aFunction, KyCameraHandle aCamera, const Body& aBody) noexcept
{
    return Run(
        [&]() -> KyResult
        {
            const KySerialCLib::AdapterObjectCall lCall(aCamera);
            return lCall.Get() != nullptr ? aBody(static_cast<Camera&>(*lCall.Get()))
                                          : Fail(KY_INVALID_HANDLE, aFunction, "No such camera.");
        });
}

/// What a function answers to a null pointer where one is needed.
inline KyResult NullPointer(const char* aFunction) noexcept
{
    return Fail(KY_BAD_PARAMETER, aFunction, "A null pointer.");
}

/// Whether a structure of the caller's is there, and as large as that of this library at least.
template<typename Structure>
bool IsComplete(const Structure* aStructure) noexcept
{
    return aStructure != nullptr && aStructure->mSize >= sizeof(Structure);
}

/// What a function answers to one that is not.
inline KyResult NoStructure(const char* aFunction) noexcept
{
    return Fail(KY_BAD_PARAMETER, aFunction, "A null pointer for a structure, or its size is not set.");
}

/// Empty for null.
inline std::string TextOf(const char* aText)
{
    return aText != nullptr ? aText : "";
}

/// The form of a camera for C. Its texts are those of aDevice, and of the object.
class FoundCamera
{
public:
    FoundCamera(const KyGigE::DeviceInformation& aInformation, const KyGigE::DeviceAddress& aAddress,
                const std::string& aInterface);
    FoundCamera(const FoundCamera&) = delete;
    FoundCamera& operator=(const FoundCamera&) = delete;

    KyFoundCamera mForm{};

private:
    const std::string mDevice;
    const std::string mMac;
};

} // namespace KyGigECLib
