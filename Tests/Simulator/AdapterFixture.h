#pragma once

#include "Simulator/CameraFixture.h"
#include "Simulator/RecordingSink.h"

#include <Simulator/Camera/SimulatedDeviceAdapter.h>

#include <memory>

/// A camera with lines that take no time, and an adapter before it.
class AdapterFixture : public CameraFixture
{
protected:
    void MakeAdapter()
    {
        mConfiguration.mUnlimitedLineRate = true;
        Make();
        mAdapter = std::make_unique<KySimulator::SimulatedDeviceAdapter>(mCamera);
    }

    ~AdapterFixture() override
    {
        if (mAdapter != nullptr)
        {
            static_cast<void>(mAdapter->UnregisterEventSink(&mSink)); // most tests have registered it
            mAdapter.reset();
        }
    }

    static uint32_t Code(KySimulator::Status aStatus) { return static_cast<uint32_t>(aStatus); }

    void Inject(KySimulator::Port aPort, const Bytes& aBytes)
    {
        mCamera->InjectBytes(aPort, aBytes.data(), aBytes.size());
    }

    RecordingSink mSink;
    std::unique_ptr<KySimulator::SimulatedDeviceAdapter> mAdapter;
};
