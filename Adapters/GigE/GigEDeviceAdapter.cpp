#include <KyGigE/GigEDeviceAdapter.h>

#include "Adapters/GigE/DeviceConnection.h"
#include "Adapters/GigE/TextWithMemory.h"
#include "Libraries/KySerial/OutOfMemory.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <utility>

namespace KyGigE
{

using KySerialLib::AskWithMemory;
using KySerialLib::CatchOutOfMemory;

namespace
{

/// The makers whose devices are video interfaces with serial registers.
constexpr const char* cMaker = "Korvo";

std::string TextOf(const KyString& aText)
{
    return {aText.GetAscii(), aText.GetLength()};
}

KyString ToKyString(const std::string& aText)
{
    return {aText.c_str(), aText.size()};
}

KyResult InvalidParameter(const std::string& aText)
{
    return {KyGvcp::cInvalidParameter, ToKyString(aText)};
}

const char* KindText(NodeKind aKind)
{
    switch (aKind)
    {
    case NodeKind::Integer:
        return "Integer";
    case NodeKind::Float:
        return "Float";
    case NodeKind::Boolean:
        return "Boolean";
    case NodeKind::Enumeration:
        return "Enumeration";
    case NodeKind::String:
        return "String";
    case NodeKind::Register:
        return "Register";
    case NodeKind::Command:
        return "Command";
    case NodeKind::Category:
        return "Category";
    case NodeKind::None:
        break;
    }
    return "";
}

} // namespace

GigEDeviceAdapter::GigEDeviceAdapter(std::unique_ptr<DeviceConnection> aConnection)
    : mThis(std::move(aConnection))
{
}

GigEDeviceAdapter::~GigEDeviceAdapter() = default;

KyResult GigEDeviceAdapter::Connect(const DeviceAddress& aAddress,
                                    std::unique_ptr<GigEDeviceAdapter>& aAdapter)
{
    return Connect(aAddress, ConnectionOptions(), aAdapter);
}

KyResult GigEDeviceAdapter::Connect(const DeviceAddress& aAddress, const ConnectionOptions& aOptions,
                                    std::unique_ptr<GigEDeviceAdapter>& aAdapter)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            // The old adapter goes first. It may have control of the very device that is to be connected.
            aAdapter.reset();
            auto lConnection = std::make_unique<DeviceConnection>(aAddress, aOptions);
            KyResult lResult = lConnection->Open();
            if (lResult.IsOK())
            {
                aAdapter.reset(new GigEDeviceAdapter(std::move(lConnection)));
            }
            return lResult;
        });
}

KyResult GigEDeviceAdapter::Reconnect()
{
    return CatchOutOfMemory([&]() -> KyResult { return mThis->GetClient().Reconnect(); });
}

uint64_t GigEDeviceAdapter::GetGeneration() const
{
    return mThis->GetClient().GetGeneration();
}

const DeviceInformation& GigEDeviceAdapter::GetInformation() const
{
    return mThis->GetClient().GetInformation();
}

ConnectionFigures GigEDeviceAdapter::GetFigures() const
{
    GvcpClient& lClient = mThis->GetClient();
    return {lClient.GetLosses(), lClient.GetControl().GetRepeats(), lClient.GetMessages().GetRepeats(),
            lClient.GetMessages().GetForeign()};
}

std::string GigEDeviceAdapter::GetDescriptionProblem()
{
    return TextWithMemory(cOutOfMemory, [this] { return mThis->GetFeatures()->mProblem; });
}

namespace
{

void FillAccess(const FeatureState& aState, FeatureEntry& aEntry)
{
    aEntry.mAvailable = aState.mAvailable;
    aEntry.mReadable = aState.mReadable;
    aEntry.mWritable = aState.mWritable;
}

FeatureEntry MakeEntry(ListedFeature& aListed, INodeMap& aMap, const FeatureState& aState)
{
    FeatureEntry lEntry;
    lEntry.mName = std::move(aListed.mName);
    lEntry.mCategory = std::move(aListed.mCategory);
    lEntry.mKind = KindText(aMap.GetKind(lEntry.mName));
    lEntry.mVisibility = std::move(aListed.mVisibility);
    lEntry.mToolTip = std::move(aListed.mToolTip);
    FillAccess(aState, lEntry);
    return lEntry;
}

} // namespace

