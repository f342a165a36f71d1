// How often, and for how long, the registry tries to get its lock.

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/NamedMutex.h"
#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedregistry.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using JxUtilsLib::Thread;
using KyPlatform::NamedMutex;
using KySerialLib::SharedRegistry;

namespace
{

constexpr char cMutex[] = "KySerialBridgeRegistryMutex";
constexpr uint64_t cPause = 100; // ms

class RegistryAttemptTest : public testing::Test
{
protected:
    // The number of files that are opened, while the first aRefused of them are refused.
    int CountOpens(int aRefused, const std::function<void()>& aOperation)
    {
        int lOpens = 0;
        const KyTest::ScriptedCall<&KyPlatform::SystemCalls::mOpen> lOpen(
            [&](int aFolder, const char* aName, int aFlags, mode_t aMode)
            {
                errno = EACCES;
                return ++lOpens <= aRefused
                           ? -1
                           : KyPlatform::GetRealSystem().mOpen(aFolder, aName, aFlags, aMode);
            });
        aOperation();
        return lOpens;
    }
    static constexpr int cAll = 1000000;

    const PrivateSession mSession;
    KyTest::AssertRecorder mAsserts;
};

TEST_F(RegistryAttemptTest, FiveTriesForTheLockAHundredMillisecondsApart)
{
    const int lProbe = CountOpens(cAll,
                                  []
                                  {
                                      NamedMutex lMutex;
                                      EXPECT_FALSE(lMutex.Open(std::string("Session\\0\\") + cMutex));
                                  });
    const int lTry = CountOpens(cAll,
                                []
                                {
                                    NamedMutex lMutex;
                                    EXPECT_FALSE(lMutex.Create(std::string("Local\\") + cMutex) ||
                                                 lMutex.Open(std::string("Local\\") + cMutex));
                                });
    ASSERT_GT(lTry, 0);
    const uint64_t lStart = Thread::GetTickCount();
    const int lAll = CountOpens(cAll, [] { EXPECT_FALSE(SharedRegistry(true).IsValid()); });
    EXPECT_GE(Thread::GetTickCount() - lStart + 1, 5 * cPause); // a tick may be cut off at either end
    EXPECT_EQ(lAll, 32 * lProbe + 5 * lTry);
    EXPECT_EQ(mAsserts.Take(),
              KyTest::Broken({"( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )"}));

    // The fifth is one of them.
    const int lUntilFifth = 32 * lProbe + 4 * lTry;
    const uint64_t lSecondStart = Thread::GetTickCount();
    CountOpens(lUntilFifth, [] { EXPECT_TRUE(SharedRegistry(true).IsValid()); });
    EXPECT_GE(Thread::GetTickCount() - lSecondStart + 1, 4 * cPause);
}

} // namespace
