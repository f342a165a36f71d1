#include "KySerialC/Bridge.h"

#include "ApiCall.h"
#include "KySerial/KySerialBridge.h"
#include "LineSettingsForm.h"
#include "PortObject.h"

#include <cstddef>

using namespace KySerialCLib;

namespace
{

// An application's functions as the library's own observer.
class FunctionObserver final : public IKySerialBridgeObserver
{
public:
    void NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes, uint32_t aCount) override
    {
        if (mFunctions.mTraffic != nullptr)
        {
            mFunctions.mTraffic(mFunctions.mContext, static_cast<int32_t>(aWay), aTime, aBytes, aCount);
        }
    }
    void NotifyLoss(KySerialBridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes) override
    {
        if (mFunctions.mLoss != nullptr)
        {
            mFunctions.mLoss(mFunctions.mContext, static_cast<int32_t>(aWay), static_cast<int32_t>(aLoss),
                             aBytes);
        }
    }
    void NotifyDeviceGone() override
    {
        if (mFunctions.mDeviceGone != nullptr)
        {
            mFunctions.mDeviceGone(mFunctions.mContext);
        }
    }
    void NotifyDeviceBack(uint64_t aLost) override
    {
        if (mFunctions.mDeviceBack != nullptr)
        {
            mFunctions.mDeviceBack(mFunctions.mContext, aLost);
        }
    }
    void NotifySettings(const KySerialPortConfiguration& aSettings) override
    {
        if (mFunctions.mSettings != nullptr)
        {
            KyLineSettings lSettings{};
            lSettings.mSize = sizeof lSettings;
            static_cast<void>(Convert("KyBridgeSetObserver", aSettings, &lSettings)); // the size is right
            mFunctions.mSettings(mFunctions.mContext, &lSettings);
        }
    }

    KyBridgeObserver mFunctions{};
};

// An application's function as the numbers of a device's connections.
class FunctionGeneration final : public IKyDeviceGeneration
{
public:
    uint64_t GetGeneration() override { return mFunction(mContext); }

    uint64_t (*mFunction)(void*) = nullptr; // null: the object is not used
    void* mContext = nullptr;
};

// A bridge and the device that it runs on.
struct Bridge
{
    DeviceReference mDevice; // set while it runs; goes after it
    JxUtilsLib::Mutex mTurn;
    FunctionObserver mObserver;
    FunctionGeneration mGeneration;
    KySerialBridgeOptions mOptions; // of the next start
    KySerialBridge mBridge;         // last: it uses the others
};

HandleTable<Bridge>& Bridges()
{
    return GetTable<HandleKind::Bridge, Bridge>();
}

// Starts a bridge. aStart gets the adapter and the options.
template<typename Start>
KyCode StartBridge(const char* aFunction, KyBridgeHandle aBridge, KyDeviceHandle aDevice, const Start& aStart)
{
    return RunOn(aFunction, Bridges(), aBridge,
                 [&](Bridge& aObject) -> KyResult
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     if (aObject.mDevice.Get() != nullptr)
                     {
                         return Fail(KY_WRONG_STATE, aFunction, "Bridge already started.");
                     }
                     DeviceReference lDevice(aDevice);
                     if (lDevice.Get() == nullptr)
                     {
                         return Fail(KY_INVALID_HANDLE, aFunction, "No such device.");
                     }
                     KyResult lResult = aStart(aObject.mBridge, lDevice.Get(), aObject.mOptions);
                     // A bridge that does not run holds no device, so that the application can destroy that.
                     if (lResult.IsOK())
                     {
                         aObject.mDevice = std::move(lDevice);
                     }
                     return lResult;
                 });
}

// An operation on a bridge. aOperation gets the bridge.
template<typename Operation>
KyCode OnBridge(const char* aFunction, KyBridgeHandle aBridge, const Operation& aOperation)
{
    return RunOn(aFunction, Bridges(), aBridge,
                 [&](Bridge& aObject)
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     return aOperation(aObject.mBridge);
                 });
}

// Changes what the next start of a bridge takes. aChange gets the bridge with its options.
template<typename Change>
KyCode PrepareBridge(const char* aFunction, KyBridgeHandle aBridge, const Change& aChange)
{
    return RunOn(aFunction, Bridges(), aBridge,
                 [&](Bridge& aObject) -> KyResult
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     // The threads of a running bridge use its observer and its options.
                     if (aObject.mDevice.Get() != nullptr)
                     {
                         return Fail(KY_WRONG_STATE, aFunction, "Bridge already started.");
                     }
                     return aChange(aObject);
                 });
}

