// "kyserial bridge" to a serial port of the host.

#include "Tests/Support/HostLinkTest.h"
#include "Tools/BridgeRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KyTest;

namespace
{

class HostBridgeTest : public HostLinkTest<testing::Test>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        if (!HasLink())
        {
            return;
        }
        mHost = {mLink->GetName().front() == '/' ? "--tty" : "--com", mLink->GetName()};
    }
    std::vector<std::string> With(std::vector<std::string> aArguments) const
    {
        aArguments.insert(aArguments.end(), mHost.begin(), mHost.end());
        return aArguments;
    }

    std::vector<std::string> mHost;
};

TEST_F(HostBridgeTest, ADialogueWithTheDevice)
{
    BridgeRun lBridge(With({"--port", "uart0", "--baud", "115200"}));
    EXPECT_EQ(mLink->Write("STATUS?\r\n"), 9U);
    EXPECT_EQ(mLink->Read(41), cLensStatus);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["to_device"]["bytes"], 9);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 115200);
    EXPECT_EQ(lBridge.mTool.Error(), "uart0 of sim is " + mLink->GetName() +
                                         ", 115200 8N1; Ctrl-C ends\nsent 9 bytes, received 41 bytes\n");
}

TEST_F(HostBridgeTest, APortInUseIsAFailure)
{
    if (mHost.front() == "--com")
    {
        GTEST_SKIP() << "the system that the tests run on lets two programs open one COM port";
    }
    BridgeRun lBridge(With({"--port", "uart0"}));
    const ToolResult lSecond = RunTool(With({"bridge", "--port", "uart1"}));
    EXPECT_EQ(lSecond.mStatus, 1);
    EXPECT_EQ(lSecond.mError, "kyserial: cannot bridge uart1 to " + mLink->GetName() +
                                  ": FAILURE: Unable to open requested COM port. (it is in use)\n");
    EXPECT_EQ(lBridge.End(), 0);
}

// The port is free again when the bridge has ended, however that was.
TEST_F(HostBridgeTest, ThePortCanBeBridgedAgainAfterwards)
{
    {
        const BridgeRun lKilled(With({"--port", "uart0"}));
    }
    for (int lRun = 0; lRun < 2; ++lRun)
    {
        BridgeRun lBridge(With({"--port", "bulk1"}));
        EXPECT_EQ(mLink->Write("STATUS?\r\n"), 9U);
        EXPECT_EQ(mLink->Read(41), cLensStatus);
        EXPECT_EQ(lBridge.End(), 0);
    }
}

} // namespace
