// Every call into the system refused once, in the lives of a server and its client.

#include "BridgeCLDLL.h"
#include "KySerial/Bridge/BridgeFixture.h"
#include "Support/ForEachNth.h"
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

    // A client's visit, without waits, while call aFailing is refused; 0: none is. \return Whether everything
    // worked.
    bool Visit(int aFailing)
    {
        CLUINT32 lCount = 0;
        hSerRef lPort = nullptr;
        const auto lIsRefused = [&] { return aFailing != 0 && aFailing <= FailingSystem::GetCalls(); };
        const bool lWasRefused = lIsRefused();
        CLINT32 lResult = clGetNumSerialPorts(&lCount);
        // The list fails for want of the registry's lock only; see ServersAreListedUnlessTheLockIsRefused.
        const bool lMayFail =
            FailingSystem::cCallsForAFreeLock > 0 && aFailing != 0 && !lWasRefused && lIsRefused();
        EXPECT_TRUE(lResult == CL_ERR_NO_ERR || (lMayFail && lResult == CL_ERR_OUT_OF_MEMORY)) << lResult;
        lResult = clSerialInit(0, &lPort);
        EXPECT_EQ(lResult == CL_ERR_NO_ERR, lPort != nullptr);
        const bool lNoPort = lResult == CL_ERR_INVALID_INDEX || lResult == CL_ERR_PORT_IN_USE;
        EXPECT_TRUE(lResult == CL_ERR_NO_ERR || (lNoPort && lIsRefused())) << lResult;
        char lBytes[4] = "abc";
        lCount = 3;
        const CLINT32 lWritten = clSerialWrite(lPort, lBytes, &lCount, 0);
        EXPECT_EQ(lWritten == CL_ERR_NO_ERR, lCount == 3);
        lCount = 1;
        const CLINT32 lRead = clSerialRead(lPort, lBytes, &lCount, 0);
        EXPECT_EQ(lRead, lPort != nullptr ? CL_ERR_TIMEOUT : CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(lCount, 0U);
        clSerialClose(lPort);
        return lWritten == CL_ERR_NO_ERR;
    }

    // \return Whether everything worked.
    bool Serve(int aFailing)
    {
        BridgeCLDLL lBridge;
        EXPECT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        const KyResult lServed = lBridge.OpenSharedMem("Server");
        EXPECT_TRUE(lServed.IsOK() || (aFailing != 0 && lServed.GetCode() == KyResult::FAILURE))
            << testing::PrintToString(lServed);
        return Visit(aFailing) && lServed.IsOK();
    }

    // Each call of a client is refused once for want of descriptors; the server must be listed afterwards.
    void ExpectNoShortageHidesTheServer()
    {
        const int lRefused = ForEachNth(
            [&](int aNth, int& aCount)
            {
                CLUINT32 lCount = 7;
                {
                    const FailingSystem lSystem(aNth, FailingSystem::Error::Shortage);
                    static_cast<void>(clGetNumSerialPorts(&lCount)); // may find none
                    aCount = FailingSystem::GetCalls();
                }
                EXPECT_EQ(clGetNumSerialPorts(&lCount), CL_ERR_NO_ERR);
                EXPECT_EQ(lCount, 1U) << "after call " << aNth;
                static_cast<void>(mAsserts.Take());
            });
        EXPECT_GT(lRefused, 10);
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
    int lFailed = 0;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            {
                const FailingSystem lSystem(aNth);
                lFailed += Serve(aNth) ? 0 : 1;
                aCount = FailingSystem::GetCalls();
            }
            EXPECT_TRUE(Serve(0));
            EXPECT_TRUE(mDevice.GetSinks().empty());
            static_cast<void>(mAsserts.Take());
        },
        GetParam(), 4);
    EXPECT_GT(lRefused, 50);
    EXPECT_GT(lFailed, 3);
}

INSTANTIATE_TEST_SUITE_P(Parts, ServerFaultTest, testing::Range(1, 5));

TEST_F(SystemFaultTest, ServersAreListedUnlessTheLockIsRefused)
{
    constexpr int cLocks = 2; // that of the registry's memory, and that of its entries
    BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
    int lUnlisted = 0;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            ASSERT_THAT(lBridge.OpenSharedMem("Server"), IsOK());
            CLUINT32 lCount = 7;
            CLINT32 lResult = CL_ERR_NO_ERR;
            {
                const FailingSystem lSystem(aNth);
                lResult = clGetNumSerialPorts(&lCount);
                aCount = FailingSystem::GetCalls();
            }
            EXPECT_TRUE(lResult == CL_ERR_NO_ERR || lResult == CL_ERR_OUT_OF_MEMORY) << lResult;
            EXPECT_TRUE(lResult == CL_ERR_NO_ERR ? lCount <= 1 : lCount == 0) << lCount;
            lUnlisted += lResult == CL_ERR_OUT_OF_MEMORY ? 1 : 0;
            lBridge.CloseSharedMem();
            static_cast<void>(mAsserts.Take());
        });
    EXPECT_GT(lRefused, 50);
    EXPECT_EQ(lUnlisted, cLocks * FailingSystem::cCallsForAFreeLock);
}

TEST_F(SystemFaultTest, AClientWithoutDescriptorsHidesNoServerFromOthers)
{
    BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
    ASSERT_THAT(lBridge.OpenSharedMem("Server"), IsOK());
    ExpectNoShortageHidesTheServer();
}

TEST_F(SystemFaultTest, AClientWithoutDescriptorsHidesNoServerOfTheServiceFromOthers)
{
    constexpr uint32_t cService = 1; // Windows looks for sessions up to 31
    mSession.Share(cService);
    PrivateSession::SetOwnNumber(cService);
    BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
    ASSERT_THAT(lBridge.OpenSharedMem("Server"), IsOK());
    PrivateSession::SetOwnNumber(cService + 1);
    ExpectNoShortageHidesTheServer();
}

TEST_F(SystemFaultTest, SaysWhatOfAServerCouldNotBeMade)
{
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            BridgeCLDLL lBridge;
            ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
            const FailingSystem lSystem(aNth);
            mTexts.insert(lBridge.OpenSharedMem("Server").GetDescription().GetAscii());
            aCount = FailingSystem::GetCalls();
        });
    EXPECT_GT(lRefused, 20);
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
