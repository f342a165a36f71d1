#pragma once

#include <Simulator/Camera/CameraListener.h>
#include <Simulator/Camera/Lock.h>

#include <string>
#include <utility>
#include <vector>

/// Keeps what a camera raises.
class RecordingListener : public KySimulator::CameraListener
{
public:
    void OnDeviceEvent(const KySimulator::DeviceEvent& aEvent) override
    {
        KySimulator::LockScope lScope(mLock);
        mEvents.push_back(aEvent);
    }

    void OnFeatureChanged(const std::string& aName) override
    {
        KySimulator::LockScope lScope(mLock);
        mChanges.push_back(aName);
    }

    std::vector<KySimulator::DeviceEvent> TakeEvents()
    {
        KySimulator::LockScope lScope(mLock);
        return std::exchange(mEvents, {});
    }

    std::vector<std::string> TakeChanges()
    {
        KySimulator::LockScope lScope(mLock);
        return std::exchange(mChanges, {});
    }

private:
    KySimulator::Lock mLock;
    std::vector<KySimulator::DeviceEvent> mEvents JX_GUARDED_BY(mLock);
    std::vector<std::string> mChanges JX_GUARDED_BY(mLock);
};
