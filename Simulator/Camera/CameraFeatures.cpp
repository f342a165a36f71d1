#include "Simulator/Camera/CameraState.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

constexpr size_t cNoEntry = static_cast<size_t>(-1);

Outcome NoSuchFeature(const std::string& aName)
{
    return {Status::NotImplemented, "There is no feature " + aName + "."};
}

Outcome WrongKind(const std::string& aName)
{
    return {Status::InvalidParameter, "The feature " + aName + " is of another kind."};
}

} // namespace

const Feature* CameraState::FindFeature(const std::string& aName) const
{
    const auto lFound = mFeatures.find(aName);
    return lFound != mFeatures.end() ? &lFound->second : nullptr;
}

Outcome CameraState::Require(const std::string& aName, FeatureKind aKind, const Feature*& aFeature) const
{
    aFeature = FindFeature(aName);
    if (aFeature == nullptr)
    {
        return NoSuchFeature(aName);
    }
    return aFeature->mKind == aKind ? Outcome() : WrongKind(aName);
}

Port CameraState::PortOf(const Feature& aFeature) const
{
    // A feature without a port of its own belongs to the port that the selector points at now.
    return aFeature.mPort.value_or(BulkPortOf(mBulkSelector));
}

std::vector<size_t> CameraState::FeaturePorts() const
{
    std::vector<size_t> lPorts;
    for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
    {
        if (mConfiguration.mBulk[lBulk].mFeatures)
        {
            lPorts.push_back(lBulk);
        }
    }
    return lPorts;
}

std::vector<Protocol> CameraState::ProtocolsOf(Port aPort) const
{
    std::vector<Protocol> lProtocols;
    const BulkPortConfiguration& lBulk = mConfiguration.mBulk[static_cast<size_t>(aPort) - cUartCount];
    for (const Protocol lProtocol : {Protocol::Uart, Protocol::Usrt, Protocol::I2C, Protocol::Spi})
    {
        // The order of the list is the order of the entries: an entry's position is its number.
        if (lBulk.Offers(lProtocol))
        {
            lProtocols.push_back(lProtocol);
        }
    }
    return lProtocols;
}

FrameSettings& CameraState::FrameOf(Port aPort) const
{
    const auto lIndex = static_cast<size_t>(aPort);
    return lIndex < cUartCount ? mUarts[lIndex]->GetFrame() : mBulks[lIndex - cUartCount]->GetFrame();
}

uint32_t CameraState::SpeedOf(Port aPort) const
{
    const auto lIndex = static_cast<size_t>(aPort);
    // Rates are kept as their position in the device's table, which is the entry's number too.
    return lIndex < cUartCount ? mUarts[lIndex]->GetSpeedIndex()
                               : mBulks[lIndex - cUartCount]->GetSpeedIndex();
}

std::vector<std::string> CameraState::EntriesOf(const Feature& aFeature) const
{
    std::vector<std::string> lEntries;
    switch (aFeature.mId)
    {
    case FeatureId::BulkSelector:
    case FeatureId::EventSelector:
        for (const size_t lBulk : FeaturePorts())
        {
            lEntries.push_back(aFeature.mId == FeatureId::EventSelector ? UpstreamEventName(lBulk)
                                                                        : BulkName(lBulk));
        }
        return lEntries;
    case FeatureId::BulkMode:
        for (const Protocol lProtocol : ProtocolsOf(PortOf(aFeature)))
        {
            lEntries.emplace_back(NameOf(lProtocol));
        }
        return lEntries;
    case FeatureId::BaudRate:
        for (const uint32_t lRate : cUartRates)
        {
            lEntries.push_back("Baud" + std::to_string(lRate));
        }
        return lEntries;
    case FeatureId::Parity:
        // In the order of the numbers that the port keeps: an entry's position is its number.
        return {"None", "Even", "Odd"};
    case FeatureId::StopBits:
        return {"One", "Two"};
    case FeatureId::EventNotification:
        return {"Off", "On"};
    default:
        return lEntries;
    }
}

size_t CameraState::EntryOf(const Feature& aFeature) const
{
    const Port lPort = PortOf(aFeature);
    // Selectors count the ports that have features. Their entry is a position in that list and not a port's number.
    const std::vector<size_t> lPorts = FeaturePorts();
    switch (aFeature.mId)
    {
    case FeatureId::BulkSelector:
        return static_cast<size_t>(std::find(lPorts.begin(), lPorts.end(), mBulkSelector) - lPorts.begin());
    case FeatureId::EventSelector:
        return static_cast<size_t>(std::find(lPorts.begin(), lPorts.end(), mEventSelector) - lPorts.begin());
    case FeatureId::BulkMode:
    {
        const std::vector<Protocol> lOffered = ProtocolsOf(lPort);
        // Through its register a port can get a protocol that it does not offer, which has no entry.
        const Protocol lProtocol = mBulks[static_cast<size_t>(lPort) - cUartCount]->GetProtocol();
        return static_cast<size_t>(std::find(lOffered.begin(), lOffered.end(), lProtocol) - lOffered.begin());
    }
    case FeatureId::BaudRate:
        return SpeedOf(lPort);
    case FeatureId::Parity:
        return FrameOf(lPort).mParity;
    case FeatureId::StopBits:
        return FrameOf(lPort).mStopBits;
    case FeatureId::EventNotification:
        return mNotification[mEventSelector] ? 1 : 0;
    default:
        return cNoEntry;
    }
}

