#pragma once

#include "BridgeCLDLL.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/WaitFor.h"

#include <memory>
#include <optional>
#include <string>

namespace KyTest
{

/// A bridge between a scripted device's bulk port 1 and the FIFOs that a client has.
class BridgeCLDLLTest : public EngineTest
{
protected:
    void SetUp() override { AddBulkPort(mDevice); }
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
    void SendFromDevice(const std::string& aText) { SendUpstream(mDevice, aText); }
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

    /// More comes from the device than a FIFO holds that no client reads: 10 times 512 bytes.
    void FillUp()
    {
        for (int lEvent = 0; lEvent < 10; ++lEvent)
        {
            SendFromDevice(std::string(512, 'x'));
        }
        uint32_t lWaiting = 0;
        ASSERT_TRUE(WaitFor([&] { return mUp->GetAvailable(lWaiting) && lWaiting == 1023; }));
    }
    /// Damages the "Up" or the "Down" FIFO, as a program that runs wild can.
    static void SpoilFifo(const std::string& aWay)
    {
        KyPlatform::SharedMemory lMemory;
        ASSERT_TRUE(lMemory.Open("Local\\KySerialBridge" + aWay + "Fifo1Memory"));
        static_cast<KySerialLib::SharedFifoHeader*>(lMemory.GetBase())->mSize = 0;
    }
    void ExpectLogged(const LogLine& aLine)
    {
        EXPECT_TRUE(WaitFor([&] { return testing::Value(mLog.Take(), testing::Contains(aLine)); })) << aLine;
    }

    PrivateSession mSession;
    KySerialLib::SharedRegistry mRegistry{true};
    std::optional<KySerialLib::BridgeCLDLL> mBridge{std::in_place};
    std::unique_ptr<KySerialLib::SharedFifo> mDown;
    std::unique_ptr<KySerialLib::SharedFifo> mUp;
};

} // namespace KyTest