std::vector<FeatureEntry> GigEDeviceAdapter::ListFeatures()
{
    std::vector<FeatureEntry> lEntries;
    const bool lComplete = SurveyFeatures(
        false, [&](size_t aCount) { lEntries.reserve(aCount); },
        [&](FeatureEntry&& aEntry, FeatureState&& /*aState*/) { lEntries.push_back(std::move(aEntry)); });
    // A part of the list would look like all of it.
    return lComplete ? std::move(lEntries) : std::vector<FeatureEntry>();
}

std::vector<FeatureReading> GigEDeviceAdapter::ReadFeatures()
{
    std::vector<FeatureReading> lReadings;
    const bool lComplete = SurveyFeatures(
        true, [&](size_t aCount) { lReadings.reserve(aCount); },
        [&](FeatureEntry&& aEntry, FeatureState&& aState) {
            lReadings.push_back({std::move(aEntry), std::move(aState.mValue), std::move(aState.mEntries)});
        });
    return lComplete ? std::move(lReadings) : std::vector<FeatureReading>();
}

template<class Reserve, class Add>
bool GigEDeviceAdapter::SurveyFeatures(bool aWithValues, const Reserve& aReserve, const Add& aAdd)
{
    return AskWithMemory(
        [&]
        {
            const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
            // Without a description there is nothing to list, which is no failure: GetDescriptionProblem() says
            // why.
            if (lFeatures->mDescription == nullptr)
            {
                return true;
            }
            INodeMap& lMap = *lFeatures->mMap;
            std::vector<ListedFeature> lList = lFeatures->mDescription->GetGraph().GetFeatures();
            aReserve(lList.size());
            for (ListedFeature& lListed : lList)
            {
                // Of a lost device the names are still known; nothing of it is available.
                FeatureState lState =
                    IsConnected() ? lMap.GetState(lListed.mName, aWithValues) : FeatureState();
                FeatureEntry lEntry = MakeEntry(lListed, lMap, lState);
                aAdd(std::move(lEntry), std::move(lState));
            }
            return true;
        });
}

bool GigEDeviceAdapter::FindFeature(const std::string& aName, FeatureEntry& aEntry)
{
    return AskWithMemory(
        [&]
        {
            const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
            if (!IsConnected() || lFeatures->mMap->GetKind(aName) == NodeKind::None)
            {
                return false;
            }
            FeatureEntry lEntry;
            // A feature that no category lists is found too. Only its place and its tool tip are missing then.
            lEntry.mName = aName;
            for (const ListedFeature& lListed : lFeatures->mDescription->GetGraph().GetFeatures())
            {
                if (lListed.mName == aName)
                {
                    lEntry.mCategory = lListed.mCategory;
                    lEntry.mVisibility = lListed.mVisibility;
                    lEntry.mToolTip = lListed.mToolTip;
                }
            }
            lEntry.mKind = KindText(lFeatures->mMap->GetKind(aName));
            FillAccess(lFeatures->mMap->GetState(aName, false), lEntry);
            aEntry = std::move(lEntry);
            return true;
        });
}

void GigEDeviceAdapter::WaitForEvents()
{
    // Without memory for a sign of its own it does not wait.
    static_cast<void>(AskWithMemory(
        [this]
        {
            mThis->WaitForEvents();
            return true;
        }));
}

void GigEDeviceAdapter::Reserved0() {}

void GigEDeviceAdapter::Reserved3() {}

void GigEDeviceAdapter::Reserved12() {}

void GigEDeviceAdapter::Reserved13() {}

void GigEDeviceAdapter::Reserved23() {}

bool GigEDeviceAdapter::IsIntegerFeatureAvailable(const KyString& aName)
{
    return AskWithMemory([&]() { return IsAvailable(TextOf(aName), NodeKind::Integer); });
}

bool GigEDeviceAdapter::IsFeatureAvailable(const KyString& aName)
{
    return AskWithMemory([&]()
                         { return IsConnected() && mThis->GetFeatures()->mMap->IsAvailable(TextOf(aName)); });
}

bool GigEDeviceAdapter::IsRegisterFeatureAvailable(const KyString& aName)
{
    return AskWithMemory([&]() { return IsAvailable(TextOf(aName), NodeKind::Register); });
}

bool GigEDeviceAdapter::IsAvailable(const std::string& aName, NodeKind aKind)
{
    const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
    return IsConnected() && lFeatures->mMap->GetKind(aName) == aKind && lFeatures->mMap->IsAvailable(aName);
}

bool GigEDeviceAdapter::IsFeatureReadable(const KyString& aName)
{
    return AskWithMemory([&]()
                         { return IsConnected() && mThis->GetFeatures()->mMap->IsReadable(TextOf(aName)); });
}

