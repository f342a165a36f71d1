// Programs whose standard streams are closed, full or no files at all.

#include "Tests/Support/Process.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using KyTest::Process;

namespace
{

/// Runs a line of the shell beside the programs. \return Its exit status; -1 when a signal ended it.
int RunShell(const std::string& aLine)
{
    const std::string lLine = "cd " KY_PROGRAMS " && " + aLine;
    const int lStatus =
        std::system(lLine.c_str()); // NOLINT(concurrency-mt-unsafe, cert-env33-c): the test's own
    return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -1;
}

TEST(ClosedStreamTest, BridgeWithoutStreamsWritesItsNotesToNobody)
{
    const std::filesystem::path lLink = std::filesystem::temp_directory_path() / UniqueName("KyClosed");
    const pid_t lBridge = ::fork();
    if (lBridge == 0)
    {
        ::close(0);
        ::close(1);
        ::close(2);
        ::execl(KY_PROGRAMS "/kyserial", "kyserial", "bridge", "--device", "sim", "--port", "uart0", "--pty",
                lLink.c_str(), "--stats-json", "--stats-interval", "100", nullptr);
        ::_exit(99);
    }
    int lStatus = 0;
    while (!std::filesystem::exists(lLink))
    {
        ASSERT_EQ(::waitpid(lBridge, &lStatus, WNOHANG), 0) << lStatus;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    for (const char* lStream : {"0", "1", "2"})
    {
        std::error_code lError;
        EXPECT_EQ(
            std::filesystem::read_symlink("/proc/" + std::to_string(lBridge) + "/fd/" + lStream, lError),
            "/dev/null")
            << lStream;
    }
    ::kill(lBridge, SIGTERM);
    ASSERT_EQ(::waitpid(lBridge, &lStatus, 0), lBridge);
    EXPECT_TRUE(WIFEXITED(lStatus) && WEXITSTATUS(lStatus) == 0) << lStatus;
}

TEST(ClosedStreamTest, CommandWithClosedInputEnds)
{
    EXPECT_EQ(RunShell("./kyserial term --device sim --port uart0 <&- >/dev/null 2>&1"), 0);
    EXPECT_EQ(RunShell("./kyserial clser list <&- >&- 2>&-"), 0);
}

TEST(ClosedStreamTest, FullOutputIsAFailure)
{
    EXPECT_EQ(RunShell("./kyserial-camera --address 127.0.0.1 --port 0 --no-broadcast </dev/null "
                       ">/dev/full 2>/dev/null"),
              1);
    EXPECT_EQ(RunShell("./kyserial-camera --help >/dev/full 2>/dev/null"), 1);
    EXPECT_EQ(RunShell("./kyserial clser list --json >/dev/full 2>/dev/null"), 1);
}

TEST(ClosedStreamTest, StateFileWithoutAnEndIsRefused)
{
    EXPECT_EQ(
        RunShell("./kyserial term --device sim --port uart0 --sim-state /dev/full </dev/null 2>/dev/null"),
        1);
}

TEST(DescriptorTest, SearchForDevicesWithoutADescriptorSaysWhatIsMissing)
{
#if defined(KYTEST_INSTRUMENTED)
    GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
    // The one descriptor is for the program's libraries: what runs the tests may have left it open.
    EXPECT_EQ(RunShell("sh -c 'ulimit -n 4; exec ./kyserial devices' 2>&1 3>&- | grep -qx 'kyserial: devices "
                       "cannot be looked for: no socket: Too many open files'"),
              0);
}

TEST(ClosedStreamTest, CameraWhoseStateCannotBeWrittenAtTheEndFails)
{
    const std::string lState = KY_PROGRAMS "/no such folder/state";
    Process lCamera;
    ASSERT_TRUE(lCamera.Start("kyserial-camera",
                              {"--address", "127.0.0.1", "--port", "0", "--no-broadcast", "--state", lState},
                              Process::Files{}));
    EXPECT_TRUE(lCamera.WaitForOutput("ready"));
    EXPECT_TRUE(lCamera.AskToEnd());
    EXPECT_EQ(lCamera.Wait(), 1);
    EXPECT_EQ(lCamera.Error(), "kyserial-camera: --state: cannot write " + lState + "\n");
}

TEST(ClosedStreamTest, DirectoryAsAFileSaysSo)
{
    Process lProgram;
    ASSERT_TRUE(lProgram.Start(
        "kyserial", {"spi", "flash", "write", "/", "--device", "sim", "--port", "bulk0"}, Process::Files{}));
    EXPECT_EQ(lProgram.Wait(), 1);
    EXPECT_NE(lProgram.Error().find("cannot read /: it is a directory"), std::string::npos)
        << lProgram.Error();
}

} // namespace
