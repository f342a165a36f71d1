#include "Simulator/Ports/BulkPort.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

uint32_t WithBits(uint32_t aWord, uint32_t aShift, uint32_t aValue)
{
    return (aWord & ~(cThreeBits << aShift)) | ((aValue & cThreeBits) << aShift);
}

} // namespace

BulkPort::BulkPort(PortHost& aHost, size_t aIndex, const CameraConfiguration& aConfiguration)
    : LinePort(aHost, BulkPortOf(aIndex), {aConfiguration.mBulkReceiveFifo, aConfiguration.mWireLimit})
    , mIndex(aIndex)
    , mCamera(aConfiguration)
    , mConfiguration(cThreshold << cThresholdShift)
    , mI2CBus(std::make_shared<I2CBusPeer>())
    , mSpiBus(std::make_shared<SpiBusPeer>(nullptr))
{
    SetProtocol(aConfiguration.mBulk[aIndex].mMode);
}

void BulkPort::SetConfiguration(uint32_t aValue)
{
    // The word is kept as it was written, fields that make no sense included: the device reads it back that way.
    mConfiguration = aValue;
    // An application sets the bit and clears it again. Each write that has it set empties both FIFOs.
    if ((aValue & cResetFifos) != 0)
    {
        DropTransmit();
        DropReceived();
    }
}

Protocol BulkPort::GetProtocol() const
{
    return static_cast<Protocol>((mConfiguration >> cInterfaceShift) & cThreeBits);
}

void BulkPort::SetProtocol(Protocol aProtocol)
{
    mConfiguration = WithBits(mConfiguration, cInterfaceShift, static_cast<uint32_t>(aProtocol));
}

uint32_t BulkPort::GetSpeedIndex() const
{
    return (mConfiguration >> cSpeedShift) & cThreeBits;
}

void BulkPort::SetSpeedIndex(uint32_t aIndex)
{
    mConfiguration = WithBits(mConfiguration, cSpeedShift, aIndex);
}

bool BulkPort::IsUsable() const
{
    return mCamera.mBulk[mIndex].Offers(GetProtocol());
}

bool BulkPort::IsLine() const
{
    return GetProtocol() == Protocol::Uart || GetProtocol() == Protocol::Usrt;
}

Time BulkPort::TimeOrNone(uint64_t aBits, uint64_t aRate) const
{
    // On an unlimited line a byte takes no time. Neither does one on a port that is set to a protocol it does not
    // have: nothing is clocked out there.
    if (mCamera.mUnlimitedLineRate || !IsUsable())
    {
        return Time(0);
    }
    return TimeOfBits(aBits, aRate) * ((mConfiguration & cDoubleByteTime) != 0 ? 2 : 1);
}

Time BulkPort::GetByteTime() const
{
    // Writes through the transmit window drain the FIFO at the bus's normal rate.
    constexpr uint64_t cI2CRate = 100000;
    switch (GetProtocol())
    {
    case Protocol::Uart:
        return TimeOrNone(mFrame.BitsPerByte(), UartRate(GetSpeedIndex(), mRate));
    case Protocol::I2C:
        return TimeOrNone(9, cI2CRate); // eight bits and the acknowledge
    case Protocol::Usrt:
    case Protocol::Spi:
        break;
    }
    // USRT and SPI have a clock line, so a byte has no bits but its own.
    return TimeOrNone(8, cSynchronousClock / (2U << GetSpeedIndex()));
}

Outcome BulkPort::RefuseMessage(const char* aReason)
{
    ++mCounters.mBadMessages;
    return {Status::InvalidParameter, aReason};
}

Outcome BulkPort::WriteWindow(const uint8_t* aData, size_t aSize, I2CFlags aFlags)
{
    // The FIFO takes what it has room for and drops the rest.
    const size_t lTaken = std::min(aSize, cTransmitFifo - std::min(GetTransmitFill(), cTransmitFifo));
    mCounters.mTransmitOverflow += aSize - lTaken; // the device acknowledges the write all the same
    const bool lIsI2C = IsUsable() && GetProtocol() == Protocol::I2C;
    if (lIsI2C)
    {
        Outcome lOutcome = TransferI2C({aData, aData + lTaken}, aFlags);
        // The failed write ends the transfer for its writer, which waits for no interrupt. So the bytes skip
        // the FIFO.
        if (!lOutcome.IsOk())
        {
            return lOutcome;
        }
    }
    const bool lOnWire = IsUsable() && IsLine();
    if (!lOnWire && !lIsI2C)
    {
        mCounters.mDiscarded += lTaken;
    }
    // What does not go out on the line still passes the FIFO, whose interrupts the writer waits for.
    Transmit(aData, lTaken, lOnWire, lIsI2C ? mBusStart : mHost.Now());
    return {};
}

