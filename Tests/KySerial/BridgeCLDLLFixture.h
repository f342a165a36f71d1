#pragma once

#include "BridgeCLDLL.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"

#include <memory>
#include <optional>
#include <string>

namespace KyTest
{

/// A bridge between a scripted device's bulk port 1 and the FIFOs that a client has.
class BridgeCLDLLTest : public EngineTest
{
protected:
    void SetUp() override
    {
        AddSettings(mDevice, "Bulk1");
        mDevice.SetContent("Bulk1DownstreamData", Bytes(520));
    }
    void OpenPort(KySerialLib::BridgeCLDLL& aBridge, KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        ASSERT_THAT(aBridge.OpenDevicePort(&mDevice, aPort), IsOK());
        Forget();
    }
    void Start(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        OpenPort(*mBridge, aPort);
        ASSERT_THAT(mBridge->OpenSharedMem("Server"), IsOK());
        ASSERT_THAT(mBridge->Start(), IsOK());
        mDown = std::make_unique<KySerialLib::SharedFifo>("KySerialBridgeDownFifo1", "Local\\", 1024, false);
        mUp = std::make_unique<KySerialLib::SharedFifo>("KySerialBridgeUpFifo1", "Local\\", 1024, false);
        ASSERT_TRUE(mDown->IsValid() && mUp->IsValid());
        Forget();
    }
    KySerialLib::SharedRegistryEntry& Entry(const std::string& aName = "Server")
    {
        KySerialLib::SharedRegistryEntry* lEntry = nullptr;
        EXPECT_TRUE(mRegistry.Find(aName, lEntry));
        return *lEntry;
    }
    void SendFromDevice(const std::string& aText)
    {
        mDevice.SetContent("EventBulk1UpstreamDataBuffer", Bytes(aText.begin(), aText.end()));
        mDevice.SetInteger("EventBulk1UpstreamDataLength", static_cast<int64_t>(aText.size()));
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    }
    bool Send(const std::string& aText)
    {
        uint32_t lWritten = 0;
        return mDown->Write(aText.data(), static_cast<uint32_t>(aText.size()), lWritten, 60000);
    }
    std::string Receive(size_t aCount)
    {
        std::string lAll;
        char lPart[1024];
        uint32_t lRead = 0;
        while (lAll.size() < aCount && mUp->Read(lPart, sizeof lPart, lRead, 60000))
        {
            lAll.append(lPart, lRead);
        }
        return lAll;
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

    PrivateSession mSession;
    KySerialLib::SharedRegistry mRegistry{true};
    std::optional<KySerialLib::BridgeCLDLL> mBridge{std::in_place};
    std::unique_ptr<KySerialLib::SharedFifo> mDown;
    std::unique_ptr<KySerialLib::SharedFifo> mUp;
};

} // namespace KyTest
