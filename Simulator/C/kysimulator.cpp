#include "KySimulatorC/kysimulator.h"

#include "Camera.h"
#include "Simulator/Camera/FeatureTable.h"
#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/LensController.h"
#include "Simulator/Peers/LoopbackPeer.h"
#include "Simulator/Peers/SpiFlash.h"
#include "Simulator/Peers/TemperatureSensor.h"
#include "Table/AdapterTable.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <system_error>

using KySerialCLib::AdapterObjectCall;
using KySerialCLib::FinishCall;
using KySimulator::Port;
using KySimulator::Protocol;
using KySimulatorCLib::Camera;

namespace
{

// Runs a function's body.
template<typename Body>
KyCode Run(const Body& aBody) noexcept
{
    try
    {
        return FinishCall(aBody());
    }
    // An exception must not reach a caller in C.
    catch (const std::bad_alloc&)
    {
        return FinishCall(KyResult(KY_FAILURE, "Out of memory."));
    }
    // A camera has a thread of its own for the time that its lines take.
    catch (const std::system_error&)
    {
        return FinishCall(KyResult(KY_FAILURE, "The system has no thread for the camera."));
    }
}

// Runs the body of a function that works on a camera.
template<typename Body>
KyCode RunOn(KySimCameraHandle aCamera, const Body& aBody) noexcept
{
    return Run(
        [&]() -> KyResult
        {
            // It holds the camera for the time of the call: another thread may destroy the handle meanwhile.
            const AdapterObjectCall lCall(aCamera);
            return lCall.Get() != nullptr ? aBody(static_cast<Camera&>(*lCall.Get()))
                                          : KyResult(KY_INVALID_HANDLE, "No such camera.");
        });
}

KyResult BadParameter(const char* aText)
{
    return KyResult(KY_BAD_PARAMETER, aText);
}

bool IsPort(int32_t aSerial)
{
    return KySimulator::IsPort(static_cast<Port>(aSerial));
}

// An I2C bus with its two devices.
std::shared_ptr<KySimulator::I2CBusPeer> MakeI2CBus()
{
    auto lBus = std::make_shared<KySimulator::I2CBusPeer>();
    lBus->SetDevice(KySimulator::Eeprom24C02::cAddress, std::make_shared<KySimulator::Eeprom24C02>());
    lBus->SetDevice(KySimulator::TemperatureSensor::cAddress,
                    std::make_shared<KySimulator::TemperatureSensor>());
    return lBus;
}

// Sets a bulk port's protocol, and the selector back to what it was.
KyResult SetProtocol(KySimulator::CameraModel& aCamera, int32_t aSerial, Protocol aProtocol)
{
    const std::string lName = "Bulk" + std::to_string(aSerial - KY_BULK0);
    std::string lSelected;
    KySimulator::Outcome lOutcome = aCamera.GetText(KyDeviceProtocol::cBulkSelectorFeature, lSelected);
    lOutcome = lOutcome.IsOk() ? aCamera.SetText(KyDeviceProtocol::cBulkSelectorFeature, lName) : lOutcome;
    lOutcome = lOutcome.IsOk()
                   ? aCamera.SetText(KyDeviceProtocol::cBulkModeFeature, KySimulator::NameOf(aProtocol))
                   : lOutcome;
    const KySimulator::Outcome lBack = aCamera.SetText(KyDeviceProtocol::cBulkSelectorFeature, lSelected);
    // The first failure is the one to report; the selector has gone back all the same.
    lOutcome = lOutcome.IsOk() ? lBack : lOutcome;
    return KyResult(static_cast<KyCode>(lOutcome.mStatus), lOutcome.mText.c_str());
}

// A new peer for a UART line; null when nothing is to be plugged in, or it is no such peer.
std::shared_ptr<KySimulator::SerialPeer> MakePeer(int32_t aWhat)
{
    if (aWhat == KY_SIM_LOOPBACK)
    {
        return std::make_shared<KySimulator::LoopbackPeer>();
    }
    return aWhat == KY_SIM_LENS ? std::make_shared<KySimulator::LensController>() : nullptr;
}

KyResult Plug(KySimulator::CameraModel& aCamera, int32_t aSerial, int32_t aWhat)
{
    const auto lPort = static_cast<Port>(aSerial);
    const bool lIsBus = aWhat == KY_SIM_I2C || aWhat == KY_SIM_FLASH;
    aCamera.Plug(lPort, MakePeer(aWhat));
    // UARTs have a line and nothing else. Only bulk ports run buses.
    if (aSerial < KY_BULK0)
    {
        return KyResult();
    }
    aCamera.PlugI2C(lPort, aWhat == KY_SIM_I2C ? MakeI2CBus() : nullptr);
    aCamera.PlugSpi(lPort, aWhat == KY_SIM_FLASH ? std::make_shared<KySimulator::SpiBusPeer>(
                                                       std::make_shared<KySimulator::SpiFlash>())
                                                 : nullptr);
    // A port speaks the protocol of what is plugged in, so that a test can open the bus at once.
    const Protocol lBus = aWhat == KY_SIM_I2C ? Protocol::I2C : Protocol::Spi;
    return SetProtocol(aCamera, aSerial, lIsBus ? lBus : Protocol::Uart);
}

} // namespace