void CameraState::SetEntry(const Feature& aFeature, size_t aEntry)
{
    const Port lPort = PortOf(aFeature);
    const auto lNumber = static_cast<uint32_t>(aEntry);
    switch (aFeature.mId)
    {
    case FeatureId::BulkSelector:
        mBulkSelector = FeaturePorts()[aEntry];
        return;
    case FeatureId::EventSelector:
        mEventSelector = FeaturePorts()[aEntry];
        return;
    case FeatureId::BulkMode:
        FindBulk(lPort)->SetProtocol(ProtocolsOf(lPort)[aEntry]);
        return;
    case FeatureId::BaudRate:
        // UARTs have no configuration word: each keeps its speed itself.
        if (BulkPort* const lBulk = FindBulk(lPort))
        {
            lBulk->SetSpeedIndex(lNumber);
            return;
        }
        mUarts[static_cast<size_t>(lPort)]->SetSpeedIndex(lNumber);
        return;
    case FeatureId::Parity:
        FrameOf(lPort).mParity = lNumber;
        return;
    case FeatureId::StopBits:
        FrameOf(lPort).mStopBits = lNumber;
        return;
    case FeatureId::EventNotification:
        mNotification[mEventSelector] = aEntry == 1; // what waits is raised by the step that follows
        return;
    default:
        return;
    }
}

std::string CameraState::TextOf(const Feature& aFeature) const
{
    switch (aFeature.mId)
    {
    case FeatureId::Vendor:
        return mConfiguration.mVendor;
    case FeatureId::Model:
        return mConfiguration.mModel;
    case FeatureId::Version:
        return mConfiguration.mVersion;
    case FeatureId::ManufacturerInfo:
        return mConfiguration.mManufacturerInfo;
    case FeatureId::SerialNumber:
        return mConfiguration.mSerialNumber;
    default:
        return mUserID;
    }
}

Outcome CameraState::GetInteger(const std::string& aName, int64_t& aValue) const
{
    aValue = 0;
    const Feature* lFeature = nullptr;
    Outcome lOutcome = Require(aName, FeatureKind::Integer, lFeature);
    if (lOutcome.IsOk())
    {
        // The camera has two kinds of integers: the address, and the lengths of the last events.
        aValue =
            lFeature->mId == FeatureId::MacAddress
                ? static_cast<int64_t>(mConfiguration.mMacAddress)
                : static_cast<int64_t>(
                      mBulks[static_cast<size_t>(PortOf(*lFeature)) - cUartCount]->GetLastUpstream().size());
    }
    return lOutcome;
}

Outcome CameraState::GetText(const std::string& aName, std::string& aValue) const
{
    aValue.clear();
    const Feature* const lFeature = FindFeature(aName);
    if (lFeature == nullptr)
    {
        return NoSuchFeature(aName);
    }
    switch (lFeature->mKind)
    {
    case FeatureKind::Integer:
    {
        int64_t lValue = 0;
        // Any integer reads as its decimal text; applications show every feature that way.
        Outcome lOutcome = GetInteger(aName, lValue);
        aValue = std::to_string(lValue);
        return lOutcome;
    }
    case FeatureKind::String:
        aValue = TextOf(*lFeature);
        return {};
    case FeatureKind::Enumeration:
    {
        const std::vector<std::string> lEntries = EntriesOf(*lFeature);
        const size_t lEntry = EntryOf(*lFeature);
        // A port can be in a state for which its feature has no name: its register takes any number. A wrong name
        // would hide it.
        if (lEntry >= lEntries.size())
        {
            return {Status::AccessDenied, "The value of " + aName + " has no entry."};
        }
        aValue = lEntries[lEntry];
        return {};
    }
    default:
        return WrongKind(aName);
    }
}

Outcome CameraState::SetText(const std::string& aName, const std::string& aValue)
{
    const Feature* const lFeature = FindFeature(aName);
    if (lFeature == nullptr)
    {
        return NoSuchFeature(aName);
    }
    if (lFeature->mKind == FeatureKind::Register)
    {
        return WrongKind(aName);
    }
    // The kind is checked first: a buffer is of the wrong kind whether it can be written or not.
    if (!lFeature->mWritable)
    {
        return {Status::WriteProtect, "The feature " + aName + " can only be read."};
    }
    // The user's name is the only text that can be written; every other writable feature is an enumeration.
    return lFeature->mKind == FeatureKind::String ? SetUserID(aName, aValue)
                                                  : SetEnumeration(aName, *lFeature, aValue);
}

