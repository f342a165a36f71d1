#pragma once

#include "KySerial/EngineTest.h"

#include "Bridge.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace KyTest
{

/// A flavour whose threads and rates a test sets.
class ScriptedBridge final : public KySerialLib::Bridge
{
public:
    ~ScriptedBridge() override
    {
        StopThreads();
        Release();
    }

    bool IsBaudRateSupported(uint32_t aBaudRate) const override { return aBaudRate != mUnsupported; }
    KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const override { return mUpRoutine; }
    KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const override { return mDownRoutine; }

    using Bridge::CountDelivery;
    using Bridge::mStatistics;
    using Bridge::mStop;
    using Bridge::mStopEvent;
    using Bridge::mUpThread;
    using Bridge::mWatch;
    using Bridge::mWatchThread;
    using Bridge::ReadFromDevice;
    using Bridge::SetConfiguration;
    using Bridge::WriteToDevice;

    uint32_t mUnsupported = 0;
    KyPlatform::WorkerThread::Routine mUpRoutine = &WaitForStop;
    KyPlatform::WorkerThread::Routine mDownRoutine = &WaitForStop;
    std::atomic<int> mRunning{0};

    static uint32_t WaitForStop(void* aBridge)
    {
        auto* const lThis = static_cast<ScriptedBridge*>(static_cast<KySerialLib::Bridge*>(aBridge));
        ++lThis->mRunning;
        EXPECT_EQ(lThis->mStopEvent.Wait(KyPlatform::cInfinite), KyPlatform::WaitResult::Done);
        EXPECT_TRUE(lThis->mStop);
        --lThis->mRunning;
        return 0;
    }
};

/// Gives a device the features of a port's settings, with values that no bridge writes.
inline void AddSettings(ScriptedAdapter& aDevice, const std::string& aPrefix)
{
    for (const char* lSuffix : {"BaudRate", "Parity", "NumOfStopBits"})
    {
        for (const Slot lSlot : {Slot::IsFeatureAvailable, Slot::IsFeatureReadable, Slot::IsFeatureWritable})
        {
            aDevice.SetAvailable(lSlot, aPrefix + lSuffix, true);
        }
        aDevice.SetText(aPrefix + lSuffix, std::string("Saved") + lSuffix);
    }
    for (const char* lEntry : {"Baud9600", "Custom", "Baud115200"})
    {
        aDevice.SetEntry(aPrefix + "BaudRate", lEntry, true);
    }
}

/// Calls of these functions for each setting of a port in turn, as a bridge makes them.
inline Calls ForSettings(const std::string& aPrefix, const Calls& aFunctions)
{
    Calls lCalls;
    for (const char* lSuffix : {"BaudRate", "Parity", "NumOfStopBits"})
    {
        const std::string lSetting = '(' + aPrefix + lSuffix + ')';
        for (const std::string& lFunction : aFunctions)
        {
            lCalls.push_back(lFunction + lSetting);
        }
    }
    return lCalls;
}
inline const Calls cNoteSetting = {"IsFeatureAvailable", "RegisterFeatureInterest"};
inline const Calls cReadSetting = {"IsFeatureReadable", "GetFeatureAsString"};

/// Gives a device bulk port 1 with its settings, served through features.
inline void AddBulkPort(ScriptedAdapter& aDevice)
{
    AddSettings(aDevice, "Bulk1");
    aDevice.SetContent("Bulk1DownstreamData", Bytes(520));
}

/// The device sends from bulk port 1, as the engine for features expects it.
inline void SendUpstream(ScriptedAdapter& aDevice, const std::string& aText)
{
    SendUpstream(aDevice, 1, Bytes(aText.begin(), aText.end()));
}

/// What became of some bytes: "300 taken, 120 delivered, 180 refused". Those that are in no part are on their way.
inline std::string Describe(const KySerialBridgeFlow& aFlow)
{
    const std::pair<uint64_t, const char*> lParts[] = {
        {aFlow.mTaken, "taken"},     {aFlow.mDelivered, "delivered"}, {aFlow.mOverrun, "overrun"},
        {aFlow.mCleared, "cleared"}, {aFlow.mRefused, "refused"},     {aFlow.mCutOff, "cut off"},
        {aFlow.mAway, "away"}};
    std::string lText;
    for (const auto& [lCount, lName] : lParts)
    {
        if (lCount != 0)
        {
            lText += (lText.empty() ? "" : ", ") + std::to_string(lCount) + ' ' + lName;
        }
    }
    return lText;
}

/// Writes a block to the device, as the thread that relays does.
inline bool WriteBlock(ScriptedBridge& aBridge, const Bytes& aBlock)
{
    return aBridge.WriteToDevice(aBlock.data(), static_cast<uint32_t>(aBlock.size()));
}

/// The line of UART 0 takes half a millisecond for each byte, until OnCall() changes that.
inline void MakeUartSlow(ScriptedAdapter& aDevice)
{
    aDevice.OnCall(Slot::WriteRegister,
                   [&aDevice]
                   {
                       std::this_thread::sleep_for(std::chrono::microseconds(500));
                       aDevice.SendEvent(0x9000, Words({1})); // sent
                   });
}

/// Gives a device a mode for its bulk ports.
inline void AddBulkMode(ScriptedAdapter& aDevice)
{
    for (const Slot lSlot : {Slot::IsFeatureAvailable, Slot::IsFeatureReadable, Slot::IsFeatureWritable})
    {
        aDevice.SetAvailable(lSlot, "BulkMode", true);
    }
    aDevice.SetText("BulkMode", "SPI");
}

/// Gives a device a selector, which some other port is selected with.
inline void AddSelector(ScriptedAdapter& aDevice)
{
    aDevice.SetAvailable(Slot::IsFeatureAvailable, "BulkSelector", true);
    aDevice.SetText("BulkSelector", "Bulk7");
}

/// Tests of a bridge on a scripted device.
class BridgeFixture : public EngineTest
{
protected:
    /// What an operation asks of a device that answers as the test's does.
    static Calls Record(ScriptedAdapter& aDevice, const std::function<void(ScriptedAdapter&)>& aOperation)
    {
        aDevice.TakeCalls();
        aOperation(aDevice);
        return aDevice.TakeCalls();
    }

    /// Opens the bridge's device port and forgets what that took.
    void Open(KyDeviceSerial aPort)
    {
        ASSERT_THAT(mBridge->OpenDevicePort(&mDevice, aPort), IsOK());
        Forget();
    }

    std::string FromDevice() { return Describe(mBridge->GetFlow(KySerialLib::BridgeWay::FromDevice)); }
    std::string ToDevice() { return Describe(mBridge->GetFlow(KySerialLib::BridgeWay::ToDevice)); }

    /// Destroys the bridge.
    void End() { mBridge.reset(); }

    std::optional<ScriptedBridge> mBridge{std::in_place};
};

} // namespace KyTest
