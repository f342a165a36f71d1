#include "KyGvcp/HostName.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>

namespace
{

using namespace KyGvcp;
using namespace std::chrono_literals;
using Address = std::optional<uint32_t>;

/// A name server that answers when it is released.
class SlowServer
{
public:
    Address Answer()
    {
        std::unique_lock lLock(mLock);
        mChanged.wait(lLock, [this] { return mIsReleased; });
        return 1;
    }
    void Release()
    {
        const std::lock_guard lLock(mLock);
        mIsReleased = true;
        mChanged.notify_all();
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mIsReleased = false;
};

TEST(HostNameTest, TakesNamesAndNothingElse)
{
    for (const char* const lName : {"localhost", "camera-7.example", "A", "7eyes", "a.b.c."})
    {
        EXPECT_TRUE(IsHostName(lName)) << lName;
    }
    for (const std::string& lName :
         {std::string(), std::string("1.2.3.4"), std::string("1.2.3"), std::string("a_b"), std::string("a b"),
          std::string("-a"), std::string(".a"), std::string("a/"), std::string(254, 'a'),
          std::string("a\0b", 3)})
    {
        EXPECT_FALSE(IsHostName(lName)) << lName;
    }
}

TEST(HostNameTest, FindsThisComputer)
{
    std::string lError = "kept";
    EXPECT_EQ(FindAddress("localhost", cLongestLookUp, {}, lError), Address(0x7F000001));
    EXPECT_EQ(lError, "kept");
}

TEST(HostNameTest, AnAddressIsNotAskedFor)
{
    std::string lError;
    const auto lAsk = [](const std::string& aName) -> Address
    {
        ADD_FAILURE() << aName;
        return {};
    };
    EXPECT_EQ(FindAddress("10.0.0.1", 0ms, {}, lError, lAsk), Address(0x0A000001));
    EXPECT_FALSE(FindAddress("1.2.3", 0ms, {}, lError, lAsk));
    EXPECT_EQ(lError, "\"1.2.3\" is no IPv4 address and no name of a host");
}

TEST(HostNameTest, SaysThatThereIsNoSuchHost)
{
    std::string lError;
    EXPECT_FALSE(FindAddress("camera", 20s, {}, lError, [](const std::string&) { return Address(); }));
    EXPECT_EQ(lError, "the system knows no host \"camera\"");
}

// The thread of each ends about when its caller lets go of it.
TEST(HostNameTest, ManyLookUpsThatEndAtOnceAllGiveTheirAddress)
{
    std::string lError;
    for (uint32_t lAddress = 0; lAddress < 2000; ++lAddress)
    {
        ASSERT_EQ(
            FindAddress("camera", 20s, {}, lError, [=](const std::string&) { return Address(lAddress); }),
            Address(lAddress))
            << lError;
    }
}

TEST(HostNameTest, AServerThatDoesNotAnswerIsNotWaitedFor)
{
    const auto lServer = std::make_shared<SlowServer>();
    std::string lError;
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_FALSE(FindAddress("camera", 120ms, {}, lError,
                             [lServer](const std::string&) { return lServer->Answer(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, 120ms);
    EXPECT_EQ(lError, "the system did not find the host \"camera\" in time");
    lServer->Release(); // the answer that nobody needs
}

TEST(HostNameTest, AWaitForANameCanBeCancelled)
{
    const auto lServer = std::make_shared<SlowServer>();
    std::string lError;
    int lLooks = 0;
    EXPECT_FALSE(FindAddress(
        "camera", std::chrono::hours(1), [&] { return ++lLooks > 2; }, lError,
        [lServer](const std::string&) { return lServer->Answer(); }));
    lServer->Release();
}

} // namespace
