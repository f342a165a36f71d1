// Every call into the system refused once, in the lives of a server and its client.

#include "BridgeCLDLL.h"
#include "KySerial/BridgeFixture.h"
#include "Support/PrivateSession.h"
#include "Support/ThreadCount.h"
#include "Tests/KyPlatform/FailingSystem.h"
#include "clserzmo/clser.h"

#include <optional>
#include <set>

using namespace KyTest;
using KySerialLib::BridgeCLDLL;

namespace
{

class SystemFaultTest : public testing::Test
{
protected:
    void SetUp() override
    {
        mDevice.SetRecording(false);
        AddSettings(mDevice, "Bulk1");
    }

    // A client's visit, without waits. \return Whether everything worked.
    bool Visit()
    {
        CLUINT32 lCount = 0;
        hSerRef lPort = nullptr;
        CLINT32 lResult = clGetNumSerialPorts(&lCount);
        EXPECT_TRUE(lResult == CL_ERR_NO_ERR || lResult == CL_ERR_OUT_OF_MEMORY) << lResult; // no registry
        lResult = clSerialInit(0, &lPort);
        EXPECT_EQ(lResult == CL_ERR_NO_ERR, lPort != nullptr);
        EXPECT_TRUE(lResult == CL_ERR_NO_ERR || lResult == CL_ERR_INVALID_INDEX ||
                    lResult == CL_ERR_PORT_IN_USE)
            << lResult;
        char lBytes[4] = "abc";
        lCount = 3;
        const CLINT32 lWritten = clSerialWrite(lPort, lBytes, &lCount, 0);
        EXPECT_EQ(lWritten == CL_ERR_NO_ERR, lCount == 3);
        lCount = 1;
        const CLINT32 lRead = clSerialRead(lPort, lBytes, &lCount, 0);
        EXPECT_TRUE(lRead == CL_ERR_TIMEOUT || lRead == CL_ERR_INVALID_REFERENCE) << lRead;
        EXPECT_EQ(lCount, 0U);
        clSerialClose(lPort);
        return lWritten == CL_ERR_NO_ERR;
    }

    // \return Whether everything worked.
    bool Serve()
    {
        BridgeCLDLL lBridge;
        EXPECT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        const KyResult lServed = lBridge.OpenSharedMem("Server");
        EXPECT_TRUE(lServed.IsOK() || lServed.GetCode() == KyResult::FAILURE)
            << testing::PrintToString(lServed);
        return Visit() && lServed.IsOK();
    }

    PrivateSession mSession;
    RecordingLogSink mLog{PriorityFatal};
    AssertRecorder mAsserts; // calls that cannot fail do
    ScriptedAdapter mDevice;
    std::set<std::string> mTexts; // what failures said
};

// In four parts, which may run at the same time.
class ServerFaultTest : public SystemFaultTest, public testing::WithParamInterface<int>
{
};

TEST_P(ServerFaultTest, TheNameCanBeServedAgainAtOnceWhateverCallWasRefused)
{
    int lCalls = 0;
    int lFailed = 0;
    for (int lFailing = GetParam(); lFailing <= 4 || lCalls >= lFailing - 4; lFailing += 4)
    {
        SCOPED_TRACE(lFailing);
        {
            const FailingSystem lSystem(lFailing);
            lFailed += Serve() ? 0 : 1;
            lCalls = FailingSystem::GetCalls();
        }
        EXPECT_TRUE(Serve());
        EXPECT_TRUE(mDevice.GetSinks().empty());
        static_cast<void>(mAsserts.Take());
    }
    EXPECT_GT(lCalls, 50);
    EXPECT_GT(lFailed, 3);
}

INSTANTIATE_TEST_SUITE_P(Parts, ServerFaultTest, testing::Range(1, 5));

TEST_F(SystemFaultTest, SaysWhatOfAServerCouldNotBeMade)
{
    int lCalls = 0;
    for (int lFailing = 1; lFailing == 1 || lCalls >= lFailing - 1; ++lFailing)
    {
        BridgeCLDLL lBridge;
        ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        const FailingSystem lSystem(lFailing);
        mTexts.insert(lBridge.OpenSharedMem("Server").GetDescription().GetAscii());
        lCalls = FailingSystem::GetCalls();
    }
    EXPECT_THAT(mTexts, testing::IsSupersetOf(
                            {std::string("Unable to create server. A server with the same name is probably "
                                         "already active."),
                             std::string("Could not create downstream FIFO."),
                             std::string("Could not create upstream FIFO.")}));
}

TEST_F(SystemFaultTest, AStartThatTheSystemRefusesLeavesNoThread)
{
    {
        ScriptedBridge lBridge;
        ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        ASSERT_THAT(lBridge.Start(), IsOK());
    }
    const size_t lThreads = CountThreadsAtFirst();
    for (int lFailing = 1; lFailing < 6; ++lFailing)
    {
        SCOPED_TRACE(lFailing);
        ScriptedBridge lBridge;
        lBridge.mUpRoutine = [](void* /*aBridge*/) -> uint32_t { return 0; }; // no calls of their own
        lBridge.mDownRoutine = lBridge.mUpRoutine;
        ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        std::optional<FailingSystem> lSystem(std::in_place, lFailing);
        const KyResult lStarted = lBridge.Start();
        lSystem.reset();
        EXPECT_TRUE(lStarted.IsOK() || lStarted.GetCode() == KyResult::FAILURE);
        mTexts.insert(lStarted.GetDescription().GetAscii());
        lBridge.StopThreads();
        EXPECT_TRUE(HasNoMoreThreadsThan(lThreads));
    }
    EXPECT_THAT(mTexts,
                testing::IsSupersetOf({std::string("Unable to create event required to stop bridge threads."),
                                       std::string("Unable to start bridge upstream thread."),
                                       std::string("Unable to start bridge downstream thread.")}));
}

} // namespace
