#include "KyPlatform/Linux/Descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using namespace KyPlatform;

namespace
{

TEST(DescriptorTest, NumberIsKeptAboveTheStreamsAndFailureKeepsItsReason)
{
    const int lFile = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GT(lFile, 2);
    EXPECT_EQ(MoveUp(lFile), lFile);
    ::close(lFile);
    errno = EMFILE;
    EXPECT_EQ(MoveUp(-1), -1);
    EXPECT_EQ(errno, EMFILE);
}

} // namespace