bool GigEDeviceAdapter::IsFeatureWritable(const KyString& aName)
{
    return AskWithMemory([&]()
                         { return IsConnected() && mThis->GetFeatures()->mMap->IsWritable(TextOf(aName)); });
}

bool GigEDeviceAdapter::IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry)
{
    return AskWithMemory(
        [&]()
        {
            std::vector<std::string> lEntries;
            return IsConnected() && mThis->GetFeatures()->mMap->GetEntries(TextOf(aName), lEntries).IsOK() &&
                   std::find(lEntries.begin(), lEntries.end(), TextOf(aEntry)) != lEntries.end();
        });
}

KyResult GigEDeviceAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            aValue = 0;
            if (!IsConnected())
            {
                return NotConnected();
            }
            const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
            const bool lIsMacAddress = TextOf(aName) == KyDeviceProtocol::cMacAddressFeature;
            // The MAC address does not change while the device is connected. Ports ask for it under a lock of the whole
            // process, so it is read from the device once.
            if (lIsMacAddress && lFeatures->mMacAddress >= 0)
            {
                aValue = lFeatures->mMacAddress;
                return KyResult(KyResult::OK);
            }
            KyResult lResult = lFeatures->mMap->GetInteger(TextOf(aName), aValue);
            if (lIsMacAddress && lResult.IsOK())
            {
                lFeatures->mMacAddress = aValue;
            }
            return lResult;
        });
}

KyResult GigEDeviceAdapter::GetEnumEntries(const KyString& aName, KyStringList& aEntries)
{
    KyResult lResult = CatchOutOfMemory(
        [&]() -> KyResult
        {
            aEntries.Clear();
            if (!IsConnected())
            {
                return NotConnected();
            }
            std::vector<std::string> lEntries;
            KyResult lRead = mThis->GetFeatures()->mMap->GetEntries(TextOf(aName), lEntries);
            for (const std::string& lEntry : lEntries)
            {
                aEntries.Add(ToKyString(lEntry));
            }
            return lRead;
        });
    if (!lResult.IsOK())
    {
        aEntries.Clear(); // a part of them would look like all
    }
    return lResult;
}

KyResult GigEDeviceAdapter::GetFeatureAsString(const KyString& aName, KyString& aValue)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            aValue = KyString();
            if (!IsConnected())
            {
                return NotConnected();
            }
            std::string lText;
            KyResult lResult = mThis->GetFeatures()->mMap->GetText(TextOf(aName), lText);
            aValue = ToKyString(lText);
            return lResult;
        });
}

KyResult GigEDeviceAdapter::SetFeatureFromString(const KyString& aName, const KyString& aValue)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (!IsConnected())
            {
                return NotConnected();
            }
            KyResult lResult = mThis->GetFeatures()->mMap->SetText(TextOf(aName), TextOf(aValue));
            if (lResult.IsOK())
            {
                mThis->ReportWritten(TextOf(aName));
            }
            return lResult;
        });
}

KyResult GigEDeviceAdapter::GetStringValue(const KyString& aName, KyString& aValue)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            aValue = KyString();
            if (!IsConnected())
            {
                return NotConnected();
            }
            const NodeKind lKind = mThis->GetFeatures()->mMap->GetKind(TextOf(aName));
            // A feature that is missing fails in there, with the same words as elsewhere.
            return lKind == NodeKind::String || lKind == NodeKind::None
                       ? GetFeatureAsString(aName, aValue)
                       : InvalidParameter("The feature is no string.");
        });
}

KyResult GigEDeviceAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            aLength = 0;
            if (!IsConnected())
            {
                return NotConnected();
            }
            RegisterPlace lPlace;
            // A length can be asked for while the feature can be neither read nor written: ports look before they
            // open.
            KyResult lResult =
                mThis->GetFeatures()->mMap->GetRegister(TextOf(aName), RegisterUse::Look, lPlace);
            aLength = static_cast<int64_t>(lPlace.mLength);
            return lResult;
        });
}

KyResult GigEDeviceAdapter::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            const bool lIsConnected = IsConnected();
            const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
            RegisterPlace lPlace;
            KyResult lResult = lFeatures->mMap->GetRegister(TextOf(aName), RegisterUse::Read, lPlace);
            // The bytes of the event that is being delivered are here already. A port that has read their number gets
            // them even when the connection is lost between the two: else it would take its former bytes once more.
            if (!lIsConnected && !(lResult.IsOK() && mThis->IsDelivering(lPlace.mAddress)))
            {
                return NotConnected();
            }
            if (!lResult.IsOK())
            {
                return lResult;
            }
            if (aBuffer == nullptr || aLength < 0 || static_cast<uint64_t>(aLength) > lPlace.mLength)
            {
                return InvalidParameter("The feature " + TextOf(aName) + " does not have that many bytes.");
            }
            return lFeatures->mSpace->ReadMemory(lPlace.mAddress, aBuffer, static_cast<uint64_t>(aLength));
        });
}

