#pragma once

#include "ApiCall.h"
#include "DeviceAdapter.h"
#include "KySerial/KySerialTypes.h"
#include "LeftOvers.h"
#include "SharedLock.h"

#include <memory>
#include <new>
#include <string>

namespace KySerialCLib
{

template<typename Product>
struct PortObject;

/// Keeps the product of an object that ends while its camera is away, so that the port can be opened again when the
/// camera is back.
template<typename Product>
void LeaveOpen(PortObject<Product>& aObject) noexcept
{
    if (aObject.mDevice.Get() == nullptr || aObject.mProduct->Close().GetCode() != KY_NO_CONNECTION)
    {
        return;
    }
    try
    {
        const std::shared_ptr<Product> lProduct = std::move(aObject.mProduct);
        KeepLeftOver({aObject.mDevice.GetShared(), aObject.mCamera, aObject.mSerial,
                      [lProduct] { return lProduct->Close(); }});
    }
    catch (const std::bad_alloc&)
    {
        // The product is destroyed, and its port stays claimed.
    }
}

/// A port or bus of the library and the device that it is open on.
template<typename Product>
struct PortObject
{
    PortObject() : mProduct(std::make_shared<Product>()) {}
    ~PortObject() { LeaveOpen(*this); }
    PortObject(const PortObject&) = delete;
    PortObject& operator=(const PortObject&) = delete;

    DeviceReference mDevice; // set as long as the product has to be closed; goes after it
    std::string mCamera;     // IdentityOf() it, and the port of it, since the product was opened
    int32_t mSerial = 0;
    KySerialLib::SharedLock mLock;
    std::shared_ptr<Product> mProduct; // shared with nobody
    JxUtilsLib::Mutex mReadTurn;       // of a port
    JxUtilsLib::Mutex mWriteTurn;
};

/// Opens. Needs the object for itself. A product that was open before is made anew: the library keeps what a
/// second Open() replaces until the process ends.
template<typename Product>
KyResult Open(const char* aFunction, PortObject<Product>& aObject, KyDeviceHandle aDevice, int32_t aSerial)
{
    if (aObject.mDevice.Get() != nullptr)
    {
        return Fail(KY_WRONG_STATE, aFunction, "Open already: close it first.");
    }
    DeviceReference lDevice(aDevice);
    if (lDevice.Get() == nullptr)
    {
        return Fail(KY_INVALID_HANDLE, aFunction, "No such device.");
    }
    if (!IsSerial(aSerial))
    {
        return Fail(KY_BAD_PARAMETER, aFunction, "No such port.");
    }
    const std::string lCamera = lDevice.Get()->IsConnected() ? IdentityOf(*lDevice.Get()) : std::string();
    CloseLeftOvers(*lDevice.Get(), lCamera, aSerial);
    aObject.mProduct = std::make_shared<Product>();
    KyResult lResult = aObject.mProduct->Open(lDevice.Get(), static_cast<KyDeviceSerial>(aSerial));
    if (lResult.IsOK() || aObject.mProduct->IsOpened())
    {
        aObject.mDevice = std::move(lDevice);
        aObject.mCamera = lCamera;
        aObject.mSerial = aSerial;
    }
    return lResult;
}

/// Closes. Needs the object for itself.
template<typename Product>
KyResult Close(PortObject<Product>& aObject)
{
    KyResult lResult = aObject.mProduct->Close();
    if (lResult.IsOK())
    {
        aObject.mDevice.Reset();
    }
    return lResult;
}

/// Answers whether a device offers what Product stands for on a port.
template<typename Product>
KyCode IsSupported(const char* aFunction, KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported)
{
    return Run(
        [&]() -> KyResult
        {
            if (aIsSupported == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, aFunction, "The answer has nowhere to go: a null pointer.");
            }
            *aIsSupported = 0;
            const DeviceReference lDevice(aDevice);
            if (lDevice.Get() == nullptr)
            {
                return Fail(KY_INVALID_HANDLE, aFunction, "No such device.");
            }
            const bool lIsSupported =
                IsSerial(aSerial) &&
                Product::IsSupported(lDevice.Get(), static_cast<KyDeviceSerial>(aSerial));
            *aIsSupported = lIsSupported ? 1 : 0;
            return KyResult();
        });
}

/// What a function answers to a null buffer.
inline KyResult NoBuffer(const char* aFunction)
{
    return Fail(KY_BAD_PARAMETER, aFunction, "A null pointer for the bytes, or no room for any.");
}

} // namespace KySerialCLib
