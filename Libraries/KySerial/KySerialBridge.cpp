#include "KySerial/KySerialBridge.h"

#include "BridgeCLDLL.h"
#include "BridgeCOM.h"
#include "BridgeHost.h"
#include "LogResult.h"
#include "OutOfMemory.h"

#include <memory>
#include <utility>

using KySerialLib::BridgeCLDLL;
using KySerialLib::BridgeCOM;
using KySerialLib::BridgeHost;
using KySerialLib::CatchOutOfMemory;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/KySerialBridge";
constexpr char cStart[] = "KySerialBridge::Start";

#define KY_BRIDGE_FAILURE(aCode, aFunction, aMessage) Fail(aCode, __LINE__, aFunction, aMessage)

KyResult Fail(KyResult::Code aCode, int aLine, const char* aFunction, const char* aMessage)
{
    const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
    return KySerialLib::ToKyResult(lLogger.LogResult(aCode, cSourceFile, aLine, aFunction, "%s", aMessage));
}

KyResult NotStarted(int aLine, const char* aFunction)
{
    return Fail(KyResult::NO_CONNECTION, aLine, aFunction, "Bridge not started.");
}

// What both kinds of start check of the device.
KyResult CheckDevice(IKyDeviceAdapter* aDevice, bool aIsPort)
{
    // The first check that fails decides, and callers know the results by this order.
    if (aDevice == nullptr)
    {
        return KY_BRIDGE_FAILURE(KyResult::BAD_PARAMETER, cStart, "aDevice pointer cannot be NULL.");
    }
    if (!aDevice->IsConnected())
    {
        return KY_BRIDGE_FAILURE(KyResult::NO_CONNECTION, cStart, "Device is not connected.");
    }
    if (!aIsPort)
    {
        return KY_BRIDGE_FAILURE(KyResult::BAD_PARAMETER, cStart, "Invalid device port requested.");
    }
    return KyResult(KyResult::OK);
}

// What both kinds of start do once the device has been checked. aOpen opens the host side. A bridge that
// cannot start ends here.
template<typename Flavour, typename Open>
KyResult Run(IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort, const KySerialBridgeOptions& aOptions,
             KySerialLib::Bridge*& aRunning, const Open& aOpen)
{
    return CatchOutOfMemory(
        [&]
        {
            auto lBridge = std::make_unique<Flavour>();
            lBridge->SetOptions(aOptions);
            // The device port comes first: the host side takes settings and rates from it.
            KyResult lStep = lBridge->OpenDevicePort(aDevice, aDevicePort);
            lStep = lStep.IsOK() ? aOpen(*lBridge) : lStep;
            lStep = lStep.IsOK() ? lBridge->Start() : lStep;
            aRunning = lStep.IsOK() ? lBridge.release() : nullptr;
            return lStep;
        });
}

} // namespace

KySerialBridge::KySerialBridge() : mThis(nullptr) {}

KySerialBridge::~KySerialBridge()
{
    const std::unique_ptr<KySerialLib::Bridge> lBridge(std::exchange(mThis, nullptr)); // ends here
}

// The configuration by value, in both: the exported names say so.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
KyResult KySerialBridge::Start(const KyString& aSerialPort, KySerialPortConfiguration aConfiguration,
                               IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort)
{
    return Start(aSerialPort, aConfiguration, aDevice, aDevicePort, KySerialBridgeOptions());
}

KyResult KySerialBridge::Start(const KyString& aSerialPort, KySerialPortConfiguration aConfiguration,
                               IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                               const KySerialBridgeOptions& aOptions)
{
    if (mThis != nullptr)
    {
        return KY_BRIDGE_FAILURE(KyResult::WRONG_STATE, cStart, "Bridge already started.");
    }
    const bool lIsPort = aDevicePort >= KyDeviceSerialUart0 && aDevicePort <= KyDeviceSerialBulk7;
    KyResult lResult = CheckDevice(aDevice, lIsPort);
    return lResult.IsOK()
               ? Run<BridgeCOM>(aDevice, aDevicePort, aOptions, mThis,
                                [&](BridgeCOM& aBridge)
                                { return aBridge.OpenCOMPort(aSerialPort.GetAscii(), aConfiguration); })
               : lResult;
}

KyResult KySerialBridge::Start(const KyString& aName, IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort)
{
    return Start(aName, aDevice, aDevicePort, KySerialBridgeOptions());
}

KyResult KySerialBridge::Start(const KyString& aName, IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                               const KySerialBridgeOptions& aOptions)
{
    if (mThis != nullptr)
    {
        return KY_BRIDGE_FAILURE(KyResult::WRONG_STATE, cStart, "Bridge already started.");
    }
    if (aName.GetLength() == 0)
    {
        return KY_BRIDGE_FAILURE(KyResult::BAD_PARAMETER, cStart, "Bridge name cannot have zero-length.");
    }
    // Here the bridge refuses the invalid port, with another code than the other start does. Callers distinguish
    // the two starts by that code.
    const bool lIsPort = aDevicePort >= KyDeviceSerialInvalid && aDevicePort <= KyDeviceSerialBulk7;
    KyResult lResult = CheckDevice(aDevice, lIsPort);
    return lResult.IsOK() ? Run<BridgeCLDLL>(aDevice, aDevicePort, aOptions, mThis,
                                             [&](BridgeCLDLL& aBridge)
                                             { return aBridge.OpenSharedMem(aName.GetAscii()); })
                          : lResult;
}

