#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/IKyDeviceEventSink.h"
#include "Support/ScriptedAdapter.h"
#include "Support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace KyTest;

namespace
{

// One more function than the interface: its slot is the number of functions of the interface.
class ExtendedAdapter : public IKyDeviceAdapter
{
public:
    virtual void Added() = 0;
};

class ExtendedSink : public IKyDeviceEventSink
{
public:
    virtual void Added() = 0;
};

TEST(AdapterInterfaceTest, HasThirtyOneFunctionsAndNoDestructorAmongThem)
{
    EXPECT_EQ(GetVirtualSlot(&ExtendedAdapter::Added), 31);
    EXPECT_FALSE(std::has_virtual_destructor_v<IKyDeviceAdapter>);
    EXPECT_EQ(sizeof(IKyDeviceAdapter), sizeof(void*));
}

TEST(AdapterInterfaceTest, KeepsTheOrderOfItsFunctions)
{
#define KYTEST_CHECK(aName)                                                                                  \
    EXPECT_EQ(GetVirtualSlot(&IKyDeviceAdapter::aName), static_cast<int>(Slot::aName)) << #aName;
    KYTEST_ADAPTER_SLOTS(KYTEST_CHECK)
#undef KYTEST_CHECK
}

TEST(AdapterInterfaceTest, KeepsTheTypesOfItsFunctions)
{
    using Adapter = IKyDeviceAdapter;
    using Name = const KyString&;
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::IsIntegerFeatureAvailable), bool (Adapter::*)(Name)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::IsEnumEntryAvailable), bool (Adapter::*)(Name, Name)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::GetIntegerValue), KyResult (Adapter::*)(Name, int64_t&)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::GetEnumEntries), KyResult (Adapter::*)(Name, KyStringList&)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::GetFeatureAsString), KyResult (Adapter::*)(Name, KyString&)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::SetFeatureFromString), KyResult (Adapter::*)(Name, Name)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::GetRegisterLength), KyResult (Adapter::*)(Name, int64_t&)>));
    EXPECT_TRUE((
        std::is_same_v<decltype(&Adapter::GetRegisterData), KyResult (Adapter::*)(Name, uint8_t*, int64_t)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::SetRegisterData),
                                KyResult (Adapter::*)(Name, const uint8_t*, int64_t)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::WriteRegister), KyResult (Adapter::*)(uint32_t, uint32_t)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::ReadRegister), KyResult (Adapter::*)(uint32_t, uint32_t&)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::WriteMemory),
                                KyResult (Adapter::*)(const uint8_t*, uint32_t, uint32_t)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Adapter::PostWrite), KyResult (Adapter::*)(uint32_t)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Adapter::RegisterEventSink), KyResult (Adapter::*)(IKyDeviceEventSink*)>));
}

TEST(EventSinkInterfaceTest, HasTwoFunctionsInOrderAndNoData)
{
    EXPECT_EQ(GetVirtualSlot(&IKyDeviceEventSink::NotifyEvent), 0);
    EXPECT_EQ(GetVirtualSlot(&IKyDeviceEventSink::NotifyFeatureInvalidated), 1);
    EXPECT_EQ(GetVirtualSlot(&ExtendedSink::Added), 2);
    EXPECT_FALSE(std::has_virtual_destructor_v<IKyDeviceEventSink>);
    EXPECT_EQ(sizeof(IKyDeviceEventSink), sizeof(void*));
}

TEST(EventSinkInterfaceTest, KeepsTheTypesOfItsFunctions)
{
    using Sink = IKyDeviceEventSink;
    EXPECT_TRUE(
        (std::is_same_v<decltype(&Sink::NotifyEvent),
                        void (Sink::*)(uint16_t, uint16_t, uint64_t, uint64_t, const void*, uint32_t)>));
    EXPECT_TRUE((std::is_same_v<decltype(&Sink::NotifyFeatureInvalidated), void (Sink::*)(const KyString*)>));
}

} // namespace
