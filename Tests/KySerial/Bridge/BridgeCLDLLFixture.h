#pragma once

#include "BridgeCLDLL.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/Bridge/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/RingView.h"
#include "Tests/Support/TextFifo.h"
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
        mDown = std::make_unique<TextFifo>("KySerialBridgeDownFifo1", 1024, false);
        mUp = std::make_unique<TextFifo>("KySerialBridgeUpFifo1", 1024, false);
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
    bool Send(const std::string& aText) { return mDown->Write(aText, 60000); }
    std::string Receive(size_t aCount) { return mUp->ReadAll(aCount); }

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
        RingView("KySerialBridge" + aWay + "Fifo1").GetHeader().mSize = 0;
    }
    /// Expects a line, or no line at all where no priority is enabled.
    void ExpectLogged(const LogLine& aLine, bool aIsEnabled)
    {
        const auto lHasLine = [&] { return testing::Value(mLog.Take(), testing::Contains(aLine)); };
        EXPECT_TRUE(aIsEnabled ? WaitFor(lHasLine) : mLog.Take().empty()) << aLine;
    }

    PrivateSession mSession;
    KySerialLib::SharedRegistry mRegistry{true};
    std::optional<KySerialLib::BridgeCLDLL> mBridge{std::in_place};
    std::unique_ptr<TextFifo> mDown;
    std::unique_ptr<TextFifo> mUp;
};

} // namespace KyTest
