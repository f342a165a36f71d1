// How often, and for how long, the registry tries to get its lock.

#include "JxUtilsLib/Thread.h"
#include "Support/AssertRecorder.h"
#include "Tests/KyPlatform/Linux/ScriptedCall.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedregistry.h"

#include <gtest/gtest.h>

using JxUtilsLib::Thread;
using KySerialLib::SharedRegistry;

namespace
{

constexpr uint64_t cPause = 100; // ms

class RegistryAttemptTest : public testing::Test
{
protected:
    // Makes a registry while the first aRefused tries to make its lock are refused; each begins with the folder.
    // \return Whether it is valid.
    bool MakeRegistry(int aRefused)
    {
        mTries = 0;
        const KyTest::ScriptedCall<&KyPlatform::SystemCalls::mMakeFolder> lMake(
            [&](const char* aPath, mode_t aMode)
            {
                errno = EACCES;
                return ++mTries <= aRefused ? -1 : KyPlatform::GetRealSystem().mMakeFolder(aPath, aMode);
            });
        return SharedRegistry(true).IsValid();
    }

    int mTries = 0;
    const PrivateSession mSession;
    KyTest::AssertRecorder mAsserts;
};

TEST_F(RegistryAttemptTest, FiveTriesForTheLockAHundredMillisecondsApart)
{
    const uint64_t lStart = Thread::GetTickCount();
    EXPECT_FALSE(MakeRegistry(1000));
    EXPECT_EQ(mTries, 5);
    EXPECT_GE(Thread::GetTickCount() - lStart + 1, 5 * cPause); // a tick may be cut off at either end
    EXPECT_EQ(mAsserts.Take(),
              KyTest::Broken({"( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )"}));

    // The fifth is one of them.
    const uint64_t lSecondStart = Thread::GetTickCount();
    EXPECT_TRUE(MakeRegistry(4));
    EXPECT_GE(Thread::GetTickCount() - lSecondStart + 1, 4 * cPause);
}

} // namespace
