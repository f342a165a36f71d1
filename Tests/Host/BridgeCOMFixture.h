#pragma once

#include "BridgeCOM.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "Tests/Support/HostLinkTest.h"
#include "Tests/Support/WaitFor.h"

#include <optional>
#include <string>
#include <utility>

namespace KyTest
{

/// A bridge between a scripted device's bulk port 1 and a host port.
class BridgeCOMHostTest : public HostLinkTest<EngineTest>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        if (HasLink())
        {
            AddBulkPort(mDevice);
            OpenDevice();
        }
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
    void SendFromDevice(const std::string& aText) { SendUpstream(mDevice, aText); }
    bool HasLogged(const std::string& aStart)
    {
        for (const LogLine& lLine : mLog.Take())
        {
            mFound = mFound || (lLine.mPriority == PriorityError && lLine.mMessage.starts_with(aStart));
        }
        return std::exchange(mFound, false);
    }

    std::optional<KySerialLib::BridgeCOM> mBridge{std::in_place};
    bool mFound = false;
};

/// Whole lives of bridges from a scripted device's bulk port 1 to a host port.
class BridgeCOMLifeTest : public HostLinkTest<testing::Test>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        mDevice.SetRecording(false);
        AddBulkPort(mDevice);
    }
    KyResult Start(KySerialBridge& aBridge)
    {
        return aBridge.Start(mLink->GetName().c_str(), {}, &mDevice, KyDeviceSerialBulk1);
    }

    AssertRecorder mAsserts; // calls that cannot fail do
    ScriptedAdapter mDevice;
};

} // namespace KyTest