// Stops a bridge. aStop gets the bridge.
template<typename Stop>
KyCode StopBridge(const char* aFunction, KyBridgeHandle aBridge, const Stop& aStop)
{
    return RunOn(aFunction, Bridges(), aBridge,
                 [&](Bridge& aObject)
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     KyResult lResult = aStop(aObject.mBridge);
                     aObject.mDevice.Reset(); // a bridge that does not run has no device
                     return lResult;
                 });
}

// Applications that were built before mAway have a shorter one.
bool HasSize(const KyBridgeFlow* aFlow)
{
    return aFlow != nullptr &&
           (aFlow->mSize == sizeof(KyBridgeFlow) || aFlow->mSize == offsetof(KyBridgeFlow, mAway));
}

KyCode NoFlows(const char* aFunction)
{
    return Run(
        [&]
        { return Fail(KY_BAD_PARAMETER, aFunction, "No flows: a null pointer, or the size is not set."); });
}

void FillIn(const KySerialBridgeFlow& aFlow, KyBridgeFlow& aResult)
{
    aResult.mTaken = aFlow.mTaken;
    aResult.mDelivered = aFlow.mDelivered;
    aResult.mOverrun = aFlow.mOverrun;
    aResult.mCleared = aFlow.mCleared;
    aResult.mRefused = aFlow.mRefused;
    aResult.mCutOff = aFlow.mCutOff;
    if (aResult.mSize == sizeof(KyBridgeFlow))
    {
        aResult.mAway = aFlow.mAway;
    }
}

// A question to a bridge. aQuestion gets the bridge and gives the answer.
template<typename Value, typename Question>
KyCode AskBridge(const char* aFunction, KyBridgeHandle aBridge, Value* aValue, Value aInitial,
                 const Question& aQuestion)
{
    return RunOn(aFunction, Bridges(), aBridge, aValue, aInitial,
                 [&](Bridge& aObject, Value& aAnswer)
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     aAnswer = aQuestion(aObject.mBridge);
                     return KyResult();
                 });
}

} // namespace

KyCode KyBridgeCreate(KyBridgeHandle* aBridge)
{
    return Create("KyBridgeCreate", Bridges(), aBridge);
}

KyCode KyBridgeDestroy(KyBridgeHandle aBridge)
{
    return Destroy("KyBridgeDestroy", Bridges(), aBridge);
}

KyCode KyBridgeSetObserver(KyBridgeHandle aBridge, const KyBridgeObserver* aObserver)
{
    static constexpr char cFunction[] = "KyBridgeSetObserver";
    return PrepareBridge(cFunction, aBridge,
                         [&](Bridge& aObject) -> KyResult
                         {
                             if (aObserver != nullptr && aObserver->mSize != sizeof(KyBridgeObserver))
                             {
                                 return Fail(KY_BAD_PARAMETER, cFunction, "The observer's size is not set.");
                             }
                             aObject.mObserver.mFunctions =
                                 aObserver != nullptr ? *aObserver : KyBridgeObserver{};
                             aObject.mOptions.mObserver = aObserver != nullptr ? &aObject.mObserver : nullptr;
                             return KyResult();
                         });
}

KyCode KyBridgeSetReconnect(KyBridgeHandle aBridge, int32_t aReconnect, uint64_t (*aGeneration)(void*),
                            void* aContext)
{
    return PrepareBridge("KyBridgeSetReconnect", aBridge,
                         [&](Bridge& aObject)
                         {
                             aObject.mGeneration.mFunction = aGeneration;
                             aObject.mGeneration.mContext = aContext;
                             aObject.mOptions.mReconnect = aReconnect != 0;
                             aObject.mOptions.mGeneration =
                                 aGeneration != nullptr ? &aObject.mGeneration : nullptr;
                             return KyResult();
                         });
}

