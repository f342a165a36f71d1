// A system that is short of memory, threads, descriptors or room: a program says so in a line and ends
// with 1.

#include "Tests/Support/Process.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using KyTest::Process;

namespace
{

struct Case
{
    std::string mName;
    std::string mProgram;
    std::vector<std::string> mArguments;
    std::string mInput;
    std::string mSays = mProgram + ": "; ///< Part of what it says of a failure.

    friend void PrintTo(const Case& aCase, std::ostream* aStream) { *aStream << aCase.mName; }
};

class ShortageTest : public testing::TestWithParam<Case>
{
protected:
    void SetUp() override
    {
#if defined(KYTEST_INSTRUMENTED)
        GTEST_SKIP() << "a sanitizer has the allocator and the threads for itself";
#endif
    }
    ~ShortageTest() override
    {
        std::filesystem::remove(mReport);
    }

    /// Runs the program with the aCall-th call of a kind refused. \return How many it made; 0: it was killed.
    int Run(const std::string& aKind, int aCall)
    {
        std::filesystem::remove(mReport);
        const std::string lRefuse = aKind + ' ' + std::to_string(aCall);
        ::setenv("LD_PRELOAD", KY_REFUSE, 1);             // NOLINT(concurrency-mt-unsafe): one thread
        ::setenv("KY_REFUSE", lRefuse.c_str(), 1);        // NOLINT(concurrency-mt-unsafe)
        ::setenv("KY_REFUSE_REPORT", mReport.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
        Process lProgram;
        Process::Files lFiles;
        lFiles.mInputText = GetParam().mInput;
        const bool lStarted = lProgram.Start(GetParam().mProgram, GetParam().mArguments, lFiles);
        ::unsetenv("LD_PRELOAD"); // NOLINT(concurrency-mt-unsafe)
        EXPECT_TRUE(lStarted);
        const std::optional<int> lStatus = lProgram.Wait();
        CheckEnd(lRefuse, lStatus, lProgram.Error());
        return std::atoi(KyTest::ReadFile(mReport).c_str());
    }

    void CheckEnd(const std::string& aRefuse, const std::optional<int>& aStatus, const std::string& aError)
    {
        EXPECT_TRUE(aStatus == 0 || aStatus == 1)
            << aRefuse << ": " << (aStatus.has_value() ? std::to_string(*aStatus) : "killed") << '\n'
            << aError;
        EXPECT_EQ(aError.find("terminate called"), std::string::npos) << aRefuse << '\n' << aError;
        if (aStatus == 1)
        {
            EXPECT_NE(aError.find(GetParam().mSays), std::string::npos) << aRefuse << '\n' << aError;
        }
    }

    /// As many calls as a short run has time for, spread evenly; KYSERIAL_REFUSALS of them in a long one.
    void Sweep(const std::string& aKind)
    {
        const int lCalls = Run(aKind, 0);
        ASSERT_GT(lCalls, 0);
        const char* const lLong = std::getenv("KYSERIAL_REFUSALS"); // NOLINT(concurrency-mt-unsafe)
        const int lRuns = std::min(lCalls, lLong != nullptr ? std::atoi(lLong) : 25);
        for (int lRun = 0; lRun < lRuns; ++lRun)
        {
            Run(aKind, 1 + static_cast<int>(int64_t{lCalls} * lRun / lRuns));
        }
        std::cout << GetParam().mName << ": " << lCalls << " calls, " << lRuns << " refused\n";
    }

    const std::string mReport = std::filesystem::temp_directory_path() / UniqueName("KyRefused");
};

TEST_P(ShortageTest, RefusedMemoryEndsTheProgramInOrder)
{
    Sweep("memory");
}

TEST_P(ShortageTest, RefusedThreadsEndTheProgramInOrder)
{
    if (GetParam().mName == "Clser")
    {
        GTEST_SKIP() << "it starts no threads";
    }
    Sweep("thread");
}

TEST_P(ShortageTest, RefusedDescriptorsEndTheProgramInOrder)
{
    Sweep("descriptor");
}

/// A program in C that uses a camera of the library.
class CameraShortageTest : public ShortageTest
{
};

TEST_P(CameraShortageTest, RefusedThreadsAreAFailureOfTheCamera)
{
    Sweep("thread");
}

INSTANTIATE_TEST_SUITE_P(
    Programs, CameraShortageTest,
    testing::Values(Case{
        "SerialPortC", "ExampleSerialPortC", {}, "", "FAILURE The system has no thread for the camera."}),
    [](const auto& aInfo) { return aInfo.param.mName; });

INSTANTIATE_TEST_SUITE_P(
    Programs, ShortageTest,
    testing::Values(Case{"Term", "kyserial", {"term", "--port", "uart0", "--device", "sim"}, "A?\r\n"},
                    Case{"Clser", "kyserial", {"clser", "list"}, ""},
                    Case{"Bridge",
                         "kyserial",
                         {"bridge", "--port", "uart0", "--device", "sim", "--clser", UniqueName("KyShort"),
                          "--quiet", "--duration", "1"},
                         ""},
                    Case{"Pty",
                         "kyserial",
                         {"bridge", "--port", "uart0", "--device", "sim", "--pty",
                          std::filesystem::temp_directory_path() / UniqueName("KyShortPty"), "--quiet",
                          "--duration", "1"},
                         ""},
                    Case{"Camera",
                         "kyserial-camera",
                         {"--address", "127.0.0.1", "--port", "0", "--no-broadcast"},
                         "quit\n"}),
    [](const auto& aInfo) { return aInfo.param.mName; });

} // namespace