KySerialCLib::HandleTable<KySerialCLib::AdapterObject>& KySerialCLib::AdapterObjects()
{
    return GetTable<HandleKind::SimulatedCamera, AdapterObject>();
}

KyCode KySimOptionsInit(KySimOptions* aOptions)
{
    return Run(
        [&]() -> KyResult
        {
            if (aOptions == nullptr)
            {
                return BadParameter("A null pointer for the options.");
            }
            // The size marks the options as initialised; KySimCameraCreate() refuses others.
            *aOptions = {sizeof(KySimOptions), KY_SIM_GIGE_VISION, KySimulator::cUartCount, 0};
            return KyResult();
        });
}

KyCode KySimCameraCreate(const KySimOptions* aOptions, KySimCameraHandle* aCamera)
{
    return Run(
        [&]() -> KyResult
        {
            if (aCamera == nullptr)
            {
                return BadParameter("The handle has nowhere to go: a null pointer.");
            }
            // Handle 0 is no camera. A caller that overlooks the failure below gets a refusal from each
            // further call.
            *aCamera = 0;
            KySimOptions lOptions = {};
            KySimOptionsInit(&lOptions);
            if (aOptions != nullptr)
            {
                // Looked at first: a smaller one has nothing after its size that could be copied.
                if (aOptions->mSize != sizeof(KySimOptions))
                {
                    return BadParameter("No options: the size is not set.");
                }
                lOptions = *aOptions;
            }
            // C callers can put any number there, and the cast below makes an enumeration of it.
            if (lOptions.mTransport < KY_SIM_GIGE_VISION || lOptions.mTransport > KY_SIM_NEITHER)
            {
                return BadParameter("No such transport.");
            }
            KySimulator::CameraConfiguration lConfiguration;
            lConfiguration.mTransport = static_cast<KySimulator::Transport>(lOptions.mTransport);
            lConfiguration.mUartCount = lOptions.mUartCount;
            lConfiguration.mUnlimitedLineRate = lOptions.mUnlimitedLineRate != 0;
            *aCamera = KySerialCLib::AdapterObjects().Add(
                std::make_shared<Camera>(std::make_shared<KySimulator::CameraModel>(lConfiguration)));
            return *aCamera != 0 ? KyResult() : KyResult(KY_FAILURE, "Too many cameras.");
        });
}

KyCode KySimCameraDestroy(KySimCameraHandle aCamera)
{
    return Run(
        [&]() -> KyResult
        {
            // Stop() waits for the event thread. From inside one of its calls it would wait for itself.
            if (AdapterObjectCall::IsRunning())
            {
                return KyResult(KY_WRONG_STATE, "From inside a call of a simulated camera.");
            }
            const auto lCamera = KySerialCLib::AdapterObjects().Remove(aCamera);
            if (lCamera == nullptr)
            {
                return KyResult(KY_INVALID_HANDLE, "No such camera.");
            }
            lCamera->Stop();
            return KyResult();
        });
}

