#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include "Simulator/Camera/AdapterEvents.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <cstdio>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

KyResult ToResult(const Outcome& aOutcome)
{
    return aOutcome.IsOk()
               ? KyResult()
               : KyResult(static_cast<uint32_t>(aOutcome.mStatus), KyString(aOutcome.mText.c_str()));
}

KyResult InvalidParameter(const char* aText)
{
    return {static_cast<uint32_t>(Status::InvalidParameter), KyString(aText)};
}

std::string TextOf(const KyString& aText)
{
    return {aText.GetAscii(), aText.GetLength()};
}

std::string Hex(uint32_t aValue)
{
    char lText[11];
    std::snprintf(lText, sizeof(lText), "0x%X", static_cast<unsigned>(aValue));
    return lText;
}

/// "3 bytes: 01 02 03", cut after 64.
std::string Bytes(const uint8_t* aData, int64_t aSize)
{
    constexpr int64_t cShown = 64;
    std::string lText = std::to_string(aSize) + " bytes:";
    for (int64_t lIndex = 0; aData != nullptr && lIndex < std::min(aSize, cShown); ++lIndex)
    {
        char lByte[4];
        std::snprintf(lByte, sizeof(lByte), " %02X", static_cast<unsigned>(aData[lIndex]));
        lText += lByte;
    }
    return aSize > cShown ? lText + " ..." : lText;
}

/// Bulk index of an upstream feature of the camera; cBulkCount for any other name.
size_t UpstreamPortOf(const std::string& aName)
{
    constexpr size_t cDigit = sizeof("EventBulk") - 1;
    const size_t lBulk = aName.size() > cDigit ? static_cast<size_t>(aName[cDigit]) - '0' : cBulkCount;
    // The whole name is compared: "EventBulk1Foo" is another feature.
    const bool lUpstream = lBulk < cBulkCount &&
                           (aName == UpstreamBufferFeature(lBulk) || aName == UpstreamLengthFeature(lBulk));
    return lUpstream ? lBulk : cBulkCount;
}

} // namespace

SimulatedDeviceAdapter::SimulatedDeviceAdapter(std::shared_ptr<CameraModel> aCamera)
    : mCamera(std::move(aCamera))
    , mFaults(std::make_unique<Faults>())
    , mEvents(std::make_shared<AdapterEvents>(*mCamera, *mFaults))
{
    // Not in the initialiser list: the thread uses mFaults and needs the shared pointer to exist.
    mEvents->Start();
}

SimulatedDeviceAdapter::~SimulatedDeviceAdapter()
{
    // Before the members go: the thread calls sinks that may still ask this adapter.
    mEvents->Stop();
}

CameraModel& SimulatedDeviceAdapter::GetCamera() const
{
    return *mCamera;
}

Faults& SimulatedDeviceAdapter::GetFaults() const
{
    return *mFaults;
}

void SimulatedDeviceAdapter::WaitForEvents()
{
    // In the direction of an event: first the camera hands it to the queue, then the queue to the sinks.
    mCamera->WaitForListeners();
    mEvents->WaitUntilIdle();
}

template<typename Text>
std::optional<KyResult> SimulatedDeviceAdapter::Enter(AdapterSlot aSlot, const Text& aArguments)
{
    // The text is made for the transcript alone; without one a call does not pay for it.
    return mFaults->EnterCall(aSlot, mFaults->IsRecording() ? aArguments() : std::string());
}

void SimulatedDeviceAdapter::Reserved0() {}

void SimulatedDeviceAdapter::Reserved3() {}

void SimulatedDeviceAdapter::Reserved12() {}

void SimulatedDeviceAdapter::Reserved13() {}

void SimulatedDeviceAdapter::Reserved23() {}

bool SimulatedDeviceAdapter::IsIntegerFeatureAvailable(const KyString& aName)
{
    // A question that answers with a bool has no code for a failure, so a call that fails answers no.
    const auto lFailure = Enter(AdapterSlot::IsIntegerFeatureAvailable, [&] { return TextOf(aName); });
    return !lFailure && mCamera->GetFeatureKind(TextOf(aName)) == FeatureKind::Integer;
}

bool SimulatedDeviceAdapter::IsFeatureAvailable(const KyString& aName)
{
    const auto lFailure = Enter(AdapterSlot::IsFeatureAvailable, [&] { return TextOf(aName); });
    return !lFailure && mCamera->GetFeatureKind(TextOf(aName)) != FeatureKind::None;
}

bool SimulatedDeviceAdapter::IsRegisterFeatureAvailable(const KyString& aName)
{
    const auto lFailure = Enter(AdapterSlot::IsRegisterFeatureAvailable, [&] { return TextOf(aName); });
    return !lFailure && mCamera->GetFeatureKind(TextOf(aName)) == FeatureKind::Register;
}

