// A process of the same user takes a server's name out of the registry while the server starts.

#include "BridgeCLDLL.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/RecordingLogSink.h"
#include "sharedregistry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <string>
#include <string_view>
#include <unistd.h>

using KyPlatform::gSystem;
using KyTest::ScriptedCall;
using S = KyPlatform::SystemCalls;

namespace
{

std::string GetFile(const char* aName)
{
    return gSystem.mFolder + std::to_string(gSystem.mGetUser()) + "/KySerialBridgeRegistry" + aName;
}

/// Makes the owner of the registry's lock believe that somebody sleeps, so that giving it back is a call.
void PretendToSleep()
{
    const int lFile = ::open(GetFile("Mutex.mutex").c_str(), O_RDWR | O_CLOEXEC);
    uint32_t lWord = 0;
    EXPECT_EQ(::pread(lFile, &lWord, sizeof lWord, 64), 4);
    lWord |= 0x80000000U;
    EXPECT_EQ(::pwrite(lFile, &lWord, sizeof lWord, 64), 4);
    ::close(lFile);
}

void EraseFirstName()
{
    const int lFile = ::open(GetFile("Memory.memory").c_str(), O_RDWR | O_CLOEXEC);
    constexpr auto cName = static_cast<off_t>(offsetof(KySerialLib::SharedRegistryEntry, mName));
    EXPECT_EQ(::pwrite(lFile, "", 1, cName), 1);
    ::close(lFile);
}

TEST(LostNameTest, ServerWhoseNameIsGoneBeforeItServesSaysSo)
{
    const PrivateSession lSession;
    KyTest::RecordingLogSink lLog{JxUtilsLib::PriorityFatal};
    KySerialLib::BridgeCLDLL lBridge;
    const ScriptedCall<&S::mLink> lLink(
        [](int aFrom, const char* aOld, int aTo, const char* aNew, int aFlags)
        {
            if (std::string_view(aNew) == "KySerialBridgeClientSemaphore1.semaphore")
            {
                PretendToSleep(); // the last thing that is made under the lock
            }
            return ::linkat(aFrom, aOld, aTo, aNew, aFlags);
        });
    const ScriptedCall<&S::mFutex> lWake(
        [](uint32_t*, int aOperation, uint32_t, const timespec*)
        {
            if (aOperation == FUTEX_WAKE)
            {
                EraseFirstName();
            }
            return 0L;
        });
    EXPECT_STREQ(lBridge.OpenSharedMem("Server").GetDescription().GetAscii(),
                 "Could not find bridge in registry.");
}

} // namespace
