#include "Camera.h"

#include "KyPlatform/Deadline.h"
#include "LogResult.h"
#include "Table/AdapterTable.h"

#include <JxUtilsLib/Thread.h>
#include <KyGigE/DeviceName.h>

using KyGigE::ConnectionOptions;
using KySerialCLib::AdapterObjectCall;
using namespace KyGigECLib;

namespace
{

constexpr char cSourceFile[] = "Adapters/GigE/C/Camera";
constexpr uint32_t cLook = 10; // milliseconds between two looks at a connection that somebody waits for

KyCameraOptions UsualOptions()
{
    const ConnectionOptions lUsual;
    KyCameraOptions lOptions{};
    lOptions.mSize = sizeof(KyCameraOptions);
    lOptions.mReconnect = lUsual.mReconnect ? 1 : 0;
    lOptions.mSearchTime = KyGigE::DiscoveryOptions().mTime;
    lOptions.mConnectLimit = lUsual.mConnectLimit;
    lOptions.mTimeout = lUsual.mControl.mTimeout;
    lOptions.mAttempts = lUsual.mControl.mAttempts;
    lOptions.mPending = lUsual.mControl.mPending;
    lOptions.mHeartbeatPeriod = lUsual.mHeartbeatPeriod;
    lOptions.mHeartbeatTimeout = lUsual.mHeartbeatTimeout;
    lOptions.mEventTimeout = lUsual.mEventTimeout;
    lOptions.mEventRetries = lUsual.mEventRetries;
    return lOptions;
}

ConnectionOptions Convert(const KyCameraOptions& aOptions)
{
    ConnectionOptions lOptions;
    lOptions.mControl = {aOptions.mTimeout, aOptions.mAttempts, aOptions.mPending};
    lOptions.mHeartbeatPeriod = aOptions.mHeartbeatPeriod;
    lOptions.mHeartbeatTimeout = aOptions.mHeartbeatTimeout;
    lOptions.mEventTimeout = aOptions.mEventTimeout;
    lOptions.mEventRetries = aOptions.mEventRetries;
    lOptions.mReconnect = aOptions.mReconnect != 0;
    lOptions.mReadOnly = aOptions.mReadOnly != 0;
    lOptions.mConnectLimit = aOptions.mConnectLimit;
    return lOptions;
}

// The camera's address from its name.
KyResult Find(const char* aFunction, const char* aName, const KyCameraOptions& aOptions,
              KyGigE::DeviceAddress& aAddress)
{
    KyGigE::DiscoveryOptions lWhere;
    lWhere.mInterface = TextOf(aOptions.mInterface);
    lWhere.mTime = aOptions.mSearchTime;
    const std::string lError = KyGigE::FindDevice(aName, lWhere, aAddress);
    if (!lError.empty())
    {
        // The search has words alone. A camera that is not there is another case for callers than a search that cannot
        // begin.
        const bool lIsNobody = lError.rfind("no device", 0) == 0;
        return Fail(lIsNobody ? KY_NO_CONNECTION : KY_FAILURE, aFunction, lError.c_str());
    }
    if (!lWhere.mInterface.empty())
    {
        aAddress.mInterface = lWhere.mInterface; // what the caller says counts more than what the text says
    }
    return {};
}

// Puts a connected camera into the table and makes a device of it.
KyResult Register(const char* aFunction, std::unique_ptr<KyGigE::GigEDeviceAdapter> aAdapter,
                  const KyGigE::DeviceAddress& aAddress, KyCameraHandle& aCamera)
{
    const auto lCamera = std::make_shared<Camera>(std::move(aAdapter), aAddress);
    // Into the table first: the functions of the device find the camera by its handle.
    const uint64_t lHandle = KySerialCLib::AdapterObjects().Add(lCamera);
    if (lHandle == 0)
    {
        return Fail(KY_FAILURE, aFunction, "Too many cameras.");
    }
    const KyAdapter lTable = KySerialCLib::AdapterTable(lHandle);
    const KyCode lCode = KyDeviceCreate(&lTable, &lCamera->mDevice);
    if (lCode != KY_OK)
    {
        KyResult lResult(lCode, KyGetLastText());
        static_cast<void>(KySerialCLib::AdapterObjects().Remove(lHandle)); // nobody has seen the handle
        lCamera->Stop();
        return lResult;
    }
    aCamera = lHandle;
    return {};
}

void FillIn(KyGigE::GigEDeviceAdapter& aAdapter, KyCameraState& aState)
{
    // The connection comes first: the figures then include a loss that it shows.
    aState.mIsConnected = aAdapter.IsConnected() ? 1 : 0;
    const KyGigE::ConnectionFigures lFigures = aAdapter.GetFigures();
    aState.mGeneration = aAdapter.GetGeneration();
    aState.mLosses = lFigures.mLosses;
    aState.mRepeatedCommands = lFigures.mRepeatedCommands;
    aState.mRepeatedEvents = lFigures.mRepeatedEvents;
    aState.mForeignEvents = lFigures.mForeignEvents;
}

// Fills a caller's state; its size stays.
KyResult GetState(const char* aFunction, KyCameraHandle aCamera, KyCameraState& aState)
{
    const AdapterObjectCall lCall(aCamera);
    if (lCall.Get() == nullptr)
    {
        // The rest of a failed call's state is zeros, so a caller that ignores the code sees a lost camera.
        const uint32_t lSize = aState.mSize;
        aState = {};
        aState.mSize = lSize;
        return Fail(KY_INVALID_HANDLE, aFunction, "No such camera.");
    }
    FillIn(static_cast<Camera&>(*lCall.Get()).NetworkAdapter(), aState);
    return {};
}

} // namespace