Outcome CameraState::SetUserID(const std::string& aName, const std::string& aValue)
{
    constexpr size_t cUserID = 16; // GigE Vision's register for it
    if (aValue.size() > cUserID)
    {
        return {Status::InvalidParameter, "The text is too long for " + aName + "."};
    }
    // A change is reported only when there is one. Applications read the feature again at each report.
    if (mUserID != aValue)
    {
        mUserID = aValue;
        mOutputs.emplace_back(FeatureChange{aName});
    }
    return {};
}

Outcome CameraState::SetEnumeration(const std::string& aName, const Feature& aFeature,
                                    const std::string& aValue)
{
    const std::vector<std::string> lEntries = EntriesOf(aFeature);
    const auto lEntry = std::find(lEntries.begin(), lEntries.end(), aValue);
    if (lEntry == lEntries.end())
    {
        return {Status::InvalidParameter, "The feature " + aName + " has no entry " + aValue + "."};
    }
    const auto lNumber = static_cast<size_t>(lEntry - lEntries.begin());
    if (EntryOf(aFeature) == lNumber)
    {
        return {}; // no change to report: applications would read the feature again for nothing
    }
    SetEntry(aFeature, lNumber);
    mOutputs.emplace_back(FeatureChange{aName});
    // The features that follow the selector now belong to another port, so their values may differ.
    if (aFeature.mId == FeatureId::BulkSelector)
    {
        for (const FeatureId lId :
             {FeatureId::BulkMode, FeatureId::BaudRate, FeatureId::Parity, FeatureId::StopBits})
        {
            SayChanged(lId, BulkPortOf(mBulkSelector));
        }
    }
    if (aFeature.mId == FeatureId::EventSelector)
    {
        mOutputs.emplace_back(FeatureChange{cEventNotificationFeature});
    }
    return {};
}

void CameraState::SayChanged(FeatureId aId, Port aPort)
{
    for (const auto& [lName, lFeature] : mFeatures)
    {
        // A feature that follows the selector shows one port. A change of another port is no change of its
        // value.
        if (lFeature.mId == aId && PortOf(lFeature) == aPort)
        {
            mOutputs.emplace_back(FeatureChange{lName});
        }
    }
}

Outcome CameraState::GetEntries(const std::string& aName, std::vector<std::string>& aEntries) const
{
    aEntries.clear();
    const Feature* lFeature = nullptr;
    Outcome lOutcome = Require(aName, FeatureKind::Enumeration, lFeature);
    if (lOutcome.IsOk())
    {
        aEntries = EntriesOf(*lFeature);
    }
    return lOutcome;
}

Outcome CameraState::GetRegisterData(const std::string& aName, uint8_t* aBuffer, int64_t aLength) const
{
    const Feature* lFeature = nullptr;
    Outcome lOutcome = Require(aName, FeatureKind::Register, lFeature);
    if (!lOutcome.IsOk())
    {
        return lOutcome;
    }
    // The downstream feature is a mailbox: what was written is gone with the write.
    if (!lFeature->mReadable)
    {
        return {Status::AccessDenied, "The feature " + aName + " can only be written."};
    }
    if (aBuffer == nullptr || aLength < 0 || aLength > static_cast<int64_t>(mConfiguration.mUpstreamLength))
    {
        return {Status::InvalidParameter, "The feature " + aName + " does not have that many bytes."};
    }
    const std::vector<uint8_t>& lData =
        mBulks[static_cast<size_t>(PortOf(*lFeature)) - cUartCount]->GetLastUpstream();
    const size_t lLength = static_cast<size_t>(aLength);
    // The feature has one fixed length, and the last event may have fewer bytes; the length feature says how many
    // count. The rest reads as zeros.
    const size_t lValid = std::min(lLength, lData.size());
    std::copy_n(lData.begin(), lValid, aBuffer);
    std::fill_n(aBuffer + lValid, lLength - lValid, static_cast<uint8_t>(0));
    return {};
}

Outcome CameraState::SetRegisterData(const std::string& aName, const uint8_t* aBuffer, int64_t aLength)
{
    const Feature* lFeature = nullptr;
    Outcome lOutcome = Require(aName, FeatureKind::Register, lFeature);
    if (!lOutcome.IsOk())
    {
        return lOutcome;
    }
    // Upstream buffers belong to the device: an application only reads them.
    if (!lFeature->mWritable)
    {
        return {Status::WriteProtect, "The feature " + aName + " can only be read."};
    }
    if (aBuffer == nullptr || aLength < 0 || aLength > static_cast<int64_t>(mConfiguration.mDownstreamLength))
    {
        return {Status::InvalidParameter, "The feature " + aName + " does not take that many bytes."};
    }
    // On GigE Vision the words of a message's header are big-endian, on every other transport little-endian.
    return FindBulk(PortOf(*lFeature))
        ->WriteMessage(aBuffer, static_cast<size_t>(aLength),
                       mConfiguration.mTransport == Transport::GigEVision);
}

} // namespace KySimulator
