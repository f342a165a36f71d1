#pragma once

#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include <memory>
#include <optional>

namespace KyTest
{

/// An application's way to a simulated camera: the adapter in the same process.
class CameraLink
{
public:
    explicit CameraLink(std::shared_ptr<KySimulator::CameraModel> aModel) : mAdapter(std::move(aModel)) {}

    KySimulator::SimulatedDeviceAdapter& GetAdapter() { return mAdapter; }
    void WaitForEvents() { mAdapter.WaitForEvents(); }
    /// Cuts the connection; from the next call on the adapter knows.
    void Cut() { mAdapter.GetFaults().Disconnect(); }
    void Mend() { mAdapter.GetFaults().Reconnect(); }
    /// How often an operation was called, where that is counted.
    std::optional<uint64_t> CallsOf(KySimulator::AdapterSlot aSlot)
    {
        return mAdapter.GetFaults().GetCallCount(aSlot);
    }

private:
    KySimulator::SimulatedDeviceAdapter mAdapter;
};

} // namespace KyTest
