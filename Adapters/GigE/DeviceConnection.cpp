#include "Adapters/GigE/DeviceConnection.h"

#include "Adapters/GigE/Client/DescriptionFile.h"
#include "Adapters/GigE/Evaluator/NodeMap.h"
#include "Adapters/GigE/Evaluator/Unzip.h"
#include "Adapters/GigE/GenApi/EventAddress.h"
#include "Adapters/GigE/NoFeatures.h"

#include <JxUtilsLib/Event.h>
#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Logger.h>

#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;

namespace
{

void Warn(int aLine, const std::string& aText)
{
    const JxUtilsLib::Logger lLogger("KyGigE");
    if (lLogger.IsPriorityEnabled(JxUtilsLib::PriorityWarning))
    {
        lLogger.Log(JxUtilsLib::PriorityWarning, "Adapters/GigE/DeviceConnection", aLine,
                    "KyGigE::DeviceConnection::LoadFeatures", "%s", aText.c_str());
    }
}

/// Ends the delivery of an event, also when something was thrown meanwhile.
class Delivery
{
public:
    explicit Delivery(EventStore& aStore) : mStore(aStore) {}
    ~Delivery() { mStore.End(); }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

private:
    EventStore& mStore;
};

} // namespace

DeviceConnection::DeviceConnection(const DeviceAddress& aAddress, const ConnectionOptions& aOptions)
    : mClient(aAddress, aOptions)
{
}

// The client ends first: its threads call this object.
DeviceConnection::~DeviceConnection()
{
    mClient.Close();
}

KyResult DeviceConnection::Open()
{
    return mClient.Open([this](const KyGvcp::EventView& aEvent) { HandleEvent(aEvent); },
                        [this] { return LoadFeatures(); });
}

std::shared_ptr<const DeviceFeatures> DeviceConnection::GetFeatures()
{
    const LockScope lScope(mFeaturesLock);
    return mFeatures;
}

// A device that is lost meanwhile is not connected. One whose description is of no use is connected: the ports that are
// driven through registers need no description.
KyResult DeviceConnection::LoadFeatures()
{
    std::string lFile;
    auto lFeatures = std::make_shared<DeviceFeatures>();
    lFeatures->mSpace = std::make_unique<RegisterSpace>(mClient, mStore, mForeignWrites);
    KyResult lResult = ReadDescription(mClient.GetControl(), lFile);
    if (lResult.GetCode() == KyResult::NO_CONNECTION)
    {
        return lResult;
    }
    if (lResult.IsOK())
    {
        lResult = Evaluate(std::move(lFile), *lFeatures);
    }
    if (!lResult.IsOK())
    {
        Warn(__LINE__, std::string("The description of the device cannot be used, so it has no features: ") +
                           lResult.GetDescription().GetAscii());
        // A map without features takes the place, so that no call has to ask whether there is one.
        lFeatures->mProblem = lResult.GetDescription().GetAscii();
        lFeatures->mFed.clear();
        lFeatures->mMap = std::make_unique<NoFeatures>();
        lFeatures->mDescription.reset();
    }
    const LockScope lScope(mFeaturesLock);
    // Replaced as a whole. A call that runs keeps the features it has begun with.
    mFeatures = std::move(lFeatures);
    return {};
}

KyResult DeviceConnection::Evaluate(std::string aFile, DeviceFeatures& aFeatures)
{
    std::string lText;
    const std::string lProblem = Unzip(std::move(aFile), XmlDocument::cLargestText, lText);
    if (!lProblem.empty())
    {
        return {KyResult::FAILURE,
                ("The device's description cannot be unpacked: " + lProblem + ".").c_str()};
    }
    KyResult lResult = DeviceDescription::Parse(std::move(lText), aFeatures.mDescription);
    if (lResult.IsOK())
    {
        aFeatures.mMap = std::make_unique<NodeMap>(*aFeatures.mDescription, *aFeatures.mSpace);
        if (!aFeatures.mDescription->GetGraph().CollectFed(aFeatures.mFed))
        {
            return {KyResult::FAILURE,
                    "The device's description cannot be used: its events feed too many features."};
        }
    }
    return lResult;
}

void DeviceConnection::NotifyInvalidated(const std::string& aName)
{
    if (mSinks.HasInterest(aName))
    {
        const KyString lName(aName.c_str(), aName.size());
        mSinks.Call([&](IKyDeviceEventSink& aSink) { aSink.NotifyFeatureInvalidated(&lName); });
    }
}