KyResult KySerialBridge::Start(IKySerialBridgeHost& aHost, const KySerialBridgeRequest& aRequest,
                               IKyDeviceAdapter* aDevice, KyDeviceSerial aDevicePort,
                               const KySerialBridgeOptions& aOptions)
{
    if (mThis != nullptr)
    {
        return KY_BRIDGE_FAILURE(KyResult::WRONG_STATE, cStart, "Bridge already started.");
    }
    const bool lIsPort = aDevicePort >= KyDeviceSerialUart0 && aDevicePort <= KyDeviceSerialBulk7;
    KyResult lResult = CheckDevice(aDevice, lIsPort);
    return lResult.IsOK()
               ? Run<BridgeHost>(aDevice, aDevicePort, aOptions, mThis,
                                 [&](BridgeHost& aBridge) { return aBridge.UseHost(aHost, aRequest); })
               : lResult;
}

KyResult KySerialBridge::Stop()
{
    if (mThis == nullptr)
    {
        return NotStarted(__LINE__, "KySerialBridge::Stop");
    }
    const std::unique_ptr<KySerialLib::Bridge> lBridge(std::exchange(mThis, nullptr)); // ends here
    return KyResult(KyResult::OK);
}

KyResult KySerialBridge::Stop(KySerialBridgeFlow& aToDevice, KySerialBridgeFlow& aFromDevice)
{
    aToDevice = KySerialBridgeFlow();
    aFromDevice = KySerialBridgeFlow();
    if (mThis != nullptr)
    {
        mThis->SetFinalFlows(&aToDevice, &aFromDevice);
    }
    return Stop();
}

KyResult KySerialBridge::Recover()
{
    return mThis != nullptr ? CatchOutOfMemory([&] { return mThis->Recover(); })
                            : NotStarted(__LINE__, "KySerialBridge::Recover");
}

KyResult KySerialBridge::SetSerialPortConfiguration(KySerialPortConfiguration aConfiguration)
{
    static constexpr char cFunction[] = "KySerialBridge::SetSerialPortConfiguration";
    auto* const lBridge = dynamic_cast<BridgeCOM*>(mThis);
    if (mThis == nullptr)
    {
        return NotStarted(__LINE__, cFunction);
    }
    if (lBridge == nullptr)
    {
        return KY_BRIDGE_FAILURE(KyResult::WRONG_STATE, cFunction,
                                 "Bridge not started as serial COM port bridge.");
    }
    return CatchOutOfMemory([&] { return lBridge->SetSerialPortConfiguration(aConfiguration); });
}

KyResult KySerialBridge::SetHardCodedBaudRate(uint32_t aBaudRate)
{
    static constexpr char cFunction[] = "KySerialBridge::SetHardCodedBaudRate";
    auto* const lBridge = dynamic_cast<BridgeCLDLL*>(mThis);
    if (mThis == nullptr)
    {
        return NotStarted(__LINE__, cFunction);
    }
    if (lBridge == nullptr)
    {
        return KY_BRIDGE_FAILURE(
            KyResult::WRONG_STATE, cFunction,
            "Cannot set hard coded baud rate if the bridge is not in Camera Link DLL mode.");
    }
    return CatchOutOfMemory([&] { return lBridge->SetHardCodedBaudRate(aBaudRate); });
}

uint32_t KySerialBridge::GetSupportedBaudRateCount() const
{
    return mThis != nullptr ? mThis->GetSupportedBaudRateCount() : 0;
}

uint32_t KySerialBridge::GetSupportedBaudRate(uint32_t aIndex) const
{
    return mThis != nullptr ? mThis->GetSupportedBaudRate(aIndex) : 0;
}

uint32_t KySerialBridge::GetBaudRate() const
{
    return mThis != nullptr ? mThis->GetBaudRate() : 0;
}

uint32_t KySerialBridge::GetHardCodedBaudRate() const
{
    const auto* const lBridge = dynamic_cast<const BridgeCLDLL*>(mThis);
    return lBridge != nullptr ? lBridge->GetHardCodedBaudRate() : 0;
}

KyString KySerialBridge::GetName() const
{
    const auto* const lBridge = dynamic_cast<const BridgeCLDLL*>(mThis);
    return lBridge != nullptr ? lBridge->GetName() : KyString();
}

KyString KySerialBridge::GetSerialPort() const
{
    const auto* const lBridge = dynamic_cast<const BridgeCOM*>(mThis);
    return lBridge != nullptr ? lBridge->GetSerialPort() : KyString();
}

KyDeviceSerial KySerialBridge::GetDevicePort() const
{
    return mThis != nullptr ? mThis->GetDevicePortID() : KyDeviceSerialInvalid;
}

KySerialPortConfiguration KySerialBridge::GetSerialPortConfiguration() const
{
    const auto* const lBridge = dynamic_cast<const BridgeCOM*>(mThis);
    if (lBridge != nullptr)
    {
        return lBridge->GetConfiguration();
    }
    KySerialPortConfiguration lNone;
    lNone.MakeInvalid();
    return lNone;
}

uint64_t KySerialBridge::GetBytesSentToDevice() const
{
    return mThis != nullptr ? mThis->GetBytesSentToDevice() : 0;
}

uint64_t KySerialBridge::GetBytesReceivedFromDevice() const
{
    return mThis != nullptr ? mThis->GetBytesReceivedFromDevice() : 0;
}

KySerialBridgeFlow KySerialBridge::GetFlowToDevice() const
{
    return mThis != nullptr ? mThis->GetFlow(KySerialLib::BridgeWay::ToDevice) : KySerialBridgeFlow();
}

KySerialBridgeFlow KySerialBridge::GetFlowFromDevice() const
{
    return mThis != nullptr ? mThis->GetFlow(KySerialLib::BridgeWay::FromDevice) : KySerialBridgeFlow();
}

void KySerialBridge::ResetStatistics()
{
    if (mThis != nullptr)
    {
        mThis->ResetStatistics();
    }
}
