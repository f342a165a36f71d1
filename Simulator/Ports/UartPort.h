#pragma once

#include "Simulator/Ports/LinePort.h"
#include "Simulator/Ports/LineSettings.h"

namespace KySimulator
{

/// One of the two UARTs: a byte per register write, a transmit-done interrupt per byte.
///
/// Bytes written while one is going out wait in a FIFO of cTransmitFifo; more are dropped. Received bytes are
/// raised with the receive interrupt as they come; while that is off they wait for it, or for the data
/// register.
class UartPort final : public LinePort
{
public:
    static constexpr size_t cTransmitFifo = 16;

    /// \param aIndex  0 or 1.
    UartPort(PortHost& aHost, size_t aIndex, Limits aLimits, bool aUnlimited);

    Time GetByteTime() const override;
    void HandOn() override;

    /// A write of the data register.
    void WriteData(uint32_t aValue);
    /// A read of the data register, which takes a byte.
    uint32_t ReadData();

    uint32_t GetSpeedIndex() const { return mSpeedIndex; }
    void SetSpeedIndex(uint32_t aIndex) { mSpeedIndex = aIndex; }
    FrameSettings& GetFrame() { return mFrame; }

private:
    void OnByteSent() override;

    const uint32_t mTransmitBit;
    const uint32_t mReceiveBit;
    const bool mUnlimited;
    uint32_t mSpeedIndex = 0;
    FrameSettings mFrame;
};

} // namespace KySimulator
