#include "Simulator/Camera/AdapterSlot.h"

#include <array>

namespace KySimulator
{

const char* NameOf(AdapterSlot aSlot)
{
    // By slot number. An empty text stands for one of the five reserved slots.
    static constexpr std::array<const char*, cAdapterSlots> cNames = {
        "",
        "IsIntegerFeatureAvailable",
        "IsFeatureAvailable",
        "",
        "IsRegisterFeatureAvailable",
        "IsFeatureReadable",
        "IsFeatureWritable",
        "IsEnumEntryAvailable",
        "GetIntegerValue",
        "GetEnumEntries",
        "GetFeatureAsString",
        "SetFeatureFromString",
        "",
        "",
        "GetStringValue",
        "GetRegisterLength",
        "GetRegisterData",
        "SetRegisterData",
        "RegisterFeatureInterest",
        "UnregisterFeatureInterest",
        "WriteRegister",
        "ReadRegister",
        "WriteMemory",
        "",
        "PostWrite",
        "IsConnected",
        "IsKorvoVideoInterface",
        "IsGigEVision",
        "IsAlternateTransport",
        "RegisterEventSink",
        "UnregisterEventSink",
    };
    const auto lIndex = static_cast<size_t>(aSlot);
    return lIndex < cNames.size() ? cNames[lIndex] : "";
}

} // namespace KySimulator
