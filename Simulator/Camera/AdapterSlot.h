#pragma once

#include <cstddef>
#include <cstdint>

namespace KySimulator
{

/// An adapter operation, by its slot. The reserved ones have no name: they do nothing and are not counted.
enum class AdapterSlot : uint32_t
{
    IsIntegerFeatureAvailable = 1,
    IsFeatureAvailable = 2,
    IsRegisterFeatureAvailable = 4,
    IsFeatureReadable = 5,
    IsFeatureWritable = 6,
    IsEnumEntryAvailable = 7,
    GetIntegerValue = 8,
    GetEnumEntries = 9,
    GetFeatureAsString = 10,
    SetFeatureFromString = 11,
    GetStringValue = 14,
    GetRegisterLength = 15,
    GetRegisterData = 16,
    SetRegisterData = 17,
    RegisterFeatureInterest = 18,
    UnregisterFeatureInterest = 19,
    WriteRegister = 20,
    ReadRegister = 21,
    WriteMemory = 22,
    PostWrite = 24,
    IsConnected = 25,
    IsKorvoVideoInterface = 26,
    IsGigEVision = 27,
    IsAlternateTransport = 28,
    RegisterEventSink = 29,
    UnregisterEventSink = 30
};

constexpr size_t cAdapterSlots = 31;

/// The operation's name; "" for a number without one.
const char* NameOf(AdapterSlot aSlot);

} // namespace KySimulator
