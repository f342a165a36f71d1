// Texts, records and ports of the host without memory.

#include "BridgeCLDLL.h"
#include "JxUtilsLib/Logger.h"
#include "JxUtilsLib/Result.h"
#include "KyBase/KyStringList.h"
#include "KyPlatform/HostSerialPort.h"
#include "KySerial/BridgeFixture.h"
#include "Platform/PseudoTerminal.h"
#include "Support/AllocationCounter.h"
#include "Support/ForEachNth.h"
#include "Support/PrivateSession.h"
#include "Support/RecordingLogSink.h"
#include "clserzmo/clser.h"
#include "sharedregistry.h"

using namespace KyTest;

namespace
{

TEST(SmallAllocationTest, TextWithoutMemoryIsEmpty)
{
    const AllocationCounter lNoMemory(1);
    const KyString lText("text");
    EXPECT_EQ(lText.GetLength(), 0U);
    EXPECT_STREQ(lText.GetAscii(), "");
}

TEST(SmallAllocationTest, ListWithoutMemoryForATextStaysAsItWas)
{
    KyStringList lList;
    lList.Add("first");
    const KyString lText("second");
    {
        const AllocationCounter lNoMemory(1);
        lList.Add(lText);
    }
    EXPECT_EQ(lList.GetCount(), 1U);
    EXPECT_STREQ(lList.GetFirst()->GetAscii(), "first");
    EXPECT_EQ(lList.GetNext(), nullptr);
    lList.Add("third");
    EXPECT_EQ(lList.GetCount(), 2U);
}

TEST(SmallAllocationTest, ResultWithoutMemoryHasItsCodeAndNoDescription)
{
    const AllocationCounter lNoMemory(1);
    const JxUtilsLib::Result lResult(7, "seven");
    EXPECT_EQ(lResult.GetCode(), 7U);
    EXPECT_EQ(lResult.GetDescription(), nullptr);
}

TEST(SmallAllocationTest, LongLogTextWithoutMemoryIsItsBeginning)
{
    const std::string lLong(1000, 'x');
    RecordingLogSink lSink;
    std::string lText;
    {
        const AllocationCounter lNoMemory(1);
        const JxUtilsLib::Result lResult =
            JxUtilsLib::Logger("KySerialLib").LogResult(1, "f", 1, "F", "<%s>", lLong.c_str());
        const AllocationPause lPause;
        lText = lResult.GetDescription();
    }
    EXPECT_EQ(lText, "<" + lLong.substr(0, 254));
}

TEST(SmallAllocationTest, PortsOfTheHostWithoutMemoryAreNotOpened)
{
    KyPlatform::HostSerialPort lPort;
    KyToolPlatform::PseudoTerminal lTerminal;
    {
        const AllocationCounter lNoMemory(1);
        EXPECT_FALSE(lPort.Open("/dev/ttyS0"));
        EXPECT_EQ(AllocationCounter::GetCount(), 1);
    }
    const AllocationCounter lNoMemory(1);
    EXPECT_FALSE(lTerminal.Create());
    EXPECT_FALSE(lTerminal.IsOpen());
}

// A client of the serial library's interface gets a code, whatever allocation failed, and can go on.
TEST(SmallAllocationTest, ClientWithoutMemoryGetsTheCodeForThat)
{
    const PrivateSession lSession;
    RecordingLogSink lSink(PriorityFatal);
    ScriptedAdapter lDevice;
    lDevice.SetRecording(false);
    AddSettings(lDevice, "Bulk1");
    KySerialLib::BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&lDevice, KyDeviceSerialBulk1), IsOK());
    ASSERT_THAT(lBridge.OpenSharedMem("Server"), IsOK());
    KySerialLib::SharedRegistry lRegistry(true);
    int lRefused = 0;
    const auto lUse = [&](int aNth, int& aCount)
    {
        // Who has no memory to look for a server takes it for gone.
        ASSERT_TRUE(lRegistry.SetServerActive("Server", true));
        CLUINT32 lCount = 0;
        hSerRef lPort = nullptr;
        char lByte = 'x';
        bool lIsRefused = false;
        {
            const AllocationCounter lNoMemory(aNth);
            const auto lNote = [&](CLINT32 aCode)
            { lIsRefused = lIsRefused || aCode == CL_ERR_OUT_OF_MEMORY; };
            lNote(clGetNumSerialPorts(&lCount));
            lNote(clSerialInit(0, &lPort));
            lCount = 1;
            lNote(clSerialWrite(lPort, &lByte, &lCount, 0));
            aCount = AllocationCounter::GetCount();
        }
        clSerialClose(lPort);
        lRefused += lIsRefused ? 1 : 0;
        EXPECT_TRUE(aCount >= aNth || lCount == 1);
    };
    ForEachNth(lUse, 1, 7);
    EXPECT_GT(lRefused, 2);
}

} // namespace
