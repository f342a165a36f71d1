#pragma once

#include "Simulator/Camera/CameraConfiguration.h"
#include "Simulator/Peers/I2CBusPeer.h"
#include "Simulator/Peers/SpiBusPeer.h"
#include "Simulator/Ports/DownstreamMessage.h"
#include "Simulator/Ports/LinePort.h"
#include "Simulator/Ports/LineSettings.h"
#include "Simulator/Ports/Outcome.h"

#include <memory>
#include <vector>

namespace KySimulator
{

/// A bulk port. Its settings are those of a configuration word and a rate word, whether they are reached as
/// registers (bulk port 0) or as features.
class BulkPort final : public LinePort
{
public:
    /// Transmit FIFO of the register window.
    static constexpr size_t cTransmitFifo = KyDeviceProtocol::cBulkTransmitFifo;
    /// Threshold of the partial-empty interrupt at the start.
    static constexpr uint32_t cThreshold = 128;

    BulkPort(PortHost& aHost, size_t aIndex, const CameraConfiguration& aConfiguration);

    Time GetByteTime() const override;
    void HandOn() override;

    uint32_t GetConfiguration() const { return mConfiguration; }
    /// Writing the reset bit empties both FIFOs.
    void SetConfiguration(uint32_t aValue);
    uint32_t GetRate() const { return mRate; }
    void SetRate(uint32_t aValue) { mRate = aValue; }

    /// Number of the interface, which need not be one that exists.
    Protocol GetProtocol() const;
    void SetProtocol(Protocol aProtocol);
    uint32_t GetSpeedIndex() const;
    void SetSpeedIndex(uint32_t aIndex);
    FrameSettings& GetFrame() { return mFrame; }

    /// Data through the register window.
    Outcome WriteWindow(const uint8_t* aData, size_t aSize, I2CFlags aFlags);
    /// A message through the downstream feature.
    Outcome WriteMessage(const uint8_t* aData, size_t aSize, bool aBigEndian);

    void SetI2CBus(std::shared_ptr<I2CBusPeer> aBus);
    void SetSpiBus(std::shared_ptr<SpiBusPeer> aBus);

    /// Data of the last upstream event.
    const std::vector<uint8_t>& GetLastUpstream() const { return mLastUpstream; }

private:
    void OnByteSent() override;
    bool IsUsable() const;
    bool IsLine() const;
    Outcome RefuseMessage(const char* aReason);
    Outcome WriteLine(const SerialMessage& aMessage);
    Outcome TransferI2C(const std::vector<uint8_t>& aData, I2CFlags aFlags);
    Outcome TransferSpi(const SpiMessage& aMessage);
    void RaiseReceived(const std::vector<uint8_t>& aBytes);
    void Answer(const std::vector<uint8_t>& aBytes, Time aStart, Time aByteTime);
    Time TimeOrNone(uint64_t aBits, uint64_t aRate) const;

    const size_t mIndex;
    const CameraConfiguration& mCamera;
    uint32_t mConfiguration;
    uint32_t mRate = 0;
    FrameSettings mFrame;
    std::shared_ptr<I2CBusPeer> mI2CBus;
    std::shared_ptr<SpiBusPeer> mSpiBus;
    Time mBusFree{0};  // end of the last transfer
    Time mBusStart{0}; // start of the last transfer
    std::vector<uint8_t> mLastUpstream;
};

} // namespace KySimulator
