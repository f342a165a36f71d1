#include "Simulator/Camera/CameraModel.h"

#include "Simulator/Camera/CameraCore.h"
#include "Simulator/Time/RealScheduler.h"

namespace KySimulator
{

namespace
{

const Feature* FindIn(const FeatureTable& aTable, const std::string& aName)
{
    const auto lFound = aTable.find(aName);
    return lFound != aTable.end() ? &lFound->second : nullptr;
}

} // namespace

CameraModel::CameraModel(const CameraConfiguration& aConfiguration, std::shared_ptr<Scheduler> aScheduler)
    : mThis(std::make_shared<CameraCore>(Completed(aConfiguration), aScheduler != nullptr
                                                                        ? std::move(aScheduler)
                                                                        : std::make_shared<RealScheduler>()))
{
}

CameraModel::~CameraModel()
{
    // The core may outlive this object: peers' lines and timers hold it. Listeners must not hear of anything more.
    mThis->GetOutputQueue().Shut();
}

const CameraConfiguration& CameraModel::GetConfiguration() const
{
    return mThis->GetConfiguration();
}

Scheduler& CameraModel::GetScheduler() const
{
    return mThis->GetScheduler();
}

Outcome CameraModel::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    return mThis->With([&](CameraState& aState) { return aState.ReadRegister(aAddress, aValue); });
}

Outcome CameraModel::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    return mThis->With([&](CameraState& aState) { return aState.WriteRegister(aAddress, aValue); });
}

Outcome CameraModel::WriteMemory(uint32_t aAddress, const uint8_t* aData, size_t aSize)
{
    return mThis->With([&](CameraState& aState) { return aState.WriteMemory(aAddress, aData, aSize); });
}

FeatureKind CameraModel::GetFeatureKind(const std::string& aName) const
{
    // The table of features is made once and never changes, so questions about it take no lock.
    const Feature* const lFeature = FindIn(mThis->GetFeatures(), aName);
    return lFeature != nullptr ? lFeature->mKind : FeatureKind::None;
}

bool CameraModel::IsFeatureReadable(const std::string& aName) const
{
    const Feature* const lFeature = FindIn(mThis->GetFeatures(), aName);
    return lFeature != nullptr && lFeature->mReadable;
}

bool CameraModel::IsFeatureWritable(const std::string& aName) const
{
    const Feature* const lFeature = FindIn(mThis->GetFeatures(), aName);
    return lFeature != nullptr && lFeature->mWritable;
}

Outcome CameraModel::GetInteger(const std::string& aName, int64_t& aValue) const
{
    return mThis->With([&](const CameraState& aState) { return aState.GetInteger(aName, aValue); });
}

Outcome CameraModel::GetText(const std::string& aName, std::string& aValue) const
{
    return mThis->With([&](const CameraState& aState) { return aState.GetText(aName, aValue); });
}

Outcome CameraModel::SetText(const std::string& aName, const std::string& aValue)
{
    return mThis->With([&](CameraState& aState) { return aState.SetText(aName, aValue); });
}

Outcome CameraModel::GetEntries(const std::string& aName, std::vector<std::string>& aEntries) const
{
    return mThis->With([&](const CameraState& aState) { return aState.GetEntries(aName, aEntries); });
}

Outcome CameraModel::GetRegisterLength(const std::string& aName, int64_t& aLength) const
{
    aLength = 0;
    const Feature* const lFeature = FindIn(mThis->GetFeatures(), aName);
    if (lFeature == nullptr)
    {
        return {Status::NotImplemented, "There is no feature " + aName + "."};
    }
    if (lFeature->mKind != FeatureKind::Register)
    {
        return {Status::InvalidParameter, "The feature " + aName + " is of another kind."};
    }
    const CameraConfiguration& lConfiguration = GetConfiguration();
    // The length is fixed by the configuration, not by the last message: callers size their buffers by it.
    aLength = lFeature->mId == FeatureId::Downstream ? lConfiguration.mDownstreamLength
                                                     : lConfiguration.mUpstreamLength;
    return {};
}

Outcome CameraModel::GetRegisterData(const std::string& aName, uint8_t* aBuffer, int64_t aLength) const
{
    return mThis->With([&](const CameraState& aState)
                       { return aState.GetRegisterData(aName, aBuffer, aLength); });
}

Outcome CameraModel::SetRegisterData(const std::string& aName, const uint8_t* aBuffer, int64_t aLength)
{
    return mThis->With([&](CameraState& aState) { return aState.SetRegisterData(aName, aBuffer, aLength); });
}

void CameraModel::AddListener(CameraListener* aListener)
{
    mThis->GetOutputQueue().AddListener(aListener);
}

void CameraModel::RemoveListener(CameraListener* aListener)
{
    mThis->GetOutputQueue().RemoveListener(aListener);
}

void CameraModel::WaitForListeners()
{
    // Events are delivered by the thread that has caused them, and that thread may still be at it.
    mThis->GetOutputQueue().WaitUntilDrained();
}

void CameraModel::Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer)
{
    mThis->Plug(aPort, std::move(aPeer));
}

void CameraModel::PlugI2C(Port aPort, std::shared_ptr<I2CBusPeer> aBus)
{
    mThis->With(
        [&](CameraState& aState)
        {
            // UARTs have no bus. As with Plug(), a port that this camera does not have is no error.
            if (BulkPort* const lBulk = aState.FindBulk(aPort))
            {
                lBulk->SetI2CBus(aBus);
            }
        });
}

void CameraModel::PlugSpi(Port aPort, std::shared_ptr<SpiBusPeer> aBus)
{
    mThis->With(
        [&](CameraState& aState)
        {
            if (BulkPort* const lBulk = aState.FindBulk(aPort))
            {
                lBulk->SetSpiBus(aBus);
            }
        });
}

void CameraModel::InjectBytes(Port aPort, const uint8_t* aData, size_t aSize)
{
    mThis->With(
        [&](CameraState& aState)
        {
            LinePort* const lPort = aState.Find(aPort);
            // The same calls fit every configuration, so a port that this camera does not have takes nothing.
            if (lPort != nullptr && aData != nullptr)
            {
                // Bytes without a delay: the line's own speed is all that holds them up.
                lPort->Inject(aData, aSize, Time(0));
            }
        });
}

std::vector<uint8_t> CameraModel::GetWire(Port aPort) const
{
    return mThis->With(
        [&](CameraState& aState)
        {
            const LinePort* const lPort = aState.Find(aPort);
            return lPort != nullptr ? lPort->GetWire() : std::vector<uint8_t>();
        });
}

void CameraModel::ClearWire(Port aPort)
{
    mThis->With(
        [&](CameraState& aState)
        {
            // A camera with fewer ports has no wire for the others.
            if (LinePort* const lPort = aState.Find(aPort))
            {
                lPort->ClearWire();
            }
        });
}

PortCounters CameraModel::GetCounters(Port aPort) const
{
    return mThis->With(
        [&](CameraState& aState)
        {
            const LinePort* const lPort = aState.Find(aPort);
            return lPort != nullptr ? lPort->GetCounters() : PortCounters();
        });
}

Time CameraModel::GetByteTime(Port aPort) const
{
    return mThis->With(
        [&](CameraState& aState)
        {
            const LinePort* const lPort = aState.Find(aPort);
            return lPort != nullptr ? lPort->GetByteTime() : Time(0);
        });
}

} // namespace KySimulator