KySerialCLib::HandleTable<KySerialCLib::AdapterObject>& KySerialCLib::AdapterObjects()
{
    return GetTable<HandleKind::NetworkCamera, AdapterObject>();
}

KyResult KyGigECLib::Fail(KyCode aCode, const char* aFunction, const char* aText) noexcept
{
    const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
    return KY_LOG_RESULT(lLogger, aCode, aFunction, "%s", aText);
}

KyCode KyCameraOptionsInit(KyCameraOptions* aOptions)
{
    return Run(
        [&]() -> KyResult
        {
            if (aOptions == nullptr)
            {
                return NullPointer("KyCameraOptionsInit");
            }
            *aOptions = UsualOptions();
            return {};
        });
}

KyCode KyCameraOpen(const char* aName, const KyCameraOptions* aOptions, KyCameraHandle* aCamera)
{
    static constexpr char cFunction[] = "KyCameraOpen";
    return Run(
        [&]() -> KyResult
        {
            if (aCamera != nullptr)
            {
                *aCamera = 0;
            }
            if (aCamera == nullptr || aName == nullptr)
            {
                return NullPointer(cFunction);
            }
            if (aOptions != nullptr && !IsComplete(aOptions))
            {
                return NoStructure(cFunction);
            }
            const KyCameraOptions lOptions = aOptions != nullptr ? *aOptions : UsualOptions();
            // Without an attempt no command is sent; without a period the keeper's thread would never rest.
            if (lOptions.mAttempts == 0 || lOptions.mHeartbeatPeriod == 0)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "No attempts, or no period of the heartbeat.");
            }
            KyGigE::DeviceAddress lAddress;
            KyResult lResult = Find(cFunction, aName, lOptions, lAddress);
            std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
            lResult = lResult.IsOK()
                          ? KyGigE::GigEDeviceAdapter::Connect(lAddress, Convert(lOptions), lAdapter)
                          : lResult;
            return lResult.IsOK() ? Register(cFunction, std::move(lAdapter), lAddress, *aCamera) : lResult;
        });
}

