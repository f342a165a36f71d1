// Programs that are started without standard streams.

#include "Platform/StandardStreams.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "KyPlatform/StopEvent.h"
#include "Platform/PseudoTerminal.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KyPlatform;
using namespace KyToolPlatform;

namespace
{

/// The exit status of a child that begins with these streams closed.
template<typename tDeed>
int RunWithout(std::initializer_list<int> aStreams, const tDeed& aDeed)
{
    const pid_t lChild = ::fork();
    if (lChild == 0)
    {
        for (const int lStream : aStreams)
        {
            ::close(lStream);
        }
        ::_exit(aDeed());
    }
    int lStatus = -1;
    EXPECT_EQ(::waitpid(lChild, &lStatus, 0), lChild);
    EXPECT_TRUE(WIFEXITED(lStatus));
    return WEXITSTATUS(lStatus);
}

bool IsOpen(int aDescriptor)
{
    return ::fcntl(aDescriptor, F_GETFD) >= 0;
}

TEST(StandardStreamsTest, NothingOfTheLibraryTakesTheNumberOfAClosedStream)
{
    const auto lUse = []
    {
        NamedMutex lMutex;
        SharedMemory lMemory;
        StopEvent lStop;
        PseudoTerminal lTerminal;
        bool lNew = false;
        const std::string lName = "Local\\" + UniqueName("KyStream");
        const bool lDone = lMutex.Create(lName) && lMemory.Create(lName, 8, lNew) && lStop.Create() &&
                           lTerminal.Create() && lMutex.Wait(0) == WaitResult::Done;
        return !lDone ? 4 : (IsOpen(0) ? 1 : 0) + (IsOpen(1) ? 1 : 0) + (IsOpen(2) ? 1 : 0);
    };
    EXPECT_EQ(RunWithout({0, 1, 2}, lUse), 0);
    EXPECT_EQ(RunWithout({1}, lUse), 2);
}

TEST(StandardStreamsTest, ClosedStreamsBecomeTheNullDeviceAndOthersStay)
{
    const auto lIsNull = [](int aStream)
    {
        struct stat lStream = {};
        struct stat lNull = {};
        return ::fstat(aStream, &lStream) == 0 && ::stat("/dev/null", &lNull) == 0 &&
               lStream.st_rdev == lNull.st_rdev && S_ISCHR(lStream.st_mode);
    };
    int lPipe[2];
    ASSERT_EQ(::pipe(lPipe), 0);
    const auto lComplete = [&]
    {
        char lByte = 0;
        const bool lDone = StandardStreams::Complete();
        const bool lIsNew = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC) > 2;
        const bool lWorks = ::read(0, &lByte, 1) == 0 && ::write(2, "x", 1) == 1;
        return (lDone && lIsNew && lWorks && lIsNull(0) && lIsNull(2) ? 0 : 1) + (lIsNull(1) ? 0 : 2);
    };
    EXPECT_EQ(RunWithout({0, 1, 2}, lComplete), 0);
    EXPECT_EQ(RunWithout({0, 2}, [&] { return ::dup2(lPipe[1], 1) == 1 ? lComplete() : 4; }), 2);
    ::close(lPipe[0]);
    ::close(lPipe[1]);
}

TEST(StandardStreamsTest, MissingNullDeviceIsReportedAndNothingIsOpened)
{
    const KyTest::ScriptedCall<&SystemCalls::mOpen> lOpen(ENOENT);
    EXPECT_TRUE(StandardStreams::Complete()); // nothing is missing
    EXPECT_EQ(RunWithout({1}, [] { return StandardStreams::Complete() || IsOpen(1) ? 1 : 0; }), 0);
}

} // namespace
