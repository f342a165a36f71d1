// Bridges with their client in another process; a mebibyte each way through both kinds.

#include "Tests/Support/HostLink.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using KyTest::HostLink;
using KyTest::Process;

namespace
{

constexpr size_t cMebibyte = 1048576;
constexpr size_t cBlock = 8192; // on the way at a time: less than the device port's receive buffer

class BridgeProcessTest : public testing::Test
{
protected:
    void StartBridge(const std::string& aKind, const std::string& aName)
    {
        mBridge = std::make_unique<Process>();
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        ASSERT_TRUE(mBridge->Start("KyBridgeHost", {aKind, aName}, lFiles));
        ASSERT_TRUE(mBridge->WaitForOutput("ready")) << mBridge->Error();
    }
    /// Ends the bridge, through which aBytes have gone each way.
    void EndBridge(size_t aBytes)
    {
        const std::string lBytes = std::to_string(aBytes);
        EXPECT_TRUE(mBridge->Feed(lBytes));
        mBridge->CloseInput();
        EXPECT_EQ(mBridge->Wait(), 0);
        EXPECT_NE(mBridge->Output().find("sent " + lBytes + " received " + lBytes), std::string::npos)
            << mBridge->Output();
        EXPECT_EQ(mBridge->Error(), "");
    }

    std::unique_ptr<Process> mBridge;
    const std::string mName = UniqueName("KyServer");
};

TEST_F(BridgeProcessTest, AMebibyteEachWayThroughAHostPort)
{
    const std::string lReason = HostLink::GetReasonToSkip();
    if (!lReason.empty())
    {
        GTEST_SKIP() << lReason;
    }
    HostLink lLink;
    StartBridge("com", lLink.GetName());
    uint32_t lState = 1;
    for (size_t lDone = 0; lDone < cMebibyte; lDone += cBlock)
    {
        std::string lBlock;
        for (size_t lIndex = 0; lIndex < cBlock; ++lIndex)
        {
            lState = lState * 1664525U + 1013904223U;
            lBlock += static_cast<char>(lState >> 24U);
        }
        ASSERT_EQ(lLink.Write(lBlock), cBlock) << lDone;
        ASSERT_TRUE(lLink.Read(cBlock) == lBlock) << lDone; // not as equality: the texts are long
    }
    EndBridge(cMebibyte);
}

TEST_F(BridgeProcessTest, AMebibyteEachWayThroughAClientInC)
{
    StartBridge("clser", mName);
    Process lClient;
    ASSERT_TRUE(lClient.Start("ClserClient", {mName, std::to_string(cMebibyte)}, {}));
    EXPECT_EQ(lClient.Wait(120000), 0) << lClient.Error();
    EXPECT_EQ(lClient.Output().substr(0, 13), "1048576 bytes");
    EndBridge(cMebibyte);
}

TEST_F(BridgeProcessTest, AClientFindsNoServerThatHasEnded)
{
    StartBridge("clser", mName);
    EndBridge(0);
    Process lClient;
    ASSERT_TRUE(lClient.Start("ClserClient", {mName, "1"}, {}));
    EXPECT_EQ(lClient.Wait(), 1);
    EXPECT_NE(lClient.Error().find("-10005"), std::string::npos) << lClient.Error();
}

TEST_F(BridgeProcessTest, ASecondServerOfTheNameIsRefusedInAnotherProcessToo)
{
    StartBridge("clser", mName);
    Process lSecond;
    ASSERT_TRUE(lSecond.Start("KyBridgeHost", {"clser", mName}, {}));
    EXPECT_EQ(lSecond.Wait(), 1);
    EXPECT_NE(lSecond.Error().find("A server with the same name is probably already active."),
              std::string::npos);
    EndBridge(0);
}

TEST_F(BridgeProcessTest, AServerThatWasKilledCanBeStartedAgain)
{
    StartBridge("clser", mName);
    mBridge.reset(); // kills it
    StartBridge("clser", mName);
    Process lClient;
    ASSERT_TRUE(lClient.Start("ClserClient", {mName, std::to_string(2 * cBlock)}, {}));
    EXPECT_EQ(lClient.Wait(), 0) << lClient.Error();
    EndBridge(2 * cBlock);
}

} // namespace