Outcome BulkPort::WriteMessage(const uint8_t* aData, size_t aSize, bool aBigEndian)
{
    if (!IsUsable())
    {
        return {Status::AccessDenied, "The port is set to an interface that it does not have."};
    }
    // Each answer is kept until its time on the line has passed. Without a limit a client that only asks would fill
    // memory.
    if (GetArriving() > mCamera.mDownstreamQueue)
    {
        return {Status::Busy, "Too many answers are on their way."};
    }
    if (GetProtocol() == Protocol::Spi)
    {
        const auto lMessage = ParseSpiMessage(aData, aSize, aBigEndian);
        return lMessage ? TransferSpi(*lMessage) : RefuseMessage("The SPI message does not fit its header.");
    }
    const auto lMessage = ParseSerialMessage(aData, aSize, aBigEndian);
    if (!lMessage)
    {
        return RefuseMessage("The message does not fit its header.");
    }
    // UART, USRT and I2C share one header. Only in I2C mode do its flags mean anything.
    return IsLine() ? WriteLine(*lMessage) : TransferI2C(lMessage->mData, lMessage->mFlags);
}

Outcome BulkPort::WriteLine(const SerialMessage& aMessage)
{
    // The whole message or nothing: the caller could not know where a part had ended.
    if (GetTransmitFill() + aMessage.mData.size() > mCamera.mDownstreamQueue)
    {
        return {Status::Busy, "No room for the message until the line has taken what is waiting."};
    }
    Transmit(aMessage.mData.data(), aMessage.mData.size(), true, mHost.Now());
    return {};
}

Outcome BulkPort::TransferI2C(const std::vector<uint8_t>& aData, I2CFlags aFlags)
{
    constexpr size_t cReadCommand = 3;
    if (!aFlags.mTransfer || aData.empty())
    {
        return RefuseMessage("In I2C mode the port takes marked transfers only.");
    }
    // The first byte is the one that goes over the bus: seven bits of address and the direction.
    const auto lAddress = static_cast<uint8_t>(aData[0] >> 1U);
    const bool lRead = (aData[0] & 1U) != 0;
    if (lRead && aData.size() != cReadCommand)
    {
        return RefuseMessage("An I2C read is an address and a count of two bytes.");
    }
    const Time lBit = TimeOrNone(1, aFlags.mFast ? 400000 : 100000);
    // The device takes the next message while the bus is busy, and starts it when the bus is free.
    mBusStart = std::max(mHost.Now(), mBusFree);
    const I2CTransfer lTransfer =
        lRead
            ? mI2CBus->Read(lAddress, aData[1] | static_cast<size_t>(aData[2]) << 8U, aFlags, mBusStart, lBit)
            : mI2CBus->Write(lAddress, aData.data() + 1, aData.size() - 1, aFlags, mBusStart, lBit);
    mBusFree = lTransfer.mEnd;
    mCounters.mSent += 1 + (lRead ? 0 : lTransfer.mBytes.size());
    if (!lTransfer.IsComplete())
    {
        ++mCounters.mNotAcknowledged;
        // Some devices report a missing acknowledge, others swallow it. Applications meet both.
        return mCamera.mReportNack ? Outcome(Status::NoAcknowledge, "The I2C device did not acknowledge.")
                                   : Outcome();
    }
    if (lRead)
    {
        std::vector<uint8_t> lBytes;
        lBytes.reserve(lTransfer.mBytes.size());
        for (const I2CByte& lByte : lTransfer.mBytes)
        {
            lBytes.push_back(lByte.mByte);
        }
        Answer(lBytes, mBusStart + 10 * lBit, 9 * lBit); // after the start and the address
    }
    return {};
}