void DeviceConnection::HandleEvent(const KyGvcp::EventView& aEvent)
{
    const Delivery lDelivery(mStore);
    // Stored before anything is called: sinks read features whose bytes are those of the event.
    mStore.Begin(aEvent.mID, aEvent.mItem.data(), aEvent.mItem.size(),
                 aEvent.mItem.size() - aEvent.mData.size());
    mSinks.Call(
        [&](IKyDeviceEventSink& aSink)
        {
            aSink.NotifyEvent(aEvent.mID, aEvent.mStreamChannel, aEvent.mBlockID, aEvent.mTimestamp,
                              aEvent.mData.data(), static_cast<uint32_t>(aEvent.mData.size()));
        });
    const std::shared_ptr<const DeviceFeatures> lFeatures = mSinks.HasInterests() ? GetFeatures() : nullptr;
    if (lFeatures != nullptr)
    {
        // Found out once, when the description was read: going through it takes longer than an event.
        const auto lFed = lFeatures->mFed.find(aEvent.mID);
        for (const std::string& lName :
             lFed != lFeatures->mFed.end() ? lFed->second : std::vector<std::string>())
        {
            NotifyInvalidated(lName);
        }
    }
}

void DeviceConnection::Report(std::vector<std::string> aNames)
{
    mClient.GetMessages().Post(
        [this, lNames = std::move(aNames)]
        {
            const Delivery lDelivery(mStore);
            // All events look empty meanwhile: a port that reads its upstream feature now would take its former bytes again.
            mStore.BeginNone();
            for (const std::string& lName : lNames)
            {
                NotifyInvalidated(lName);
            }
        });
}

void DeviceConnection::ReportWritten(const std::string& aName)
{
    const std::shared_ptr<const DeviceFeatures> lFeatures = mSinks.HasInterests() ? GetFeatures() : nullptr;
    if (lFeatures == nullptr || lFeatures->mDescription == nullptr)
    {
        return;
    }
    std::vector<std::string> lNames;
    // Each report costs a turn of the event thread, so only features that somebody waits for are reported.
    for (std::string& lName : lFeatures->mDescription->GetGraph().AffectedBy(aName))
    {
        if (mSinks.HasInterest(lName))
        {
            lNames.push_back(std::move(lName));
        }
    }
    if (!lNames.empty())
    {
        Report(std::move(lNames));
    }
}

bool DeviceConnection::HasChanged(const DeviceFeatures& aFeatures, const std::string& aName,
                                  uint32_t aMilliseconds)
{
    const uint64_t lPeriod = aFeatures.mDescription->GetGraph().PollingTimeOf(aName);
    if (lPeriod == 0)
    {
        return false;
    }
    {
        const LockScope lScope(mPollLock);
        Polled& lPolled = mPolled[aName];
        // The time is counted here even when the device is slow: the caller says how much of it has passed.
        lPolled.mElapsed += aMilliseconds;
        if (lPolled.mElapsed < lPeriod)
        {
            return false;
        }
        lPolled.mElapsed = 0;
    }
    // Not under the lock: reading the device may take as long as its time-outs.
    NoteForeignWrite(); // the device's own changes are what is looked for
    std::string lValue;
    if (!aFeatures.mMap->GetText(aName, lValue).IsOK())
    {
        return false;
    }
    const LockScope lScope(mPollLock);
    Polled& lPolled = mPolled[aName];
    // The first value is only remembered: there is no older one that it could differ from.
    const bool lChanged = lPolled.mKnown && lPolled.mValue != lValue;
    lPolled.mKnown = true;
    lPolled.mValue = lValue;
    return lChanged;
}

void DeviceConnection::PollFeatures(uint32_t aMilliseconds)
{
    // Without interest nobody would hear of a change, so the device is not asked.
    const std::shared_ptr<const DeviceFeatures> lFeatures = mSinks.HasInterests() ? GetFeatures() : nullptr;
    if (lFeatures == nullptr || lFeatures->mDescription == nullptr)
    {
        return;
    }
    for (const std::string& lName : mSinks.GetInterests())
    {
        if (HasChanged(*lFeatures, lName, aMilliseconds))
        {
            Report({lName});
        }
    }
}

void DeviceConnection::WaitForEvents()
{
    // Tasks run in order on the event thread: when this one runs, everything before it has been delivered.
    const auto lDone = std::make_shared<JxUtilsLib::Event>(true);
    mClient.GetMessages().Post([lDone] { lDone->Set(); });
    lDone->Wait_ms(JxUtilsLib::Event::cInfinite);
}

bool DeviceConnection::IsDelivering(uint64_t aAddress)
{
    return IsEventAddress(aAddress) && mStore.IsDelivering(EventOf(aAddress));
}

} // namespace KyGigE
