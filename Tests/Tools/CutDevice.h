#pragma once

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "kyserial/Device/Device.h"

#include <atomic>
#include <memory>

namespace KyTest
{

/// A camera whose connection a test cuts and brings back.
class CutDevice final : public KySerialTool::Device
{
public:
    explicit CutDevice(const KySimulator::CameraConfiguration& aConfiguration = {})
        : mCamera(std::make_shared<KySimulator::CameraModel>(aConfiguration)), mAdapter(mCamera)
    {
    }

    IKyDeviceAdapter& GetAdapter() override { return mAdapter; }
    uint64_t GetGeneration() override { return mGeneration; }
    std::vector<KySerialTool::FeatureFinding> ReadFeatures() override { return {}; }

    KySimulator::CameraModel& GetCamera() { return *mCamera; }
    void Cut() { mAdapter.GetFaults().Disconnect(); }
    void ComeBack()
    {
        ++mGeneration;
        mAdapter.GetFaults().Reconnect();
    }

private:
    const std::shared_ptr<KySimulator::CameraModel> mCamera;
    KySimulator::SimulatedDeviceAdapter mAdapter;
    std::atomic<uint64_t> mGeneration{1};
};

} // namespace KyTest
