#pragma once

#include "KySimulatorC/kysimulator.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Table/AdapterObject.h"

#include <memory>

namespace KySimulatorCLib
{

/// A simulated camera with its adapter.
class Camera final : public KySerialCLib::AdapterObject
{
public:
    explicit Camera(std::shared_ptr<KySimulator::CameraModel> aModel)
        : AdapterObject(std::make_shared<KySimulator::SimulatedDeviceAdapter>(aModel))
        , mModel(std::move(aModel))
    {
    }

    KySimulator::CameraModel& Model() { return *mModel; }
    /// As AdapterObject::Adapter().
    KySimulator::SimulatedDeviceAdapter& SimulatedAdapter()
    {
        return static_cast<KySimulator::SimulatedDeviceAdapter&>(Adapter());
    }

private:
    const std::shared_ptr<KySimulator::CameraModel> mModel;
};

} // namespace KySimulatorCLib
