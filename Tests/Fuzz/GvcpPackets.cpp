// Whatever comes in a packet: what is taken out of it lies inside it, and a packet that was understood can be
// made again and is understood the same.

#include "Fuzz/FuzzInput.h"
#include "KyGvcp/Protocol.h"

using namespace KyTest;
using namespace KyGvcp;

namespace
{

bool IsInside(Bytes aPart, Bytes aWhole)
{
    return aPart.empty() ||
           (aPart.data() >= aWhole.data() && aPart.data() + aPart.size() <= aWhole.data() + aWhole.size());
}

bool IsSame(Bytes aFirst, Bytes aSecond)
{
    return std::equal(aFirst.begin(), aFirst.end(), aSecond.begin(), aSecond.end());
}

void CheckCommand(Bytes aPacket)
{
    KY_REQUIRE(IsInside(WithoutPadding(aPacket), aPacket));
    const std::optional<CommandView> lCommand = ParseCommand(aPacket);
    if (!lCommand.has_value())
    {
        KY_REQUIRE(aPacket.size() < cHeaderSize || aPacket[0] != 0x42);
        return;
    }
    KY_REQUIRE(aPacket.size() >= cHeaderSize && IsInside(lCommand->mPayload, aPacket));
    KY_REQUIRE(lCommand->mLengthFits || lCommand->mPayload.empty());
    if (lCommand->mLengthFits && lCommand->mPayload.size() <= cMaxPayload)
    {
        Packet lAgain = Packet::Command(lCommand->mCode, lCommand->mFlags, lCommand->mRequestID);
        lAgain.Add(lCommand->mPayload);
        KY_REQUIRE(lAgain.IsGood());
        const std::optional<CommandView> lSecond = ParseCommand(lAgain.GetBytes());
        KY_REQUIRE(lSecond.has_value() && lSecond->mLengthFits && lSecond->mCode == lCommand->mCode &&
                   lSecond->mFlags == lCommand->mFlags && lSecond->mRequestID == lCommand->mRequestID);
        KY_REQUIRE(IsSame(lSecond->mPayload, lCommand->mPayload));
    }
    size_t lBytes = 0;
    for (const EventView& lEvent : ParseEvents(*lCommand))
    {
        KY_REQUIRE(IsInside(lEvent.mItem, lCommand->mPayload) && IsInside(lEvent.mData, lEvent.mItem));
        KY_REQUIRE(lEvent.mItem.size() >= lEvent.mData.size() + cEventItemSize);
        lBytes += lEvent.mItem.size();
    }
    KY_REQUIRE(lBytes == 0 || lCommand->mPayload.size() - lBytes < cExtendedEventItemSize); // padding
}

void CheckAcknowledge(Bytes aPacket)
{
    const std::optional<AcknowledgeView> lAcknowledge = ParseAcknowledge(aPacket);
    if (!lAcknowledge.has_value())
    {
        return;
    }
    KY_REQUIRE(aPacket.size() >= cHeaderSize && IsInside(lAcknowledge->mPayload, aPacket));
    KY_REQUIRE(lAcknowledge->mPayload.size() <= aPacket.size() - cHeaderSize);
    if (lAcknowledge->mPayload.size() <= cMaxPayload)
    {
        Packet lAgain =
            Packet::Acknowledge(lAcknowledge->mStatus, lAcknowledge->mCode, lAcknowledge->mRequestID);
        lAgain.Add(lAcknowledge->mPayload);
        const std::optional<AcknowledgeView> lSecond = ParseAcknowledge(lAgain.GetBytes());
        KY_REQUIRE(lSecond.has_value() && lSecond->mStatus == lAcknowledge->mStatus &&
                   lSecond->mCode == lAcknowledge->mCode && lSecond->mRequestID == lAcknowledge->mRequestID);
        KY_REQUIRE(IsSame(lSecond->mPayload, lAcknowledge->mPayload));
    }
}

// An event that was made is the one that is read.
void CheckEvent(FuzzInput& aInput)
{
    const uint8_t lKind = aInput.TakeByte();
    const auto lID = static_cast<uint16_t>(aInput.TakeWord());
    const auto lBlock = static_cast<uint16_t>(aInput.TakeWord());
    const uint64_t lTime = aInput.TakeWord();
    const std::vector<uint8_t> lData = aInput.TakeBytes(lKind);
    Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted, 1);
    AddEvent(lPacket, lID, lBlock, lTime, lData);
    KY_REQUIRE(lPacket.IsGood());
    const std::vector<EventView> lEvents = ParseEvents(*ParseCommand(lPacket.GetBytes()));
    KY_REQUIRE(lEvents.size() == 1 && lEvents[0].mID == lID && lEvents[0].mBlockID == lBlock);
    KY_REQUIRE(lEvents[0].mTimestamp == lTime && IsSame(lEvents[0].mData.first(lData.size()), lData));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    StepCounter::Count();
    const Bytes lPacket(aData, aSize);
    CheckCommand(lPacket);
    CheckAcknowledge(lPacket);
    FuzzInput lInput(aData, aSize);
    CheckEvent(lInput);
    return 0;
}
