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

template<typename Signature, typename Function, typename Class>
bool Is(Function Class::* /*aFunction*/)
{
    return std::is_same_v<Function, Signature>;
}

TEST(AdapterInterfaceTest, KeepsTheTypesOfItsFunctions)
{
    using Adapter = IKyDeviceAdapter;
    using Name = const KyString&;
    EXPECT_TRUE(Is<bool(Name)>(&Adapter::IsIntegerFeatureAvailable));
    EXPECT_TRUE((Is<bool(Name, Name)>(&Adapter::IsEnumEntryAvailable)));
    EXPECT_TRUE((Is<KyResult(Name, int64_t&)>(&Adapter::GetIntegerValue)));
    EXPECT_TRUE((Is<KyResult(Name, KyStringList&)>(&Adapter::GetEnumEntries)));
    EXPECT_TRUE((Is<KyResult(Name, KyString&)>(&Adapter::GetFeatureAsString)));
    EXPECT_TRUE((Is<KyResult(Name, Name)>(&Adapter::SetFeatureFromString)));
    EXPECT_TRUE((Is<KyResult(Name, int64_t&)>(&Adapter::GetRegisterLength)));
    EXPECT_TRUE((Is<KyResult(Name, uint8_t*, int64_t)>(&Adapter::GetRegisterData)));
    EXPECT_TRUE((Is<KyResult(Name, const uint8_t*, int64_t)>(&Adapter::SetRegisterData)));
    EXPECT_TRUE((Is<KyResult(uint32_t, uint32_t)>(&Adapter::WriteRegister)));
    EXPECT_TRUE((Is<KyResult(uint32_t, uint32_t&)>(&Adapter::ReadRegister)));
    EXPECT_TRUE((Is<KyResult(const uint8_t*, uint32_t, uint32_t)>(&Adapter::WriteMemory)));
    EXPECT_TRUE(Is<KyResult(uint32_t)>(&Adapter::PostWrite));
    EXPECT_TRUE(Is<KyResult(IKyDeviceEventSink*)>(&Adapter::RegisterEventSink));
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
        (Is<void(uint16_t, uint16_t, uint64_t, uint64_t, const void*, uint32_t)>(&Sink::NotifyEvent)));
    EXPECT_TRUE(Is<void(const KyString*)>(&Sink::NotifyFeatureInvalidated));
}

} // namespace