KyCode KyCameraClose(KyCameraHandle aCamera)
{
    static constexpr char cFunction[] = "KyCameraClose";
    return Run(
        [&]() -> KyResult
        {
            // Closing waits for the calls that run. From inside one of them it would wait for itself.
            if (AdapterObjectCall::IsRunning())
            {
                return Fail(KY_WRONG_STATE, cFunction, "From inside a call of a camera.");
            }
            const std::shared_ptr<KySerialCLib::AdapterObject> lFound =
                KySerialCLib::AdapterObjects().Find(aCamera);
            if (lFound == nullptr)
            {
                return Fail(KY_INVALID_HANDLE, cFunction, "No such camera.");
            }
            // The device first: it refuses while a port is open on it, and then the camera stays.
            const KyCode lCode = KyDeviceDestroy(static_cast<Camera&>(*lFound).mDevice);
            if (lCode != KY_OK)
            {
                return lCode == KY_INVALID_HANDLE // another thread closes it too
                           ? Fail(KY_INVALID_HANDLE, cFunction, "The camera is being closed already.")
                           : KyResult(lCode, KyGetLastText());
            }
            static_cast<void>(KySerialCLib::AdapterObjects().Remove(aCamera)); // lFound is the object
            lFound->Stop();
            return {};
        });
}

KyCode KyCameraGetDevice(KyCameraHandle aCamera, KyDeviceHandle* aDevice)
{
    static constexpr char cFunction[] = "KyCameraGetDevice";
    if (aDevice != nullptr)
    {
        *aDevice = 0;
    }
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aDevice == nullptr)
                     {
                         return NullPointer(cFunction);
                     }
                     *aDevice = aObject.mDevice;
                     return {};
                 });
}

KyCode KyCameraGetInformation(KyCameraHandle aCamera, KyFoundCameraFunction aFunction, void* aContext)
{
    static constexpr char cFunction[] = "KyCameraGetInformation";
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aFunction == nullptr)
                     {
                         return NullPointer(cFunction);
                     }
                     const FoundCamera lCamera(aObject.NetworkAdapter().GetInformation(),
                                               aObject.GetAddress(), aObject.GetAddress().mInterface);
                     aFunction(aContext, &lCamera.mForm);
                     return {};
                 });
}

KyCode KyCameraGetState(KyCameraHandle aCamera, KyCameraState* aState)
{
    static constexpr char cFunction[] = "KyCameraGetState";
    return Run(
        [&]() -> KyResult
        { return IsComplete(aState) ? GetState(cFunction, aCamera, *aState) : NoStructure(cFunction); });
}

KyCode KyCameraWaitForChange(KyCameraHandle aCamera, KyCameraState* aState, uint32_t aTimeout)
{
    static constexpr char cFunction[] = "KyCameraWaitForChange";
    return Run(
        [&]() -> KyResult
        {
            if (!IsComplete(aState))
            {
                return NoStructure(cFunction);
            }
            const KyPlatform::Deadline lEnd(aTimeout);
            // The caller's last state is the one to differ from, so a change between two calls is not missed.
            const KyCameraState lBefore = *aState;
            while (true)
            {
                // Between two looks nothing of the camera is held, so that it can be closed meanwhile.
                KyResult lResult = GetState(cFunction, aCamera, *aState);
                if (!lResult.IsOK() || aState->mIsConnected != lBefore.mIsConnected ||
                    aState->mGeneration != lBefore.mGeneration)
                {
                    return lResult;
                }
                if (lEnd.IsOver())
                {
                    return KyResult(KY_TIMED_OUT); // not logged: the usual end of a wait
                }
                JxUtilsLib::Thread::Sleep(lEnd.GetRemaining(cLook));
            }
        });
}

KyCode KyCameraReconnect(KyCameraHandle aCamera)
{
    return RunOn("KyCameraReconnect", aCamera,
                 [](Camera& aObject) { return aObject.NetworkAdapter().Reconnect(); });
}
