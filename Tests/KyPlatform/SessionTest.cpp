#include "KyPlatform/Session.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

using KyPlatform::Session;
using KyPlatform::SharedMemory;

namespace
{

TEST(SessionTest, PrefixCarriesTheNumberInDecimal)
{
    EXPECT_EQ(Session::GetPrefix(0), "Session\\0\\");
    EXPECT_EQ(Session::GetPrefix(4294967295U), "Session\\4294967295\\");
}

TEST(SessionTest, OwnNumberDoesNotChange)
{
    uint32_t lFirst = 0;
    uint32_t lSecond = 1;
    ASSERT_TRUE(Session::GetOwnNumber(lFirst));
    ASSERT_TRUE(Session::GetOwnNumber(lSecond));
    EXPECT_EQ(lFirst, lSecond);
}

TEST(SessionTest, NameWithoutPrefixIsLocal)
{
    const std::string lName = UniqueName("KySession");
    SharedMemory lLocal;
    SharedMemory lPlain;
    bool lNew = false;
    ASSERT_TRUE(lLocal.Create(Session::cLocalPrefix + lName, 8, lNew));
    EXPECT_TRUE(lPlain.Open(lName));
}

} // namespace