Outcome BulkPort::TransferSpi(const SpiMessage& aMessage)
{
    std::vector<uint8_t> lOut = aMessage.mData;
    lOut.resize(lOut.size() + aMessage.mReadSize); // reads clock zeros out
    const Time lByteTime = GetByteTime();
    // A transfer starts when the bus is free. The device takes the next message before that.
    mBusStart = std::max(mHost.Now(), mBusFree);
    const std::vector<uint8_t> lIn = mSpiBus->Exchange(lOut, mBusStart, lByteTime);
    mBusFree = mBusStart + lByteTime * static_cast<Time::rep>(lOut.size());
    mCounters.mSent += lOut.size();
    if (aMessage.mFinal)
    {
        mSpiBus->Release(mBusFree);
    }
    // Bytes that arrive while others are written count only in a simultaneous exchange.
    const size_t lSkipped = aMessage.mSimultaneous ? 0 : aMessage.mData.size();
    Answer({lIn.begin() + static_cast<std::ptrdiff_t>(lSkipped), lIn.end()},
           mBusStart + lByteTime * static_cast<Time::rep>(lSkipped), lByteTime);
    return {};
}

void BulkPort::Answer(const std::vector<uint8_t>& aBytes, Time aStart, Time aByteTime)
{
    // In pieces: an event for each byte would flood the network, and one event at the end of a long answer would
    // come after the reader has given up.
    constexpr size_t cPiece = 64;
    for (size_t lOffset = 0; lOffset < aBytes.size(); lOffset += cPiece)
    {
        const size_t lSize = std::min(cPiece, aBytes.size() - lOffset);
        ArriveAt(aBytes.data() + lOffset, lSize,
                 aStart + aByteTime * static_cast<Time::rep>(lOffset + lSize));
    }
}

void BulkPort::OnByteSent()
{
    if (mIndex != 0)
    {
        return; // only bulk port 0 has registers, and with them interrupts
    }
    const size_t lFill = GetTransmitFill();
    uint32_t lStatus = lFill == 0 ? cBulkTransmitEmpty : 0U;
    // Once on the way down: a writer sizes its next piece by it.
    if (lFill == mConfiguration >> cThresholdShift)
    {
        lStatus |= cBulkTransmitPartialEmpty;
    }
    lStatus = mHost.EnabledInterrupts(lStatus);
    if (lStatus != 0)
    {
        // The interrupt says that the bytes are out, so the peer gets them first.
        FlushToPeer();
        ++mCounters.mInterrupts;
        mHost.RaiseInterrupt(mCamera.mBulkInterruptEvent, lStatus, {});
    }
}

void BulkPort::HandOn()
{
    // The upstream feature shows one event, so an event carries at most as many bytes as that feature has.
    const size_t lMaximum = std::min<size_t>(mCamera.mUpstreamLength, 512);
    while (GetReceived() > 0 &&
           ((mIndex == 0 && mHost.EnabledInterrupts(cBulkReceive) != 0) || mHost.IsUpstreamEnabled(mIndex)))
    {
        RaiseReceived(TakeReceived(lMaximum));
    }
}

void BulkPort::RaiseReceived(const std::vector<uint8_t>& aBytes)
{
    // Bulk port 0 has two ways to report, and an application may have switched on either or both. Both get the same
    // bytes.
    mCounters.mReported += aBytes.size();
    const uint32_t lEnabled = mIndex == 0 ? mHost.EnabledInterrupts(cBulkReceive) : 0U;
    if (lEnabled != 0)
    {
        ++mCounters.mInterrupts;
        const uint32_t lLowest = lEnabled & (~lEnabled + 1U); // one cause is enough, whichever is enabled
        mHost.RaiseInterrupt(mCamera.mBulkInterruptEvent, lLowest, aBytes);
    }
    if (mHost.IsUpstreamEnabled(mIndex))
    {
        ++mCounters.mUpstreamEvents;
        mLastUpstream = aBytes;
        mHost.RaiseUpstream(mIndex, aBytes);
    }
}

void BulkPort::SetI2CBus(std::shared_ptr<I2CBusPeer> aBus)
{
    // A port without devices still has a bus. On it nothing acknowledges.
    mI2CBus = aBus != nullptr ? std::move(aBus) : std::make_shared<I2CBusPeer>();
}

void BulkPort::SetSpiBus(std::shared_ptr<SpiBusPeer> aBus)
{
    // The same for SPI: an open line reads as ones.
    mSpiBus = aBus != nullptr ? std::move(aBus) : std::make_shared<SpiBusPeer>(nullptr);
}

} // namespace KySimulator
