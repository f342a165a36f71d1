#pragma once

#include "KySerial/EngineTest.h"

#include "IRegisterSerialPort.h"

namespace KyTest
{

inline constexpr char cDownstream[] = "Bulk0DownstreamData";
inline constexpr char cUpstreamBuffer[] = "EventBulk0UpstreamDataBuffer";
inline constexpr char cUpstreamLength[] = "EventBulk0UpstreamDataLength";

/// What the three features of bulk port aIndex ask the adapter.
inline Calls AskFeatures(int aIndex)
{
    const std::string lIndex = std::to_string(aIndex);
    return {"IsRegisterFeatureAvailable(Bulk" + lIndex + "DownstreamData)",
            "IsIntegerFeatureAvailable(EventBulk" + lIndex + "UpstreamDataLength)",
            "IsRegisterFeatureAvailable(EventBulk" + lIndex + "UpstreamDataBuffer)"};
}

/// What IsSupported() asks the adapter.
inline Calls AskSupport(int aIndex)
{
    return Join({{"IsConnected", "IsKorvoVideoInterface"}, AskFeatures(aIndex)});
}

/// What switching the upstream event of a port to a value asks the adapter, when both differ now.
inline Calls SwitchEvent(int aIndex, const std::string& aValue, const std::string& aSelector = "Other")
{
    return {"IsFeatureAvailable(EventSelector)",
            "GetFeatureAsString(EventSelector)",
            "SetFeatureFromString(EventSelector, \"Bulk" + std::to_string(aIndex) + "UpstreamData\")",
            "IsFeatureAvailable(EventNotification)",
            "GetFeatureAsString(EventNotification)",
            "SetFeatureFromString(EventNotification, \"" + aValue + "\")",
            "SetFeatureFromString(EventSelector, \"" + aSelector + "\")"};
}

/// What Open() asks the adapter before it switches the event on.
inline Calls ClaimFeatures(int aIndex)
{
    return Join({{"IsConnected"},
                 AskSupport(aIndex),
                 cIdentify,
                 AskFeatures(aIndex),
                 {"RegisterEventSink",
                  "RegisterFeatureInterest(EventBulk" + std::to_string(aIndex) + "UpstreamDataBuffer)"}});
}

/// What Close() asks the adapter after it switched the event back.
inline Calls ReleaseFeatures(int aIndex)
{
    return Join({{"UnregisterFeatureInterest(EventBulk" + std::to_string(aIndex) + "UpstreamDataBuffer)",
                  "UnregisterEventSink"},
                 cIdentify});
}

/// The calls less the questions for the byte order, whose number does not matter.
inline Calls WithoutByteOrder(Calls aCalls)
{
    std::erase(aCalls, "IsGigEVision");
    return aCalls;
}

} // namespace KyTest