KyCode KyBridgeStartHost(KyBridgeHandle aBridge, const char* aHostPort, const KyLineSettings* aSettings,
                         KyDeviceHandle aDevice, int32_t aSerial)
{
    static constexpr char cFunction[] = "KyBridgeStartHost";
    return StartBridge(
        cFunction, aBridge, aDevice,
        [&](KySerialBridge& aProduct, IKyDeviceAdapter* aAdapter, const KySerialBridgeOptions& aOptions)
        {
            KySerialPortConfiguration lConfiguration;
            KyResult lResult =
                aSettings != nullptr ? Convert(cFunction, aSettings, lConfiguration) : KyResult();
            if (!lResult.IsOK())
            {
                return lResult;
            }
            return aProduct.Start(KyString(aHostPort), lConfiguration, aAdapter,
                                  static_cast<KyDeviceSerial>(aSerial), aOptions);
        });
}

KyCode KyBridgeStartClients(KyBridgeHandle aBridge, const char* aName, KyDeviceHandle aDevice,
                            int32_t aSerial)
{
    return StartBridge(
        "KyBridgeStartClients", aBridge, aDevice,
        [&](KySerialBridge& aProduct, IKyDeviceAdapter* aAdapter, const KySerialBridgeOptions& aOptions) {
            return aProduct.Start(KyString(aName), aAdapter, static_cast<KyDeviceSerial>(aSerial), aOptions);
        });
}

KyCode KyBridgeStop(KyBridgeHandle aBridge)
{
    return StopBridge("KyBridgeStop", aBridge, [](KySerialBridge& aProduct) { return aProduct.Stop(); });
}

KyCode KyBridgeStopAndGetFlows(KyBridgeHandle aBridge, KyBridgeFlow* aToDevice, KyBridgeFlow* aFromDevice)
{
    static constexpr char cFunction[] = "KyBridgeStopAndGetFlows";
    // The arguments are checked before the stop: a bridge that has stopped has no account any more.
    if (!HasSize(aToDevice) || !HasSize(aFromDevice))
    {
        return NoFlows(cFunction);
    }
    return StopBridge(cFunction, aBridge,
                      [&](KySerialBridge& aProduct)
                      {
                          KySerialBridgeFlow lToDevice;
                          KySerialBridgeFlow lFromDevice;
                          KyResult lResult = aProduct.Stop(lToDevice, lFromDevice);
                          FillIn(lToDevice, *aToDevice);
                          FillIn(lFromDevice, *aFromDevice);
                          return lResult;
                      });
}

KyCode KyBridgeGetFlows(KyBridgeHandle aBridge, KyBridgeFlow* aToDevice, KyBridgeFlow* aFromDevice)
{
    static constexpr char cFunction[] = "KyBridgeGetFlows";
    if (!HasSize(aToDevice) || !HasSize(aFromDevice))
    {
        return NoFlows(cFunction);
    }
    return OnBridge(cFunction, aBridge,
                    [&](const KySerialBridge& aProduct)
                    {
                        FillIn(aProduct.GetFlowToDevice(), *aToDevice);
                        FillIn(aProduct.GetFlowFromDevice(), *aFromDevice);
                        return KyResult();
                    });
}

KyCode KyBridgeRecover(KyBridgeHandle aBridge)
{
    return OnBridge("KyBridgeRecover", aBridge, [](KySerialBridge& aProduct) { return aProduct.Recover(); });
}

KyCode KyBridgeSetLineSettings(KyBridgeHandle aBridge, const KyLineSettings* aSettings)
{
    static constexpr char cFunction[] = "KyBridgeSetLineSettings";
    return OnBridge(cFunction, aBridge,
                    [&](KySerialBridge& aProduct)
                    {
                        KySerialPortConfiguration lConfiguration;
                        KyResult lResult = Convert(cFunction, aSettings, lConfiguration);
                        if (!lResult.IsOK())
                        {
                            return lResult;
                        }
                        return aProduct.SetSerialPortConfiguration(lConfiguration);
                    });
}

KyCode KyBridgeGetLineSettings(KyBridgeHandle aBridge, KyLineSettings* aSettings)
{
    static constexpr char cFunction[] = "KyBridgeGetLineSettings";
    return OnBridge(cFunction, aBridge,
                    [&](KySerialBridge& aProduct)
                    { return Convert(cFunction, aProduct.GetSerialPortConfiguration(), aSettings); });
}

