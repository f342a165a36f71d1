#include "Serve/ServedDeviceTest.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <pthread.h>

using namespace KyTest;

namespace
{

/// For its life the system refuses new threads: their stacks would be larger than all memory.
class NoThread
{
public:
    explicit NoThread(int /*aAllocation*/)
    {
        pthread_attr_t lAttributes{};
        EXPECT_EQ(::pthread_getattr_default_np(&lAttributes), 0);
        EXPECT_EQ(::pthread_attr_getstacksize(&lAttributes, &mFormer), 0);
        Set(lAttributes, size_t{1} << 60U);
    }
    ~NoThread()
    {
        pthread_attr_t lAttributes{};
        EXPECT_EQ(::pthread_getattr_default_np(&lAttributes), 0);
        Set(lAttributes, mFormer);
    }
    NoThread(const NoThread&) = delete;
    NoThread& operator=(const NoThread&) = delete;

private:
    static void Set(pthread_attr_t& aAttributes, size_t aSize)
    {
        EXPECT_EQ(::pthread_attr_setstacksize(&aAttributes, aSize), 0);
        EXPECT_EQ(::pthread_setattr_default_np(&aAttributes), 0);
        EXPECT_EQ(::pthread_attr_destroy(&aAttributes), 0);
    }

    size_t mFormer = 0;
    AllocationCounter mCounter{}; // last: of what is refused alone
};

INSTANTIATE_TYPED_TEST_SUITE_P(WithoutThreads, ServedDeviceTest, NoThread);

} // namespace
