#pragma once

#include "Simulator/Camera/AdapterSlot.h"
#include "Simulator/Network/NetworkCamera.h"

#include <JxUtilsLib/Thread.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>

namespace KyTest
{

/// An application's way to a simulated camera: GigE Vision over the loop-back network, both ends in this
/// process.
class CameraLink : private KySimulator::CameraListener
{
public:
    explicit CameraLink(std::shared_ptr<KySimulator::CameraModel> aModel,
                        const KyGigE::ConnectionOptions& aOptions = Patient(),
                        const KySimulator::NetworkForms& aForms = {})
        : mModel(std::move(aModel)), mCamera(mModel, {{0x7F000001, 0}, false}, aForms)
    {
        mModel->AddListener(this);
        EXPECT_TRUE(mCamera.Start()) << mCamera.GetError();
        const KyResult lResult = KyGigE::GigEDeviceAdapter::Connect(
            {"127.0.0.1", mCamera.GetEndpoint().mPort, ""}, aOptions, mAdapter);
        EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
        if (!lResult.IsOK())
        {
            std::abort(); // nothing of a test makes sense then
        }
    }
    ~CameraLink()
    {
        mAdapter.reset();
        mCamera.Stop();
        mModel->RemoveListener(this);
    }
    CameraLink(const CameraLink&) = delete;
    CameraLink& operator=(const CameraLink&) = delete;

    /// For a busy machine: a process that waits for a processor for a while keeps its connection.
    static KyGigE::ConnectionOptions Patient()
    {
        KyGigE::ConnectionOptions lOptions;
        lOptions.mControl.mAttempts = 50;
        lOptions.mEventRetries = 50;
        lOptions.mHeartbeatTimeout = 60000;
        lOptions.mReconnect = false;
        return lOptions;
    }

    KyGigE::GigEDeviceAdapter& GetAdapter() { return *mAdapter; }
    KySimulator::NetworkCamera& GetCamera() { return mCamera; }

    /// Waits until everything that the camera has raised has been delivered.
    void WaitForEvents()
    {
        mModel->WaitForListeners();
        for (;;)
        {
            const auto lFigures = mCamera.GetStatistics().mMessages;
            if (lFigures.mSent + lFigures.mDropped >= mRaised &&
                lFigures.mAcknowledged + lFigures.mLost >= lFigures.mSent)
            {
                break;
            }
            JxUtilsLib::Thread::Sleep(1);
        }
        mAdapter->WaitForEvents();
    }

    /// Cuts the connection; when it returns, the adapter knows.
    void Cut()
    {
        mCamera.Unplug();
        uint32_t lValue = 0;
        EXPECT_FALSE(mAdapter->ReadRegister(0, lValue).IsOK());
        EXPECT_FALSE(mAdapter->IsConnected());
    }
    void Mend()
    {
        EXPECT_TRUE(mCamera.Plug()) << mCamera.GetError();
        const KyResult lResult = mAdapter->Reconnect();
        EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
    }
    static std::optional<uint64_t> CallsOf(KySimulator::AdapterSlot /*aSlot*/) { return {}; }

private:
    void OnDeviceEvent(const KySimulator::DeviceEvent& /*aEvent*/) override { ++mRaised; }
    void OnFeatureChanged(const std::string& /*aName*/) override {}

    std::atomic<uint64_t> mRaised = 0;
    const std::shared_ptr<KySimulator::CameraModel> mModel;
    KySimulator::NetworkCamera mCamera;
    std::unique_ptr<KyGigE::GigEDeviceAdapter> mAdapter;
};

} // namespace KyTest
