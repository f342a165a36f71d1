#include "Adapters/GigE/RegisterSpace.h"

#include "Adapters/GigE/GenApi/EventAddress.h"
#include "Support/ResultMatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>

namespace
{

using namespace KyGigE;

constexpr uint16_t cSomeEvent = 0x9200;

/// The space of a client that is not connected: what reaches the device fails with NO_CONNECTION.
class RegisterSpaceTest : public testing::Test
{
protected:
    GvcpClient mClient{{"127.0.0.1", 1, ""}, {}};
    EventStore mStore;
    std::atomic<uint64_t> mForeignWrites{3};
    RegisterSpace mSpace{mClient, mStore, mForeignWrites};
    std::array<uint8_t, 8> mBytes{};
};

TEST_F(RegisterSpaceTest, AddressesBeyondTheDevicesOwnAreRefused)
{
    struct Access
    {
        uint64_t mAddress;
        uint64_t mSize;
        uint32_t mCode;
    };
    for (const Access& lAccess :
         {Access{0xFFFFFFF8, 8, KyResult::NO_CONNECTION}, Access{0xFFFFFFF9, 8, KyGvcp::cInvalidAddress},
          Access{0x100000000, 0, KyGvcp::cInvalidAddress}, Access{0, 0x100000001, KyGvcp::cInvalidAddress},
          Access{8, UINT64_MAX, KyGvcp::cInvalidAddress}})
    {
        EXPECT_EQ(lAccess.mCode, mSpace.ReadMemory(lAccess.mAddress, mBytes.data(), lAccess.mSize).GetCode())
            << lAccess.mAddress;
        EXPECT_EQ(lAccess.mCode, mSpace.WriteMemory(lAccess.mAddress, mBytes.data(), lAccess.mSize).GetCode())
            << lAccess.mAddress;
    }
    uint32_t lValue = 1;
    EXPECT_EQ(KyGvcp::cInvalidAddress, mSpace.ReadRegister(0xFFFFFFFD, lValue).GetCode());
    EXPECT_EQ(0U, lValue);
    EXPECT_EQ(KyGvcp::cInvalidAddress, mSpace.WriteRegister(0xFFFFFFFD, 1).GetCode());
    EXPECT_EQ(KyResult::NO_CONNECTION, mSpace.WriteRegister(0xFFFFFFFC, 1).GetCode());
}

TEST_F(RegisterSpaceTest, EventsAreReadHereAndCannotBeWritten)
{
    const std::array<uint8_t, 20> lItem = {0, 20, 0x92, 0, 0, 0, 0,   0,   0,   0,
                                           0, 0,  0,    0, 0, 0, 'a', 'b', 'c', 'd'};
    mStore.Begin(cSomeEvent, lItem.data(), lItem.size(), 16);
    mStore.End();
    EXPECT_TRUE(mSpace.ReadMemory(EventAddress(cSomeEvent) + 16, mBytes.data(), 4).IsOK());
    EXPECT_EQ('a', mBytes[0]);
    EXPECT_EQ('d', mBytes[3]);
    EXPECT_EQ(KyGvcp::cWriteProtect,
              mSpace.WriteMemory(EventAddress(cSomeEvent), mBytes.data(), 4).GetCode());
}

TEST_F(RegisterSpaceTest, WritesPastTheFeaturesAreCountedElsewhere)
{
    EXPECT_EQ(3U, mSpace.GetForeignWrites());
    ++mForeignWrites;
    EXPECT_EQ(4U, mSpace.GetForeignWrites());
}

} // namespace