bool SimulatedDeviceAdapter::IsFeatureReadable(const KyString& aName)
{
    const auto lFailure = Enter(AdapterSlot::IsFeatureReadable, [&] { return TextOf(aName); });
    return !lFailure && mCamera->IsFeatureReadable(TextOf(aName));
}

bool SimulatedDeviceAdapter::IsFeatureWritable(const KyString& aName)
{
    const auto lFailure = Enter(AdapterSlot::IsFeatureWritable, [&] { return TextOf(aName); });
    return !lFailure && mCamera->IsFeatureWritable(TextOf(aName));
}

bool SimulatedDeviceAdapter::IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry)
{
    std::vector<std::string> lEntries;
    if (Enter(AdapterSlot::IsEnumEntryAvailable, [&] { return TextOf(aName) + ", " + TextOf(aEntry); }) ||
        !mCamera->GetEntries(TextOf(aName), lEntries).IsOk())
    {
        return false;
    }
    return std::find(lEntries.begin(), lEntries.end(), TextOf(aEntry)) != lEntries.end();
}

KyResult SimulatedDeviceAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    // Set in any case: a caller that overlooks a failure finds no value of an earlier call.
    aValue = 0;
    if (const auto lFailure = Enter(AdapterSlot::GetIntegerValue, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    const Outcome lOutcome = mCamera->GetInteger(TextOf(aName), aValue);
    // The camera has the bytes of its newest event. A sink has to see those of the event that it is called for, so
    // the event queue answers for the upstream features.
    const size_t lBulk = UpstreamPortOf(TextOf(aName));
    if (lOutcome.IsOk() && lBulk < cBulkCount)
    {
        aValue = static_cast<int64_t>(mEvents->GetUpstream(lBulk).size());
    }
    return ToResult(lOutcome);
}

KyResult SimulatedDeviceAdapter::GetEnumEntries(const KyString& aName, KyStringList& aEntries)
{
    aEntries.Clear();
    if (const auto lFailure = Enter(AdapterSlot::GetEnumEntries, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    std::vector<std::string> lEntries;
    const Outcome lOutcome = mCamera->GetEntries(TextOf(aName), lEntries);
    for (const std::string& lEntry : lEntries)
    {
        aEntries.Add(KyString(lEntry.c_str()));
    }
    return ToResult(lOutcome);
}

KyResult SimulatedDeviceAdapter::GetFeatureAsString(const KyString& aName, KyString& aValue)
{
    aValue = KyString();
    if (const auto lFailure = Enter(AdapterSlot::GetFeatureAsString, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    std::string lText;
    const Outcome lOutcome = mCamera->GetText(TextOf(aName), lText);
    // The length as text has to be the one that GetIntegerValue() gives for the same event.
    const size_t lBulk = UpstreamPortOf(TextOf(aName));
    if (lOutcome.IsOk() && lBulk < cBulkCount)
    {
        lText = std::to_string(mEvents->GetUpstream(lBulk).size());
    }
    aValue = KyString(lText.c_str());
    return ToResult(lOutcome);
}

KyResult SimulatedDeviceAdapter::SetFeatureFromString(const KyString& aName, const KyString& aValue)
{
    if (const auto lFailure =
            Enter(AdapterSlot::SetFeatureFromString, [&] { return TextOf(aName) + ", " + TextOf(aValue); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->SetText(TextOf(aName), TextOf(aValue)));
}

KyResult SimulatedDeviceAdapter::GetStringValue(const KyString& aName, KyString& aValue)
{
    aValue = KyString();
    if (const auto lFailure = Enter(AdapterSlot::GetStringValue, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    // A feature that is missing goes on to the camera, whose words for it are the same everywhere.
    const FeatureKind lKind = mCamera->GetFeatureKind(TextOf(aName));
    if (lKind != FeatureKind::String && lKind != FeatureKind::None)
    {
        return InvalidParameter("The feature is no string.");
    }
    std::string lText;
    const Outcome lOutcome = mCamera->GetText(TextOf(aName), lText);
    aValue = KyString(lText.c_str());
    return ToResult(lOutcome);
}

KyResult SimulatedDeviceAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    aLength = 0;
    if (const auto lFailure = Enter(AdapterSlot::GetRegisterLength, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->GetRegisterLength(TextOf(aName), aLength));
}

KyResult SimulatedDeviceAdapter::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    if (const auto lFailure = Enter(AdapterSlot::GetRegisterData, [&]
                                    { return TextOf(aName) + ", " + std::to_string(aLength) + " bytes"; }))
    {
        return *lFailure;
    }
    const Outcome lOutcome = mCamera->GetRegisterData(TextOf(aName), aBuffer, aLength);
    const size_t lBulk = UpstreamPortOf(TextOf(aName));
    if (lOutcome.IsOk() && lBulk < cBulkCount)
    {
        // The camera has looked at the buffer and its length by now, so only the bytes are replaced. The rest of the
        // feature's length reads as zeros.
        std::vector<uint8_t> lData = mEvents->GetUpstream(lBulk);
        lData.resize(static_cast<size_t>(aLength));
        std::copy(lData.begin(), lData.end(), aBuffer);
    }
    return ToResult(lOutcome);
}

KyResult SimulatedDeviceAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer,
                                                 int64_t aLength)
{
    if (const auto lFailure = Enter(AdapterSlot::SetRegisterData,
                                    [&] { return TextOf(aName) + ", " + Bytes(aBuffer, aLength); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->SetRegisterData(TextOf(aName), aBuffer, aLength));
}

KyResult SimulatedDeviceAdapter::RegisterFeatureInterest(const KyString& aName)
{
    if (const auto lFailure = Enter(AdapterSlot::RegisterFeatureInterest, [&] { return TextOf(aName); }))
    {
        return *lFailure;
    }
    // An interest in a name that never changes would wait in silence. The code is that of any use of such a
    // feature.
    if (mCamera->GetFeatureKind(TextOf(aName)) == FeatureKind::None)
    {
        return {static_cast<uint32_t>(Status::NotImplemented), KyString("There is no such feature.")};
    }
    mEvents->AddInterest(TextOf(aName));
    return {};
}

KyResult SimulatedDeviceAdapter::UnregisterFeatureInterest(const KyString& aName)
{
    const auto lFailure = Enter(AdapterSlot::UnregisterFeatureInterest, [&] { return TextOf(aName); });
    // Taken back even when the call fails, a cut connection included: after it no sink hears of the feature.
    const bool lFound = mEvents->RemoveInterest(TextOf(aName));
    if (lFailure)
    {
        return *lFailure;
    }
    return lFound ? KyResult() : InvalidParameter("Nobody has registered interest in this feature.");
}

KyResult SimulatedDeviceAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    if (const auto lFailure =
            Enter(AdapterSlot::WriteRegister, [&] { return Hex(aAddress) + ", " + Hex(aValue); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->WriteRegister(aAddress, aValue));
}

KyResult SimulatedDeviceAdapter::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    if (const auto lFailure = Enter(AdapterSlot::ReadRegister, [&] { return Hex(aAddress); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->ReadRegister(aAddress, aValue));
}

KyResult SimulatedDeviceAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    if (const auto lFailure =
            Enter(AdapterSlot::WriteMemory, [&] { return Hex(aAddress) + ", " + Bytes(aBuffer, aLength); }))
    {
        return *lFailure;
    }
    return ToResult(mCamera->WriteMemory(aAddress, aBuffer, aLength));
}

KyResult SimulatedDeviceAdapter::PostWrite(uint32_t aMilliseconds)
{
    // The camera has no features with a polling time, so there is nothing to poll.
    const auto lFailure = Enter(AdapterSlot::PostWrite, [&] { return std::to_string(aMilliseconds); });
    return lFailure.value_or(KyResult());
}

bool SimulatedDeviceAdapter::IsConnected()
{
    // A cut connection fails every call, this one too. That failure is the answer.
    return !Enter(AdapterSlot::IsConnected, [] { return std::string(); });
}

bool SimulatedDeviceAdapter::IsKorvoVideoInterface()
{
    const auto lFailure = Enter(AdapterSlot::IsKorvoVideoInterface, [] { return std::string(); });
    return !lFailure && mCamera->GetConfiguration().mVideoInterface;
}

bool SimulatedDeviceAdapter::IsGigEVision()
{
    const auto lFailure = Enter(AdapterSlot::IsGigEVision, [] { return std::string(); });
    return !lFailure && mCamera->GetConfiguration().mTransport == Transport::GigEVision;
}

bool SimulatedDeviceAdapter::IsAlternateTransport()
{
    const auto lFailure = Enter(AdapterSlot::IsAlternateTransport, [] { return std::string(); });
    return !lFailure && mCamera->GetConfiguration().mTransport == Transport::Alternate;
}

KyResult SimulatedDeviceAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    if (const auto lFailure = Enter(AdapterSlot::RegisterEventSink, [] { return std::string(); }))
    {
        return *lFailure;
    }
    // Refused here: the event thread calls each registered sink without a look at it.
    if (aSink == nullptr)
    {
        return InvalidParameter("There is no event sink.");
    }
    return mEvents->AddSink(aSink) ? KyResult() : InvalidParameter("The event sink is registered already.");
}

KyResult SimulatedDeviceAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    const auto lFailure = Enter(AdapterSlot::UnregisterEventSink, [] { return std::string(); });
    // Taken back even when the call fails: the sink may be destroyed after it.
    const bool lFound = mEvents->RemoveSink(aSink);
    if (lFailure)
    {
        return *lFailure;
    }
    return lFound ? KyResult() : InvalidParameter("The event sink is not registered.");
}

} // namespace KySimulator
