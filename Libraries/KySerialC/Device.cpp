#include "KySerialC/Device.h"

#include "ApiCall.h"
#include "DeviceAdapter.h"
#include "JxUtilsLib/Assert.h"
#include "ThreadText.h"

#include <memory>
#include <mutex>

using namespace KySerialCLib;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerialC/Device";
constexpr char cNoReport[] = "Inside another report of this thread, or of a device that ends.";

// What a debug build of the library finds broken: a program in another language has no handler of its own and
// must not end for it.
void LogBrokenAssertion(const char* aText, const char* aFile, int aLine)
{
    const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
    KY_LOG_FATAL(lLogger, "KyDeviceCreate", "%s:%d: assertion \"%s\" failed", aFile, aLine, aText);
}

} // namespace

HandleTable<DeviceAdapter>& KySerialCLib::Devices()
{
    return GetTable<HandleKind::Device, DeviceAdapter>();
}

KyCode KyReturnText(const char* aText)
{
    static constexpr char cFunction[] = "KyReturnText";
    if (aText == nullptr)
    {
        return Finish(Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for a text."));
    }
    return Finish(AdapterCall::TakeText(aText)
                      ? KyResult()
                      : Fail(KY_WRONG_STATE, cFunction, "No function that gives texts runs on this thread."));
}

KyCode KyDeviceCreate(const KyAdapter* aAdapter, KyDeviceHandle* aDevice)
{
    static constexpr char cFunction[] = "KyDeviceCreate";
    return Run(
        [&]() -> KyResult
        {
            static std::once_flag sOnce;
            std::call_once(sOnce, [] { JxUtilsLib::SetAssertHandler(&LogBrokenAssertion); });
            if (aDevice != nullptr)
            {
                *aDevice = 0;
            }
            if (aAdapter == nullptr || aDevice == nullptr || !DeviceAdapter::IsComplete(*aAdapter))
            {
                return Fail(KY_BAD_PARAMETER, cFunction,
                            "A null pointer, or an adapter without mIsConnected.");
            }
            const auto lDevice = std::make_shared<DeviceAdapter>(*aAdapter);
            *aDevice = Devices().Add(lDevice);
            // Nobody knows the handle before this function returns it, so no call comes without it.
            lDevice->SetHandle(*aDevice);
            return *aDevice != 0 ? KyResult() : Fail(KY_FAILURE, cFunction, "Too many devices.");
        });
}

KyCode KyDeviceDestroy(KyDeviceHandle aDevice)
{
    static constexpr char cFunction[] = "KyDeviceDestroy";
    return RunOn(cFunction, Devices(), aDevice,
                 [&](DeviceAdapter& aAdapter) -> KyResult
                 {
                     const KyCode lCode = aAdapter.Retire();
                     if (lCode != KY_OK)
                     {
                         return Fail(lCode, cFunction, "The device is in use, or being destroyed already.");
                     }
                     static_cast<void>(Devices().Remove(aDevice)); // ends with the call that found it
                     return KyResult();
                 });
}

KyCode KyDeviceIsConnected(KyDeviceHandle aDevice, int32_t* aIsConnected)
{
    static constexpr char cFunction[] = "KyDeviceIsConnected";
    return Run(
        [&]() -> KyResult
        {
            if (aIsConnected == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "The answer has nowhere to go: a null pointer.");
            }
            *aIsConnected = 0;
            const DeviceReference lDevice(aDevice);
            if (lDevice.Get() == nullptr)
            {
                return Fail(KY_INVALID_HANDLE, cFunction, "No such device.");
            }
            *aIsConnected = lDevice.Get()->IsConnected() ? 1 : 0;
            return KyResult();
        });
}

KyCode KyDeviceNotifyEvent(KyDeviceHandle aDevice, uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID,
                           uint64_t aTimestamp, const void* aData, uint32_t aDataLength)
{
    static constexpr char cFunction[] = "KyDeviceNotifyEvent";
    return RunOn(cFunction, Devices(), aDevice,
                 [&](DeviceAdapter& aAdapter) -> KyResult
                 {
                     if (aData == nullptr && aDataLength > 0)
                     {
                         return Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for data.");
                     }
                     const KyCode lCode =
                         aAdapter.ReportEvent(aEventID, aChannel, aBlockID, aTimestamp, aData, aDataLength);
                     return lCode == KY_OK ? KyResult() : Fail(lCode, cFunction, cNoReport);
                 });
}

KyCode KyDeviceNotifyFeatureInvalidated(KyDeviceHandle aDevice, const char* aName)
{
    static constexpr char cFunction[] = "KyDeviceNotifyFeatureInvalidated";
    return RunOn(cFunction, Devices(), aDevice,
                 [&](DeviceAdapter& aAdapter) -> KyResult
                 {
                     if (aName == nullptr)
                     {
                         return Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for a name.");
                     }
                     const KyCode lCode = aAdapter.ReportChange(KyString(aName));
                     return lCode == KY_OK ? KyResult() : Fail(lCode, cFunction, cNoReport);
                 });
}

KyCode KyDeviceGetFeature(KyDeviceHandle aDevice, const char* aName, char* aBuffer, uint32_t* aSize)
{
    static constexpr char cFunction[] = "KyDeviceGetFeature";
    return Run(
        [&]() -> KyResult
        {
            const DeviceReference lDevice(aDevice);
            if (lDevice.Get() == nullptr)
            {
                return Fail(KY_INVALID_HANDLE, cFunction, "No such device.");
            }
            if (aName == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for a name.");
            }
            KyString lValue;
            KyResult lResult = lDevice.Get()->GetFeatureAsString(KyString(aName), lValue);
            return lResult.IsOK() ? CopyText(cFunction, lValue, aBuffer, aSize) : lResult;
        });
}

KyCode KyDeviceSetFeature(KyDeviceHandle aDevice, const char* aName, const char* aValue)
{
    static constexpr char cFunction[] = "KyDeviceSetFeature";
    return Run(
        [&]() -> KyResult
        {
            const DeviceReference lDevice(aDevice);
            if (lDevice.Get() == nullptr)
            {
                return Fail(KY_INVALID_HANDLE, cFunction, "No such device.");
            }
            if (aName == nullptr || aValue == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for a name or a value.");
            }
            return lDevice.Get()->SetFeatureFromString(KyString(aName), KyString(aValue));
        });
}
