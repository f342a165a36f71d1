#include "Simulator/Ports/UartPort.h"

#include <KySerial/DeviceProtocol.h>

namespace KySimulator
{

using namespace KyDeviceProtocol;

UartPort::UartPort(PortHost& aHost, size_t aIndex, Limits aLimits, bool aUnlimited)
    : LinePort(aHost, aIndex == 0 ? Port::Uart0 : Port::Uart1, aLimits)
    , mTransmitBit(aIndex == 0 ? cUart0TransmitDone : cUart1TransmitDone)
    , mReceiveBit(aIndex == 0 ? cUart0Receive : cUart1Receive)
    , mUnlimited(aUnlimited)
{
}

Time UartPort::GetByteTime() const
{
    // A UART has no register for a divisor: its feature offers the rates of the table and no custom one.
    return mUnlimited ? Time(0) : TimeOfBits(mFrame.BitsPerByte(), UartRate(mSpeedIndex, 0));
}

void UartPort::WriteData(uint32_t aValue)
{
    // A byte that finds the FIFO full is lost.
    if (GetTransmitFill() >= cTransmitFifo)
    {
        ++mCounters.mTransmitOverflow; // the device acknowledges the write all the same
        return;
    }
    const auto lByte = static_cast<uint8_t>(aValue & 0xFFU);
    Transmit(&lByte, 1, true, mHost.Now());
}

uint32_t UartPort::ReadData()
{
    // Each read takes one byte, as on the device: the register has no other way to move on.
    const std::vector<uint8_t> lByte = TakeReceived(1);
    if (lByte.empty())
    {
        return 0;
    }
    ++mCounters.mReported;
    // The valid bit is the difference between a byte of the value 0 and an empty FIFO.
    return lByte[0] | cDataValid | (GetReceived() > 0 ? cDataMore : 0U);
}

void UartPort::OnByteSent()
{
    // The interrupt is raised for each byte: the writer sends one, waits for this, and sends the next.
    if (mHost.EnabledInterrupts(mTransmitBit) != 0)
    {
        FlushToPeer(); // the interrupt says that the byte is out
        ++mCounters.mInterrupts;
        mHost.RaiseInterrupt(cInterruptEvent, mTransmitBit, {});
    }
}

void UartPort::HandOn()
{
    // Each byte takes a word of the event, and the event has to fit a network packet.
    constexpr size_t cBytesPerEvent = 64;
    while (GetReceived() > 0 && mHost.EnabledInterrupts(mReceiveBit) != 0)
    {
        const std::vector<uint8_t> lBytes = TakeReceived(cBytesPerEvent);
        std::vector<uint8_t> lWords(lBytes.size() * 4);
        for (size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex)
        {
            // The byte is the lowest one of its little-endian word.
            lWords[lIndex * 4] = lBytes[lIndex];
        }
        mCounters.mReported += lBytes.size();
        ++mCounters.mInterrupts;
        mHost.RaiseInterrupt(cInterruptEvent, mReceiveBit, lWords);
    }
}

} // namespace KySimulator