KyCode KySimCameraGetAdapter(KySimCameraHandle aCamera, KyAdapter* aAdapter)
{
    return RunOn(aCamera,
                 [&](Camera&) -> KyResult
                 {
                     const uint32_t lSize =
                         aAdapter != nullptr ? KySerialCLib::WholeTable(aAdapter->mSize) : 0;
                     if (lSize == 0)
                     {
                         return BadParameter("No adapter: a null pointer, or the size is not set.");
                     }
                     KyAdapter lTable = KySerialCLib::AdapterTable(aCamera);
                     // A caller that was compiled with an older table gets the part of it that it knows.
                     lTable.mSize = lSize;
                     std::memcpy(aAdapter, &lTable, lSize);
                     return KyResult();
                 });
}

KyCode KySimCameraPlug(KySimCameraHandle aCamera, int32_t aSerial, int32_t aWhat)
{
    return RunOn(aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     const bool lIsBus = aWhat == KY_SIM_I2C || aWhat == KY_SIM_FLASH;
                     if (!IsPort(aSerial) || aWhat < KY_SIM_NOTHING || aWhat > KY_SIM_FLASH ||
                         (lIsBus && aSerial < KY_BULK0))
                     {
                         return BadParameter("No such port, or not on that port.");
                     }
                     return Plug(aObject.Model(), aSerial, aWhat);
                 });
}

KyCode KySimCameraInject(KySimCameraHandle aCamera, int32_t aSerial, const uint8_t* aBytes, uint32_t aSize)
{
    return RunOn(aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (!IsPort(aSerial) || (aBytes == nullptr && aSize > 0))
                     {
                         return BadParameter("No such port, or a null pointer for the bytes.");
                     }
                     aObject.Model().InjectBytes(static_cast<Port>(aSerial), aBytes, aSize);
                     return KyResult();
                 });
}

KyCode KySimCameraTakeWire(KySimCameraHandle aCamera, int32_t aSerial, uint8_t* aBytes, uint32_t aSize,
                           uint32_t* aCount)
{
    return RunOn(aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aCount != nullptr)
                     {
                         *aCount = 0;
                     }
                     if (!IsPort(aSerial) || aCount == nullptr || (aBytes == nullptr && aSize > 0))
                     {
                         return BadParameter("No such port, or a null pointer.");
                     }
                     const auto lWire = aObject.Model().GetWire(static_cast<Port>(aSerial));
                     aObject.Model().ClearWire(static_cast<Port>(aSerial));
                     // What does not fit is dropped: the caller says how much of the wire it looks at.
                     *aCount = static_cast<uint32_t>(std::min<size_t>(lWire.size(), aSize));
                     std::copy_n(lWire.begin(), *aCount, aBytes);
                     return KyResult();
                 });
}

KyCode KySimCameraSetConnected(KySimCameraHandle aCamera, int32_t aConnected)
{
    return RunOn(aCamera,
                 [&](Camera& aObject)
                 {
                     KySimulator::Faults& lFaults = aObject.SimulatedAdapter().GetFaults();
                     aConnected != 0 ? lFaults.Reconnect() : lFaults.Disconnect();
                     return KyResult();
                 });
}

KyCode KySimCameraWaitForEvents(KySimCameraHandle aCamera)
{
    // The event that this call would wait for is the one that it runs in.
    if (AdapterObjectCall::IsRunning())
    {
        return FinishCall(KyResult(KY_WRONG_STATE, "From inside a call of a simulated camera."));
    }
    return RunOn(aCamera,
                 [](Camera& aObject)
                 {
                     aObject.SimulatedAdapter().WaitForEvents();
                     return KyResult();
                 });
}
