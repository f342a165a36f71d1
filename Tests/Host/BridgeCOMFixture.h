#pragma once

#include "BridgeCOM.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/BridgeFixture.h"
#include "Tests/Host/HostLink.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace KyTest
{

/// A bridge between a scripted device's bulk port 1 and a host port.
class BridgeCOMHostTest : public EngineTest
{
protected:
    void SetUp() override
    {
        const std::string lReason = HostLink::GetReasonToSkip();
        if (!lReason.empty())
        {
            GTEST_SKIP() << lReason;
        }
        mLink = std::make_unique<HostLink>();
        AddSettings(mDevice, "Bulk1");
        mDevice.SetContent("Bulk1DownstreamData", Bytes(520));
        OpenDevice();
    }
    void OpenDevice(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        ASSERT_THAT(mBridge->OpenDevicePort(&mDevice, aPort), IsOK());
        Forget();
    }
    KyResult OpenHost(const KySerialPortConfiguration& aConfiguration = KySerialPortConfiguration())
    {
        return mBridge->OpenCOMPort(mLink->GetName().c_str(), aConfiguration);
    }
    void Start()
    {
        ASSERT_THAT(OpenHost(), IsOK());
        ASSERT_THAT(mBridge->Start(), IsOK());
    }
    // The device sends, as the engine for features expects it.
    void SendFromDevice(const std::string& aText)
    {
        mDevice.SetContent("EventBulk1UpstreamDataBuffer", Bytes(aText.begin(), aText.end()));
        mDevice.SetInteger("EventBulk1UpstreamDataLength", static_cast<int64_t>(aText.size()));
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    }
    template<typename Condition>
    static bool WaitFor(Condition aCondition)
    {
        const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
        while (JxUtilsLib::Thread::GetTickCount() - lStart < 60000)
        {
            if (aCondition())
            {
                return true;
            }
            JxUtilsLib::Thread::Sleep(2);
        }
        return false;
    }
    bool HasLogged(const std::string& aStart)
    {
        for (const LogLine& lLine : mLog.Take())
        {
            mFound = mFound || (lLine.mPriority == PriorityError && lLine.mMessage.starts_with(aStart));
        }
        return std::exchange(mFound, false);
    }

    std::unique_ptr<HostLink> mLink;
    std::optional<KySerialLib::BridgeCOM> mBridge{std::in_place};
    bool mFound = false;
};

} // namespace KyTest
