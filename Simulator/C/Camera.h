#pragma once

#include "HandleTable.h"
#include "KySimulatorC/kysimulator.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include <map>
#include <memory>

namespace KySimulatorCLib
{

/// Passes the camera's events on to one device of the C interface.
class EventForwarder final : public IKyDeviceEventSink
{
public:
    explicit EventForwarder(KyDeviceHandle aDevice) : mDevice(aDevice) {}

    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;
    void NotifyFeatureInvalidated(const KyString* aName) override;

private:
    const KyDeviceHandle mDevice;
};

/// A camera with its adapter. Stop() ends it on the caller's thread: the destructor may run on the adapter's own
/// thread, which could not wait for itself.
class Camera
{
public:
    explicit Camera(const KySimulator::CameraConfiguration& aConfiguration);
    ~Camera() = default;
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    KySimulator::CameraModel& Model() { return *mModel; }
    /// Only between Enter() and Leave().
    KySimulator::SimulatedDeviceAdapter& Adapter() { return *mAdapter; }

    /// Reports events to a device too, from now on.
    KyResult ReportTo(KyDeviceHandle aDevice);

    /// Begins a call. \return False: the camera has ended.
    bool Enter();
    void Leave();
    /// Waits for all calls and ends the adapter.
    void Stop();

private:
    const std::shared_ptr<KySimulator::CameraModel> mModel;
    KySimulator::Lock mLock;
    KySimulator::Condition mLeft;
    uint32_t mCalls JX_GUARDED_BY(mLock) = 0;
    bool mStopped JX_GUARDED_BY(mLock) = false;
    std::map<KyDeviceHandle, EventForwarder> mForwarders JX_GUARDED_BY(mLock); // outlive the adapter
    std::unique_ptr<KySimulator::SimulatedDeviceAdapter> mAdapter;
};

/// Every camera of the process; never destroyed.
KySerialCLib::HandleTable<Camera>& Cameras();

/// A camera for the time of one call.
class CameraCall
{
public:
    explicit CameraCall(KySimCameraHandle aCamera);
    ~CameraCall();
    CameraCall(const CameraCall&) = delete;
    CameraCall& operator=(const CameraCall&) = delete;

    /// Null: no such camera.
    Camera* Get() const { return mCamera.get(); }
    /// Whether the calling thread is inside a call of this kind, or reports an event.
    static bool IsRunning();

private:
    std::shared_ptr<Camera> mCamera;
};

/// The table of functions of every camera; the context is the handle.
KyAdapter AdapterTable(KySimCameraHandle aCamera);

/// Sets the thread's text to a result's. \return Its code.
KyCode Finish(const KyResult& aResult);

} // namespace KySimulatorCLib