KyResult GigEDeviceAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (!IsConnected())
            {
                return NotConnected();
            }
            const std::shared_ptr<const DeviceFeatures> lFeatures = mThis->GetFeatures();
            RegisterPlace lPlace;
            KyResult lResult = lFeatures->mMap->GetRegister(TextOf(aName), RegisterUse::Write, lPlace);
            if (!lResult.IsOK())
            {
                return lResult;
            }
            if (aBuffer == nullptr || aLength < 0 || static_cast<uint64_t>(aLength) > lPlace.mLength)
            {
                return InvalidParameter("The feature " + TextOf(aName) + " does not take that many bytes.");
            }
            // Features may have other values even after a failure: the device may have taken a part.
            lResult =
                lFeatures->mSpace->WriteMemory(lPlace.mAddress, aBuffer, static_cast<uint64_t>(aLength));
            mThis->NoteForeignWrite();
            if (lResult.IsOK())
            {
                mThis->ReportWritten(TextOf(aName));
            }
            return lResult;
        });
}

KyResult GigEDeviceAdapter::RegisterFeatureInterest(const KyString& aName)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (!IsConnected())
            {
                return NotConnected();
            }
            if (mThis->GetFeatures()->mMap->GetKind(TextOf(aName)) == NodeKind::None)
            {
                return {KyGvcp::cNotImplemented, "There is no such feature."};
            }
            mThis->GetSinks().AddInterest(TextOf(aName));
            return {};
        });
}

KyResult GigEDeviceAdapter::UnregisterFeatureInterest(const KyString& aName)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            // Also while the device is lost: after this call no sink hears of the feature.
            const bool lFound = mThis->GetSinks().RemoveInterest(TextOf(aName));
            if (!IsConnected())
            {
                return NotConnected();
            }
            return lFound ? KyResult() : InvalidParameter("Nobody has registered interest in this feature.");
        });
}

KyResult GigEDeviceAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            // Which features this register feeds is not known here, so every value that is kept is read anew. That
            // holds after a failure too: an answer that is lost says nothing about the write.
            KyResult lResult = mThis->GetClient().WriteRegister(aAddress, aValue);
            mThis->NoteForeignWrite();
            return lResult;
        });
}

KyResult GigEDeviceAdapter::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    return CatchOutOfMemory([&]() -> KyResult { return mThis->GetClient().ReadRegister(aAddress, aValue); });
}

KyResult GigEDeviceAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            // As in WriteRegister(): the device may have taken a part of a write that fails.
            KyResult lResult = mThis->GetClient().WriteMemory(aAddress, aBuffer, aLength);
            mThis->NoteForeignWrite();
            return lResult;
        });
}

KyResult GigEDeviceAdapter::PostWrite(uint32_t aMilliseconds)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (!IsConnected())
            {
                return NotConnected();
            }
            // The caller's clock drives the features that have a polling time. Nothing is polled between two calls.
            mThis->PollFeatures(aMilliseconds);
            return {};
        });
}

bool GigEDeviceAdapter::IsConnected()
{
    return mThis->GetClient().IsConnected();
}

bool GigEDeviceAdapter::IsKorvoVideoInterface()
{
    // As the device has said when it was found. The answer holds for a lost device too.
    return GetInformation().mVendor == cMaker;
}

bool GigEDeviceAdapter::IsGigEVision()
{
    return true;
}

bool GigEDeviceAdapter::IsAlternateTransport()
{
    return false;
}

KyResult GigEDeviceAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            if (!IsConnected())
            {
                return NotConnected();
            }
            if (aSink == nullptr)
            {
                return InvalidParameter("There is no event sink.");
            }
            return mThis->GetSinks().Add(aSink) ? KyResult()
                                                : InvalidParameter("The event sink is registered already.");
        });
}

KyResult GigEDeviceAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    return CatchOutOfMemory(
        [&]() -> KyResult
        {
            // Also while the device is lost: the sink may be destroyed after this.
            const bool lFound = mThis->GetSinks().Remove(aSink);
            if (!IsConnected())
            {
                return NotConnected();
            }
            return lFound ? KyResult() : InvalidParameter("The event sink is not registered.");
        });
}

} // namespace KyGigE
