#pragma once

#include <cstddef>

/// The functions of IKyDeviceAdapter in their order.
// clang-format off
#define KYTEST_ADAPTER_SLOTS(aDo) \
    aDo(Reserved0) \
    aDo(IsIntegerFeatureAvailable) \
    aDo(IsFeatureAvailable) \
    aDo(Reserved3) \
    aDo(IsRegisterFeatureAvailable) \
    aDo(IsFeatureReadable) \
    aDo(IsFeatureWritable) \
    aDo(IsEnumEntryAvailable) \
    aDo(GetIntegerValue) \
    aDo(GetEnumEntries) \
    aDo(GetFeatureAsString) \
    aDo(SetFeatureFromString) \
    aDo(Reserved12) \
    aDo(Reserved13) \
    aDo(GetStringValue) \
    aDo(GetRegisterLength) \
    aDo(GetRegisterData) \
    aDo(SetRegisterData) \
    aDo(RegisterFeatureInterest) \
    aDo(UnregisterFeatureInterest) \
    aDo(WriteRegister) \
    aDo(ReadRegister) \
    aDo(WriteMemory) \
    aDo(Reserved23) \
    aDo(PostWrite) \
    aDo(IsConnected) \
    aDo(IsKorvoVideoInterface) \
    aDo(IsGigEVision) \
    aDo(IsAlternateTransport) \
    aDo(RegisterEventSink) \
    aDo(UnregisterEventSink)
// clang-format on

namespace KyTest
{

/// The adapter's functions by the number of their slot.
enum class Slot : int
{
#define KYTEST_ENUMERATOR(aName) aName,
    KYTEST_ADAPTER_SLOTS(KYTEST_ENUMERATOR) Count
#undef KYTEST_ENUMERATOR
};

/// The name of a slot's function.
inline const char* GetSlotName(Slot aSlot)
{
#define KYTEST_NAME(aName) #aName,
    static constexpr const char* cNames[] = {KYTEST_ADAPTER_SLOTS(KYTEST_NAME)};
#undef KYTEST_NAME
    return cNames[static_cast<size_t>(aSlot)];
}

} // namespace KyTest
