#pragma once

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/Faults.h"

#include <KySerial/IKyDeviceAdapter.h>

#include <memory>
#include <optional>

namespace KySimulator
{

class AdapterEvents;

/// One application's connection to a simulated camera, in the same process.
///
/// Several adapters may use one camera: each gets every event, and they share the camera's selectors.
///
/// Events come on a thread of the adapter's own, one call at a time, in the camera's order, each exactly
/// once, without any lock held. An upstream data event calls NotifyEvent() (identifier 0x9100 + n), then
/// NotifyFeatureInvalidated() for "EventBulk%iUpstreamDataBuffer" and "EventBulk%iUpstreamDataLength" where
/// somebody has registered interest. While these run, the event thread reads the two features as the event
/// has them and those of other ports as empty; other threads read the last event of each port.
///
/// Tests may derive from it to take over single operations.
///
/// Results: the camera's refusals have the numbers of Status; a cut connection gives KyResult::NO_CONNECTION.
class SimulatedDeviceAdapter : public IKyDeviceAdapter
{
public:
    /// Starts the event thread. \param aCamera  Not null; kept alive.
    explicit SimulatedDeviceAdapter(std::shared_ptr<CameraModel> aCamera);
    /// Ends the event thread; not from inside a sink.
    virtual ~SimulatedDeviceAdapter();
    SimulatedDeviceAdapter(const SimulatedDeviceAdapter&) = delete;
    SimulatedDeviceAdapter& operator=(const SimulatedDeviceAdapter&) = delete;

    CameraModel& GetCamera() const;
    Faults& GetFaults() const;

    /// Waits until every event that the camera has raised so far has been delivered. With a delayed event it
    /// waits for the camera's clock. Not from inside a sink.
    void WaitForEvents();

    void Reserved0() override;
    bool IsIntegerFeatureAvailable(const KyString& aName) override;
    bool IsFeatureAvailable(const KyString& aName) override;
    void Reserved3() override;
    bool IsRegisterFeatureAvailable(const KyString& aName) override;
    bool IsFeatureReadable(const KyString& aName) override;
    bool IsFeatureWritable(const KyString& aName) override;
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override;
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override;
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override;
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override;
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override;
    void Reserved12() override;
    void Reserved13() override;
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override;
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override;
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult RegisterFeatureInterest(const KyString& aName) override;
    KyResult UnregisterFeatureInterest(const KyString& aName) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;
    void Reserved23() override;
    KyResult PostWrite(uint32_t aMilliseconds) override;
    bool IsConnected() override;
    bool IsKorvoVideoInterface() override;
    bool IsGigEVision() override;
    bool IsAlternateTransport() override;
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override;
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override;

private:
    template<typename Text>
    std::optional<KyResult> Enter(AdapterSlot aSlot, const Text& aArguments);

    const std::shared_ptr<CameraModel> mCamera;
    const std::unique_ptr<Faults> mFaults;
    const std::shared_ptr<AdapterEvents> mEvents;
};

} // namespace KySimulator