KyCode KyBridgeSetHardCodedBaudRate(KyBridgeHandle aBridge, uint32_t aBaudRate)
{
    return OnBridge("KyBridgeSetHardCodedBaudRate", aBridge,
                    [&](KySerialBridge& aProduct) { return aProduct.SetHardCodedBaudRate(aBaudRate); });
}

KyCode KyBridgeGetHardCodedBaudRate(KyBridgeHandle aBridge, uint32_t* aBaudRate)
{
    return AskBridge("KyBridgeGetHardCodedBaudRate", aBridge, aBaudRate, 0U,
                     [](const KySerialBridge& aProduct) { return aProduct.GetHardCodedBaudRate(); });
}

KyCode KyBridgeGetSupportedBaudRateCount(KyBridgeHandle aBridge, uint32_t* aCount)
{
    return AskBridge("KyBridgeGetSupportedBaudRateCount", aBridge, aCount, 0U,
                     [](const KySerialBridge& aProduct) { return aProduct.GetSupportedBaudRateCount(); });
}

KyCode KyBridgeGetSupportedBaudRate(KyBridgeHandle aBridge, uint32_t aIndex, uint32_t* aBaudRate)
{
    static constexpr char cFunction[] = "KyBridgeGetSupportedBaudRate";
    return RunOn(cFunction, Bridges(), aBridge, aBaudRate, 0U,
                 [&](Bridge& aObject, uint32_t& aRate)
                 {
                     const JxUtilsLib::LockScope lScope(aObject.mTurn);
                     // The library has an assertion about an index past the end, and a caller
                     // must not break that.
                     if (aIndex >= aObject.mBridge.GetSupportedBaudRateCount())
                     {
                         return Fail(KY_BAD_PARAMETER, cFunction, "The index is past the end.");
                     }
                     aRate = aObject.mBridge.GetSupportedBaudRate(aIndex);
                     return KyResult();
                 });
}

KyCode KyBridgeGetBaudRate(KyBridgeHandle aBridge, uint32_t* aBaudRate)
{
    return AskBridge("KyBridgeGetBaudRate", aBridge, aBaudRate, 0U,
                     [](const KySerialBridge& aProduct) { return aProduct.GetBaudRate(); });
}

KyCode KyBridgeGetName(KyBridgeHandle aBridge, char* aBuffer, uint32_t* aSize)
{
    static constexpr char cFunction[] = "KyBridgeGetName";
    return OnBridge(cFunction, aBridge,
                    [&](const KySerialBridge& aProduct)
                    { return CopyText(cFunction, aProduct.GetName(), aBuffer, aSize); });
}

KyCode KyBridgeGetHostPort(KyBridgeHandle aBridge, char* aBuffer, uint32_t* aSize)
{
    static constexpr char cFunction[] = "KyBridgeGetHostPort";
    return OnBridge(cFunction, aBridge,
                    [&](const KySerialBridge& aProduct)
                    { return CopyText(cFunction, aProduct.GetSerialPort(), aBuffer, aSize); });
}

KyCode KyBridgeGetDevicePort(KyBridgeHandle aBridge, int32_t* aSerial)
{
    return AskBridge("KyBridgeGetDevicePort", aBridge, aSerial, static_cast<int32_t>(KY_INVALID_PORT),
                     [](const KySerialBridge& aProduct)
                     { return static_cast<int32_t>(aProduct.GetDevicePort()); });
}

KyCode KyBridgeGetStatistics(KyBridgeHandle aBridge, uint64_t* aToDevice, uint64_t* aFromDevice)
{
    uint64_t lNowhere[2] = {};
    uint64_t& lToDevice = aToDevice != nullptr ? *aToDevice : lNowhere[0];
    uint64_t& lFromDevice = aFromDevice != nullptr ? *aFromDevice : lNowhere[1];
    lToDevice = 0;
    lFromDevice = 0;
    return OnBridge("KyBridgeGetStatistics", aBridge,
                    [&](const KySerialBridge& aProduct)
                    {
                        lToDevice = aProduct.GetBytesSentToDevice();
                        lFromDevice = aProduct.GetBytesReceivedFromDevice();
                        return KyResult();
                    });
}

KyCode KyBridgeResetStatistics(KyBridgeHandle aBridge)
{
    return OnBridge("KyBridgeResetStatistics", aBridge,
                    [](KySerialBridge& aProduct)
                    {
                        aProduct.ResetStatistics();
                        return KyResult();
                    });
}
