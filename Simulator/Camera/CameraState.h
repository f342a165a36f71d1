#pragma once

#include "Simulator/Camera/FeatureTable.h"
#include "Simulator/Ports/BulkPort.h"
#include "Simulator/Ports/OutputQueue.h"
#include "Simulator/Ports/UartPort.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace KySimulator
{

/// Everything that a camera is made of, without locks and threads, which CameraCore adds. It collects its events
/// until CameraCore takes them.
class CameraState final : public PortHost
{
public:
    explicit CameraState(const CameraConfiguration& aConfiguration);
    CameraState(const CameraState&) = delete;
    CameraState& operator=(const CameraState&) = delete;

    /// Sets the moment and does what is due by then.
    void Step(Time aNow);
    Time NextDue() const;
    /// The events since the last call.
    std::vector<Output> TakeOutputs();

    Outcome ReadRegister(uint32_t aAddress, uint32_t& aValue);
    Outcome WriteRegister(uint32_t aAddress, uint32_t aValue);
    Outcome WriteMemory(uint32_t aAddress, const uint8_t* aData, size_t aSize);

    Outcome GetInteger(const std::string& aName, int64_t& aValue) const;
    Outcome GetText(const std::string& aName, std::string& aValue) const;
    Outcome SetText(const std::string& aName, const std::string& aValue);
    Outcome GetEntries(const std::string& aName, std::vector<std::string>& aEntries) const;
    Outcome GetRegisterData(const std::string& aName, uint8_t* aBuffer, int64_t aLength) const;
    Outcome SetRegisterData(const std::string& aName, const uint8_t* aBuffer, int64_t aLength);

    /// The port; null when the camera does not have it.
    LinePort* Find(Port aPort);
    BulkPort* FindBulk(Port aPort);

    /// Plugs a peer in, or none. \param aLine  Its line, which counts as the port's from now on.
    void Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer, const std::shared_ptr<SerialLine>& aLine);
    /// Bytes from a line, if that is still the port's.
    void ArriveFrom(const SerialLine* aLine, Port aPort, const uint8_t* aData, size_t aSize, Time aDelay);

private:
    struct Socket
    {
        std::shared_ptr<SerialPeer> mPeer;
        std::shared_ptr<SerialLine> mLine;
    };

    Time Now() const override { return mNow; }
    uint32_t EnabledInterrupts(uint32_t aMask) const override { return mInterruptEnable & aMask; }
    bool IsUpstreamEnabled(size_t aBulk) const override { return mNotification[aBulk]; }
    void RaiseInterrupt(uint16_t aId, uint32_t aStatus, const std::vector<uint8_t>& aData) override;
    void RaiseUpstream(size_t aBulk, const std::vector<uint8_t>& aData) override;
    void DeliverToPeer(Port aPort, std::vector<uint8_t> aData) override;

    uint32_t FunctionCapabilities() const;
    uint32_t BulkCapabilities() const;
    bool HasBulkRegisters() const;
    UartPort* FindUartRegister(uint32_t aAddress);
    void WriteBulkConfiguration(uint32_t aValue);

    const Feature* FindFeature(const std::string& aName) const;
    Outcome Require(const std::string& aName, FeatureKind aKind, const Feature*& aFeature) const;
    Outcome SetUserID(const std::string& aName, const std::string& aValue);
    Outcome SetEnumeration(const std::string& aName, const Feature& aFeature, const std::string& aValue);
    Port PortOf(const Feature& aFeature) const;
    std::vector<std::string> EntriesOf(const Feature& aFeature) const;
    /// Position of an enumeration's value among its entries; a number outside them when it has no entry.
    size_t EntryOf(const Feature& aFeature) const;
    void SetEntry(const Feature& aFeature, size_t aEntry);
    FrameSettings& FrameOf(Port aPort) const;
    uint32_t SpeedOf(Port aPort) const;
    std::string TextOf(const Feature& aFeature) const;
    /// Says that a setting of a port has changed, by the name that it has now, if any.
    void SayChanged(FeatureId aId, Port aPort);
    std::vector<size_t> FeaturePorts() const;
    std::vector<Protocol> ProtocolsOf(Port aPort) const;

    const CameraConfiguration mConfiguration;
    const FeatureTable mFeatures;
    Time mNow{0};
    uint32_t mInterruptEnable = 0;
    std::array<bool, cBulkCount> mNotification{};
    size_t mBulkSelector;
    size_t mEventSelector;
    std::string mUserID;
    std::array<std::unique_ptr<UartPort>, cUartCount> mUarts;
    std::array<std::unique_ptr<BulkPort>, cBulkCount> mBulks;
    std::array<Socket, cPortCount> mSockets;
    std::vector<Output> mOutputs;
};

} // namespace KySimulator
