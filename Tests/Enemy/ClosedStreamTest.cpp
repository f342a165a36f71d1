// Programs that are started without some of their standard streams: what they print goes nowhere, and never into a
// file that they open.

#include "Tests/Support/Process.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using KyTest::Process;

namespace
{

struct Closed
{
    unsigned mStreams; // bit N: standard stream N
    bool mInvalid;     // on Windows: an invalid handle, else none

    friend void PrintTo(const Closed& aClosed, std::ostream* aStream)
    {
        *aStream << aClosed.mStreams << (aClosed.mInvalid ? " invalid" : " closed");
    }
};

class ClosedStreamsTest : public testing::TestWithParam<Closed>
{
protected:
    bool IsClosed(unsigned aStream) const { return (GetParam().mStreams >> aStream & 1U) != 0; }

    /// Runs a program to its end.
    void Run(const std::string& aProgram, const std::vector<std::string>& aArguments,
             const std::string& aInput = {})
    {
        Process lProgram;
        Process::Files lFiles;
        lFiles.mInputText = aInput;
        lFiles.mClosed = GetParam().mStreams;
        lFiles.mInvalid = GetParam().mInvalid;
        ASSERT_TRUE(lProgram.Start(aProgram, aArguments, lFiles));
        mStatus = lProgram.Wait().value_or(-1);
        mOutput = lProgram.Output();
        mError = lProgram.Error();
    }

    /// Expects a command to have printed aText. On Linux the null device takes the text if the output is closed; on
    /// Windows nothing does, which is a failure.
    void ExpectPrinted(const std::string& aText)
    {
        const bool lFails = IsClosed(1) && !Process::HasNullStreams();
        EXPECT_EQ(mStatus, lFails ? 1 : 0);
        EXPECT_EQ(mOutput, IsClosed(1) ? "" : aText);
        const bool lHasError = mError.find("cannot write to the standard output") != std::string::npos;
        EXPECT_EQ(lHasError, lFails && !IsClosed(2)) << mError;
    }

    int mStatus = -1; // of the program; -1: something killed it
    std::string mOutput;
    std::string mError;
};

TEST_P(ClosedStreamsTest, FileThatACommandWritesHasNothingOfItsOutput)
{
    const std::string lState = Process::TemporaryFile(".state");
    Run("kyserial", {"features", "get", "DeviceModelName", "--device", "sim"});
    ExpectPrinted("Simulated Camera\n");
    Run("kyserial", {"features", "get", "DeviceVendorName", "--device", "sim", "--sim-state", lState});
    ExpectPrinted("Korvo\n");
    const std::string lContent = KyTest::ReadFile(lState);
    EXPECT_EQ(lContent.size(), 66048U); // the memories on the buses, with a head
    EXPECT_EQ(lContent.find("Korvo"), std::string::npos);
    std::filesystem::remove(lState);
}

TEST_P(ClosedStreamsTest, TerminalWithoutInputEnds)
{
    Run("kyserial", {"term", "--device", "sim", "--port", "uart0"}, "A?\r\n");
    if (IsClosed(0))
    {
        EXPECT_EQ(mStatus, 0);
        EXPECT_EQ(mOutput, "");
        EXPECT_EQ(mError, IsClosed(2) ? "" : "sent 0 bytes, received 0 bytes\n");
    }
    else
    {
        ExpectPrinted("ERR 1 UNKNOWN COMMAND\r\n");
    }
}

TEST_P(ClosedStreamsTest, BridgeEndsAfterItsTime)
{
    Run("kyserial", {"bridge", "--device", "sim", "--port", "uart0", "--clser", UniqueName("KyClosed"),
                     "--duration", "1"});
    EXPECT_EQ(mStatus, 0);
    EXPECT_EQ(mError.empty(), IsClosed(2)); // its notes
}

// A camera without an input serves on, so that only those with one can be asked to end.
TEST_P(ClosedStreamsTest, CameraServesAndKeepsItsMemoriesCleanOfItsOutput)
{
    if (IsClosed(0))
    {
        GTEST_SKIP() << "without an input nobody can ask it to end";
    }
    const std::string lState = Process::TemporaryFile(".state");
    Run("kyserial-camera", {"--port", "0", "--no-broadcast", "--state", lState}, "stats\nquit\n");
    const bool lFails = IsClosed(1) && !Process::HasNullStreams();
    EXPECT_EQ(mStatus, lFails ? 1 : 0);
    EXPECT_EQ(mOutput.find("kyserial-camera: ready at 127.0.0.1:") == 0, !IsClosed(1)) << mOutput;
    EXPECT_EQ(mOutput.find("statistics: ") != std::string::npos, !IsClosed(1)) << mOutput;
    EXPECT_EQ(mError.find("cannot write to the standard output") != std::string::npos, lFails && !IsClosed(2))
        << mError;
    const std::string lContent = KyTest::ReadFile(lState);
    EXPECT_EQ(lContent.size(), lFails ? 0U : 66048U); // the memories on the buses, with a head
    EXPECT_EQ(lContent.find("statistics"), std::string::npos);
    std::filesystem::remove(lState);
}

std::vector<Closed> GetEachClosed()
{
    std::vector<Closed> lAll;
    for (unsigned lStreams = 1; lStreams < 8; ++lStreams)
    {
        lAll.push_back({lStreams, false});
        if (!Process::HasNullStreams())
        {
            lAll.push_back({lStreams, true});
        }
    }
    return lAll;
}

INSTANTIATE_TEST_SUITE_P(Streams, ClosedStreamsTest, testing::ValuesIn(GetEachClosed()));

} // namespace
