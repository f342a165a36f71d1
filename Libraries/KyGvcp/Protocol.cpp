#include "KyGvcp/Protocol.h"

#include <algorithm>
#include <cstdio>

namespace KyGvcp
{

namespace
{

constexpr uint8_t cKey = 0x42;
constexpr size_t cLengthOffset = 4;
constexpr size_t cRequestOffset = 6;

} // namespace

std::string NameOfStatus(uint16_t aStatus)
{
    switch (aStatus)
    {
    case cSuccess:
        return "success";
    case cNotImplemented:
        return "not implemented";
    case cInvalidParameter:
        return "invalid parameter";
    case cInvalidAddress:
        return "invalid address";
    case cWriteProtect:
        return "write protected";
    case cBadAlignment:
        return "bad alignment";
    case cAccessDenied:
        return "access denied";
    case cBusy:
        return "busy";
    case cInvalidHeader:
        return "invalid header";
    case cError:
        return "error";
    default:
        break;
    }
    std::array<char, 14> lText{};
    static_cast<void>(
        std::snprintf(lText.data(), lText.size(), "status 0x%04X", static_cast<unsigned>(aStatus)));
    return lText.data();
}

Packet::Packet(uint16_t aFirst, uint16_t aSecond, uint16_t aRequestID)
{
    Add16(aFirst).Add16(aSecond).Add16(0).Add16(aRequestID);
}

Packet Packet::Command(uint16_t aCode, uint8_t aFlags, uint16_t aRequestID)
{
    return {static_cast<uint16_t>((cKey << 8U) | aFlags), aCode, aRequestID};
}

Packet Packet::Acknowledge(uint16_t aStatus, uint16_t aCode, uint16_t aRequestID)
{
    return {aStatus, aCode, aRequestID};
}

Packet& Packet::Add16(uint16_t aValue)
{
    const std::array<uint8_t, 2> lBytes = {static_cast<uint8_t>(aValue >> 8U),
                                           static_cast<uint8_t>(aValue & 0xFFU)};
    return Add(lBytes);
}

Packet& Packet::Add32(uint32_t aValue)
{
    return Add16(static_cast<uint16_t>(aValue >> 16U)).Add16(static_cast<uint16_t>(aValue & 0xFFFFU));
}

Packet& Packet::Add64(uint64_t aValue)
{
    return Add32(static_cast<uint32_t>(aValue >> 32U)).Add32(static_cast<uint32_t>(aValue & 0xFFFFFFFFU));
}

Packet& Packet::Add(Bytes aData)
{
    mGood = mGood && aData.size() <= mData.size() - mSize;
    if (mGood)
    {
        std::copy(aData.begin(), aData.end(), mData.begin() + static_cast<ptrdiff_t>(mSize));
        mSize += aData.size();
        SetLength();
    }
    return *this;
}

void Packet::SetRequestID(uint16_t aRequestID)
{
    mData[cRequestOffset] = static_cast<uint8_t>(aRequestID >> 8U);
    mData[cRequestOffset + 1] = static_cast<uint8_t>(aRequestID & 0xFFU);
}

void Packet::SetLength()
{
    if (mSize > cHeaderSize)
    {
        const size_t lLength = mSize - cHeaderSize;
        mData[cLengthOffset] = static_cast<uint8_t>(lLength >> 8U);
        mData[cLengthOffset + 1] = static_cast<uint8_t>(lLength & 0xFFU);
    }
}

Packet MakeDiscovery(uint16_t aRequestID, bool aBroadcastAcknowledge)
{
    constexpr uint8_t cBoth = cAcknowledgeWanted | cBroadcastAcknowledge;
    return Packet::Command(cDiscovery, aBroadcastAcknowledge ? cBoth : cAcknowledgeWanted, aRequestID);
}

Packet MakeReadRegister(uint16_t aRequestID, uint32_t aAddress)
{
    return Packet::Command(cReadRegister, cAcknowledgeWanted, aRequestID).Add32(aAddress);
}

Packet MakeWriteRegister(uint16_t aRequestID, uint32_t aAddress, uint32_t aValue)
{
    return Packet::Command(cWriteRegister, cAcknowledgeWanted, aRequestID).Add32(aAddress).Add32(aValue);
}

Packet MakeReadMemory(uint16_t aRequestID, uint32_t aAddress, uint16_t aCount)
{
    return Packet::Command(cReadMemory, cAcknowledgeWanted, aRequestID)
        .Add32(aAddress)
        .Add16(0)
        .Add16(aCount);
}

Packet MakeWriteMemory(uint16_t aRequestID, uint32_t aAddress, Bytes aData)
{
    return Packet::Command(cWriteMemory, cAcknowledgeWanted, aRequestID).Add32(aAddress).Add(aData);
}

uint64_t Reader::TakeNumber(size_t aSize)
{
    uint64_t lValue = 0;
    for (const uint8_t lByte : Take(aSize))
    {
        lValue = (lValue << 8U) | lByte;
    }
    return lValue;
}

uint16_t Reader::Take16()
{
    return static_cast<uint16_t>(TakeNumber(2));
}

uint32_t Reader::Take32()
{
    return static_cast<uint32_t>(TakeNumber(4));
}

uint64_t Reader::Take64()
{
    return TakeNumber(8);
}

Bytes Reader::Take(size_t aCount)
{
    mGood = mGood && aCount <= mRest.size();
    if (!mGood)
    {
        // After a part that is missing nothing is where it should be.
        mRest = {};
        return {};
    }
    const Bytes lTaken = mRest.first(aCount);
    mRest = mRest.subspan(aCount);
    return lTaken;
}

Bytes WithoutPadding(Bytes aPacket)
{
    Reader lReader(aPacket);
    lReader.Take(cLengthOffset);
    const size_t lLength = lReader.Take16();
    return aPacket.first(std::min(aPacket.size(), lReader.IsGood() ? cHeaderSize + lLength : SIZE_MAX));
}

std::optional<CommandView> ParseCommand(Bytes aPacket)
{
    Reader lReader(aPacket);
    const uint16_t lFirst = lReader.Take16();
    CommandView lCommand;
    lCommand.mFlags = static_cast<uint8_t>(lFirst & 0xFFU);
    lCommand.mCode = lReader.Take16();
    const size_t lLength = lReader.Take16();
    lCommand.mRequestID = lReader.Take16();
    if (!lReader.IsGood() || (lFirst >> 8U) != cKey)
    {
        return {};
    }
    // A command of a wrong length is still one: its identifier allows an answer that refuses it.
    lCommand.mLengthFits = lReader.GetRest().size() == lLength;
    if (lCommand.mLengthFits)
    {
        lCommand.mPayload = lReader.GetRest();
    }
    return lCommand;
}

std::optional<AcknowledgeView> ParseAcknowledge(Bytes aPacket)
{
    Reader lReader(aPacket);
    AcknowledgeView lAcknowledge;
    lAcknowledge.mStatus = lReader.Take16();
    lAcknowledge.mCode = lReader.Take16();
    const size_t lLength = lReader.Take16();
    lAcknowledge.mRequestID = lReader.Take16();
    lAcknowledge.mPayload = lReader.Take(lLength);
    // An acknowledge has the code above that of its command, which is always odd.
    if (!lReader.IsGood() || (lAcknowledge.mCode & 1U) == 0)
    {
        return {};
    }
    return lAcknowledge;
}

namespace
{

/// One item off the front of a payload. \return False when it makes no sense.
bool TakeEvent(Bytes& aPayload, const CommandView& aCommand, EventView& aEvent)
{
    const bool lExtended = (aCommand.mFlags & cExtendedID) != 0;
    const size_t lHeader = lExtended ? cExtendedEventItemSize : cEventItemSize;
    Reader lReader(aPayload);
    size_t lSize = lReader.Take16();
    // Some devices leave the size out. An EVENTDATA is one item then, and items of an EVENT are headers only.
    if (lSize == 0)
    {
        lSize = aCommand.mCode == cEventData ? aPayload.size() : lHeader;
    }
    aEvent.mID = lReader.Take16();
    aEvent.mStreamChannel = lReader.Take16();
    const uint16_t lShortID = lReader.Take16();
    aEvent.mBlockID = lExtended ? lReader.Take64() : lShortID;
    aEvent.mTimestamp = lReader.Take64();
    if (!lReader.IsGood() || lSize < lHeader || lSize > aPayload.size())
    {
        return false;
    }
    aEvent.mItem = aPayload.first(lSize);
    aEvent.mData = aEvent.mItem.subspan(lHeader);
    aPayload = aPayload.subspan(lSize);
    return true;
}

} // namespace

std::vector<EventView> ParseEvents(const CommandView& aCommand)
{
    std::vector<EventView> lEvents;
    Bytes lPayload = aCommand.mPayload;
    const size_t lHeader = (aCommand.mFlags & cExtendedID) != 0 ? cExtendedEventItemSize : cEventItemSize;
    while (lEvents.empty() ? !lPayload.empty() : lPayload.size() >= lHeader)
    {
        if (!TakeEvent(lPayload, aCommand, lEvents.emplace_back()))
        {
            // One item that makes no sense leaves it open where the others begin and end.
            return {};
        }
    }
    return lEvents;
}

void AddEvent(Packet& aCommand, uint16_t aID, uint64_t aBlockID, uint64_t aTimestamp, Bytes aData)
{
    const bool lExtended = (aCommand.GetFlags() & cExtendedID) != 0;
    const size_t lHeader = lExtended ? cExtendedEventItemSize : cEventItemSize;
    // A device description computes the length of the data from the size: the event port has it nowhere else.
    aCommand.Add16(static_cast<uint16_t>(lHeader + aData.size())).Add16(aID).Add16(cNoStreamChannel);
    if (lExtended)
    {
        aCommand.Add16(0).Add64(aBlockID);
    }
    else
    {
        aCommand.Add16(static_cast<uint16_t>(aBlockID));
    }
    aCommand.Add64(aTimestamp).Add(aData);
}

} // namespace KyGvcp
