#pragma once

#include "Simulator/Ports/PortHost.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace KySimulator
{

/// What the UARTs and the bulk ports have in common: a transmitter and a receiver that take the line's time
/// for each byte, a receive FIFO, and the memory of what went out. Part of the camera's state: one caller at
/// a time.
class LinePort
{
public:
    /// Sizes that the configuration gives.
    struct Limits
    {
        size_t mReceiveFifo;
        size_t mWire;
    };

    virtual ~LinePort() = default;
    LinePort(const LinePort&) = delete;
    LinePort& operator=(const LinePort&) = delete;

    /// Time of one byte on the line; 0 when it takes none.
    virtual Time GetByteTime() const = 0;

    /// Lets bytes arrive one after the other, the first of them beginning after aDelay.
    void Inject(const uint8_t* aData, size_t aSize, Time aDelay);

    /// Does what is due.
    void Step();

    /// When there is something to do next; cNever when nothing is on its way.
    Time NextDue() const;

    /// Hands on what the receive FIFO holds, if a receiver is enabled.
    virtual void HandOn() = 0;

    const PortCounters& GetCounters() const { return mCounters; }
    std::vector<uint8_t> GetWire() const;
    void ClearWire() { mWire.clear(); }

protected:
    LinePort(PortHost& aHost, Port aPort, Limits aLimits);

    /// A byte has left; GetTransmitFill() no longer counts it. FlushToPeer() comes before what it raises.
    virtual void OnByteSent() = 0;

    /// Gives bytes to the transmitter, which goes on at once or at aStart.
    /// \param aOnWire  False for bytes that only take their time here.
    void Transmit(const uint8_t* aData, size_t aSize, bool aOnWire, Time aStart);
    size_t GetTransmitFill() const { return mTransmit.size(); }
    void DropTransmit() { mTransmit.clear(); }

    /// Lets bytes arrive all at once at aTime, not before those that are on their way.
    void ArriveAt(const uint8_t* aData, size_t aSize, Time aTime);
    size_t GetArriving() const { return mArriving.size(); }

    /// Takes up to aMaximum bytes out of the receive FIFO.
    std::vector<uint8_t> TakeReceived(size_t aMaximum);
    size_t GetReceived() const { return mReceived.size(); }
    void DropReceived() { mReceived.clear(); }

    void FlushToPeer();

    PortHost& mHost;
    const Port mPort;
    PortCounters mCounters;

private:
    struct Outgoing
    {
        uint8_t mByte;
        bool mOnWire;
    };
    struct Arriving
    {
        Time mTime;
        uint8_t mByte;
    };

    void Send(Outgoing aByte);
    void Receive(uint8_t aByte);

    const Limits mLimits;
    std::deque<Outgoing> mTransmit;
    Time mTransmitDue{0}; // end of the first byte of mTransmit
    std::deque<Arriving> mArriving;
    Time mLastArrival{0};
    std::deque<uint8_t> mReceived;
    std::deque<uint8_t> mWire;
    std::vector<uint8_t> mToPeer;
};

} // namespace KySimulator
