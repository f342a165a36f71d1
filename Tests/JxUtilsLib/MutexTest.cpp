#include "JxUtilsLib/LockScope.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{

struct Counter
{
    JxUtilsLib::Mutex mMutex;
    int mValue JX_GUARDED_BY(mMutex) = 0;

    void Add()
    {
        const JxUtilsLib::LockScope lLock(mMutex);
        const int lValue = mValue;
        std::this_thread::yield();
        mValue = lValue + 1;
    }
    int Get()
    {
        mMutex.Wait();
        const int lValue = mValue;
        mMutex.Release();
        return lValue;
    }
};

TEST(MutexTest, OneThreadAtATime)
{
    Counter lCounter;
    std::vector<std::thread> lThreads;
    lThreads.reserve(4);
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        lThreads.emplace_back(
            [&lCounter]
            {
                for (int lTurn = 0; lTurn < 500; ++lTurn)
                {
                    lCounter.Add();
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
    EXPECT_EQ(lCounter.Get(), 2000);
}

} // namespace
