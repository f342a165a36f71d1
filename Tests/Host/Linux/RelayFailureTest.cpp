// The bridge to a host port when the system fails transfers that it has begun.

#include "KyPlatform/Linux/SystemCalls.h"
#include "Tests/Host/BridgeCOMFixture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <unistd.h>

using namespace KyTest;
using KyPlatform::gSystem;

namespace
{

std::atomic<short> gFailing{0}; // the wait for this at the port fails
std::atomic<int> gFailures{0};
std::atomic<bool> gIsFull{false}; // the port takes no bytes

int Poll(pollfd* aPolls, nfds_t aCount, int aTimeout)
{
    if (aCount == 2 && (aPolls[1].events & gFailing) != 0)
    {
        ++gFailures;
        errno = EIO;
        return -1;
    }
    return KyPlatform::GetRealSystem().mPoll(aPolls, aCount, aTimeout);
}

ssize_t Write(int aDescriptor, const void* aData, size_t aSize)
{
    if (gIsFull && isatty(aDescriptor) != 0)
    {
        errno = EAGAIN;
        return -1;
    }
    return KyPlatform::GetRealSystem().mWrite(aDescriptor, aData, aSize);
}

// With the log and without: what is relayed does not depend on it.
class RelayFailureTest : public BridgeCOMHostTest, public testing::WithParamInterface<bool>
{
protected:
    void SetUp() override
    {
        BridgeCOMHostTest::SetUp();
        if (!HasLink())
        {
            return;
        }
        gFailures = 0;
        gSystem.mPoll = &Poll;
        gSystem.mWrite = &Write;
        Start();
        if (!GetParam())
        {
            DisableEveryPriority();
            Forget();
        }
    }

    void TearDown() override
    {
        mBridge.reset(); // its threads are in the system's layer
        gSystem = KyPlatform::GetRealSystem();
        EXPECT_TRUE(GetParam() || mLog.Take().empty());
        BridgeCOMHostTest::TearDown();
    }

    // Waits for aCount failures, and for the log lines about them.
    void ExpectFailures(int aCount, const std::vector<std::string>& aLines)
    {
        EXPECT_TRUE(WaitFor([&] { return gFailures >= aCount; }));
        for (const std::string& lLine : aLines)
        {
            EXPECT_TRUE(!GetParam() || WaitFor([&] { return HasLine(lLine); })) << lLine;
        }
    }

    bool HasLine(const std::string& aMessage)
    {
        for (LogLine& lLine : mLog.Take())
        {
            mMessages.push_back(std::move(lLine.mMessage));
        }
        return std::find(mMessages.begin(), mMessages.end(), aMessage) != mMessages.end();
    }

    std::vector<std::string> mMessages;
};

TEST_P(RelayFailureTest, AFailedReadGivesTheBytesThatCameBeforeItAndTheNextOnesFollow)
{
    gFailing = POLLIN; // the wait that goes on already brings one more byte
    EXPECT_EQ(mLink->Write("a"), 1U);
    ExpectFailures(2, {"GetOverlappedResult failure: 0x00000005"});
    gFailing = 0;
    EXPECT_EQ(mLink->Write("b"), 1U);
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesSentToDevice() == 2; }));
}

TEST_P(RelayFailureTest, AFailedWriteLosesItsBytesAndTheNextOnesFollow)
{
    gIsFull = true;
    gFailing = POLLOUT;
    SendFromDevice("a");
    ExpectFailures(1, {"GetOverlappedResult failure: 0x00000005",
                       "Error writting bytes (0 out of 1) from the KyDevice serial port to the COM port."});
    EXPECT_TRUE(WaitFor([&] { return mBridge->GetBytesReceivedFromDevice() == 1; }));
    gFailing = 0;
    gIsFull = false;
    SendFromDevice("b");
    EXPECT_EQ(mLink->Read(1), "b");
}

INSTANTIATE_TEST_SUITE_P(Log, RelayFailureTest, testing::Bool());

} // namespace
