#include "Adapters/GigE/Evaluator/Evaluator.h"

#include "Adapters/GigE/GenApi/EventAddress.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

namespace KyGigE
{

namespace
{

uint64_t MaskOf(unsigned aWidth)
{
    return aWidth >= 64 ? ~uint64_t{0} : (uint64_t{1} << aWidth) - 1;
}

uint64_t ToBits(std::span<const uint8_t> aBytes, bool aLittle)
{
    uint64_t lBits = 0;
    for (size_t lIndex = 0; lIndex < aBytes.size(); ++lIndex)
    {
        lBits = lBits << 8U | aBytes[aLittle ? aBytes.size() - 1 - lIndex : lIndex];
    }
    return lBits;
}

std::vector<uint8_t> ToBytes(uint64_t aBits, size_t aSize, bool aLittle)
{
    std::vector<uint8_t> lBytes(aSize);
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        lBytes[aLittle ? lIndex : aSize - 1 - lIndex] = static_cast<uint8_t>(aBits >> (8 * lIndex));
    }
    return lBytes;
}

} // namespace

bool Evaluator::GetSpot(NodeId aNode, RegisterSpot& aSpot)
{
    uint64_t lBase = 0;
    aSpot = {};
    if (!GetPort(aNode, aSpot) || !GetAddress(aNode, lBase) || !GetLength(aNode, aSpot.mLength))
    {
        return false;
    }
    aSpot.mAddress += lBase;
    return true;
}

bool Evaluator::GetPort(NodeId aNode, RegisterSpot& aSpot)
{
    const Property* const lPort = mNodes.Find(aNode, PropertyId::PPort);
    if (lPort == nullptr)
    {
        return FailAt(aNode, "it has no port");
    }
    if (!Follow(aNode, *lPort))
    {
        return false;
    }
    // Chunks come with images, which this adapter does not receive.
    if (mNodes.Get(lPort->mNode).mKind != ElementKind::Port ||
        mNodes.Find(lPort->mNode, PropertyId::ChunkId) != nullptr ||
        mNodes.Find(lPort->mNode, PropertyId::PChunkId) != nullptr)
    {
        return FailAt(aNode, "its port is not the device's");
    }
    const uint16_t lEvent = mGraph.GetEventId(lPort->mNode);
    aSpot.mIsEvent = lEvent != 0;
    aSpot.mAddress = lEvent != 0 ? EventAddress(lEvent) : 0;
    return true;
}

bool Evaluator::GetAddress(NodeId aNode, uint64_t& aAddress)
{
    const std::span<const Property> lProperties = mNodes.GetProperties(aNode);
    aAddress = 0;
    for (size_t lPlace = 0; lPlace < lProperties.size(); ++lPlace)
    {
        const Property& lProperty = lProperties[lPlace];
        int64_t lPart = 0;
        if (lProperty.mId == PropertyId::Address)
        {
            Number lNumber;
            if (!GetConstant(aNode, lProperty, lNumber))
            {
                return false;
            }
            lPart = lNumber.Rounded().value_or(0);
        }
        else if (lProperty.mId == PropertyId::PAddress)
        {
            if (!Follow(aNode, lProperty) || !GetInteger(lProperty.mNode, lPart))
            {
                return false;
            }
        }
        else if (lProperty.mId == PropertyId::Index)
        {
            // The table of nodes keeps the offset right after its index. Without one an index counts registers.
            const Property* const lOffset =
                lPlace + 1 < lProperties.size() ? &lProperties[lPlace + 1] : nullptr;
            int64_t lIndex = 0;
            uint64_t lLength = 0;
            Number lStep;
            const bool lConstant = lOffset != nullptr && lOffset->mId == PropertyId::IndexOffset;
            const bool lReference = lOffset != nullptr && lOffset->mId == PropertyId::PIndexOffset;
            const bool lGood = lConstant    ? GetConstant(aNode, *lOffset, lStep)
                               : lReference ? Follow(aNode, *lOffset) && GetNumber(lOffset->mNode, lStep)
                                            : GetLength(aNode, lLength);
            if (!lGood || !Follow(aNode, lProperty) || !GetInteger(lProperty.mNode, lIndex))
            {
                return false;
            }
            lLength = lConstant || lReference ? static_cast<uint64_t>(lStep.Rounded().value_or(0)) : lLength;
            lPart = static_cast<int64_t>(static_cast<uint64_t>(lIndex) * lLength);
        }
        // All parts add up. Unsigned: those of a hostile device may wrap.
        aAddress += static_cast<uint64_t>(lPart);
    }
    return true;
}

bool Evaluator::GetLength(NodeId aNode, uint64_t& aLength)
{
    std::optional<Number> lLength;
    if (!GetProperty(aNode, PropertyId::Length, PropertyId::PLength, lLength))
    {
        return false;
    }
    // Without one there is nothing to read, and any guess would read a neighbour's bytes.
    if (!lLength)
    {
        return FailAt(aNode, "it has no length");
    }
    // A length that is no whole number is too long as well.
    aLength = static_cast<uint64_t>(lLength->Rounded().value_or(-1));
    // Bytes are not read here but by the caller, who brings the memory.
    const bool lBytes = mNodes.Get(aNode).mKind == ElementKind::Register;
    return aLength <= (lBytes ? uint64_t{std::numeric_limits<uint32_t>::max()} : cLongestValue)
               ? true
               : Fail(KyResult::FAILURE, "The feature " + NameOf(aNode) + " is longer than any value.");
}

/// A register that holds one number.
bool Evaluator::GetNumberSpot(NodeId aNode, RegisterSpot& aSpot)
{
    if (!GetSpot(aNode, aSpot))
    {
        return false;
    }
    return aSpot.mLength >= 1 && aSpot.mLength <= 8 ? true : FailAt(aNode, "no number has its length");
}

/// Which bits of the register are the number. Those of big-endian registers are counted from the upper end.
bool Evaluator::GetField(NodeId aNode, const RegisterSpot& aSpot, Field& aField)
{
    const auto lSize = static_cast<unsigned>(8 * aSpot.mLength);
    const std::string_view lOrder = mNodes.GetText(aNode, PropertyId::Endianess);
    aField.mSigned = mNodes.GetText(aNode, PropertyId::Sign) == "Signed";
    // A register is little-endian and unsigned when its description says nothing.
    aField.mLittle = lOrder != "BigEndian";
    aField.mShift = 0;
    aField.mWidth = lSize;
    if (mNodes.Get(aNode).mKind == ElementKind::IntReg)
    {
        return true;
    }
    std::optional<Number> lFirst;
    std::optional<Number> lLast;
    if (!GetProperty(aNode, PropertyId::Bit, PropertyId::None, lFirst))
    {
        return false;
    }
    // A single bit is a field from itself to itself.
    lLast = lFirst;
    if (!lFirst && (!GetProperty(aNode, PropertyId::Lsb, PropertyId::None, lFirst) ||
                    !GetProperty(aNode, PropertyId::Msb, PropertyId::None, lLast)))
    {
        return false;
    }
    if (!lFirst || !lLast)
    {
        return FailAt(aNode, "it does not say which bits it has");
    }
    const int64_t lOne = lFirst->Rounded().value_or(-1);
    const int64_t lOther = lLast->Rounded().value_or(-1);
    // Descriptions have the two bits in either order, since the order of counting depends on the byte order.
    const int64_t lLow = std::min(lOne, lOther);
    const int64_t lHigh = std::max(lOne, lOther);
    if (lLow < 0 || lHigh >= static_cast<int64_t>(lSize))
    {
        return FailAt(aNode, "its bits lie outside its register");
    }
    aField.mWidth = static_cast<unsigned>(lHigh - lLow + 1);
    aField.mShift = aField.mLittle ? static_cast<unsigned>(lLow) : lSize - 1 - static_cast<unsigned>(lHigh);
    return true;
}

bool Evaluator::ReadBits(NodeId aNode, const RegisterSpot& aSpot, bool aLittle, uint64_t& aBits)
{
    std::array<uint8_t, 8> lBytes{};
    if (!ReadBytes(aNode, aSpot, lBytes.data()))
    {
        return false;
    }
    aBits = ToBits({lBytes.data(), static_cast<size_t>(aSpot.mLength)}, aLittle);
    return true;
}

bool Evaluator::ReadInteger(NodeId aNode, Number& aValue)
{
    RegisterSpot lSpot;
    Field lField;
    uint64_t lBits = 0;
    if (!GetNumberSpot(aNode, lSpot) || !GetField(aNode, lSpot, lField) ||
        !ReadBits(aNode, lSpot, lField.mLittle, lBits))
    {
        return false;
    }
    lBits = lBits >> lField.mShift & MaskOf(lField.mWidth);
    // The field's own upper bit is its sign; it is spread over the bits above.
    const bool lNegative = lField.mSigned && (lBits >> (lField.mWidth - 1) & 1U) != 0;
    aValue = Number::Integer(static_cast<int64_t>(lNegative ? lBits | ~MaskOf(lField.mWidth) : lBits));
    return true;
}

bool Evaluator::ReadFloat(NodeId aNode, Number& aValue)
{
    RegisterSpot lSpot;
    uint64_t lBits = 0;
    if (!GetNumberSpot(aNode, lSpot) ||
        !ReadBits(aNode, lSpot, mNodes.GetText(aNode, PropertyId::Endianess) != "BigEndian", lBits))
    {
        return false;
    }
    if (lSpot.mLength != 4 && lSpot.mLength != 8)
    {
        return FailAt(aNode, "no number has its length");
    }
    const double lValue = lSpot.mLength == 4
                              ? static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(lBits)))
                              : std::bit_cast<double>(lBits);
    aValue = Number::Float(lValue);
    return true;
}

bool Evaluator::ReadString(NodeId aNode, std::string& aValue)
{
    RegisterSpot lSpot;
    if (!GetSpot(aNode, lSpot))
    {
        return false;
    }
    std::vector<uint8_t> lBytes(static_cast<size_t>(lSpot.mLength));
    if (!ReadBytes(aNode, lSpot, lBytes.data()))
    {
        return false;
    }
    // A text that fills its register has no end mark.
    const auto lEnd = std::find(lBytes.begin(), lBytes.end(), uint8_t{0});
    aValue.assign(lBytes.begin(), lEnd);
    return true;
}

bool Evaluator::TakeAccess(NodeId aNode, uint64_t aSize)
{
    // A description can make one feature read thousands of registers. The budget ends that before the user gives
    // up.
    if (mAccessesLeft == 0 || mBytesLeft < aSize)
    {
        return FailAt(aNode, "it reads too much from the device");
    }
    --mAccessesLeft;
    mBytesLeft -= aSize;
    return TakeTime(aNode);
}

bool Evaluator::TakeTime(NodeId aNode)
{
    return mDeviceTime < cMostDeviceTime ? true : FailAt(aNode, "the device takes too long");
}

template<typename Access>
KyResult Evaluator::Timed(const Access& aAccess)
{
    const uint64_t lBegin = mClock();
    KyResult lResult = aAccess();
    // One access counts with a limited time: the device may have announced that it takes longer.
    mDeviceTime += std::min(mClock() - lBegin, cMostOfOneAccess);
    return lResult;
}

// In pieces that each take one packet, so that a long text of a slow device ends when the time is over.
bool Evaluator::ReadDevice(NodeId aNode, const RegisterSpot& aSpot, uint8_t* aBytes)
{
    constexpr uint64_t cPiece = 512;
    if (IsPlainRegister(aSpot))
    {
        uint32_t lValue = 0;
        const KyResult lResult = Timed([&] { return mSpace.ReadRegister(aSpot.mAddress, lValue); });
        // The device's registers are big-endian on the wire, and memory is in that order.
        const std::vector<uint8_t> lBytes = ToBytes(lValue, 4, false);
        std::copy(lBytes.begin(), lBytes.end(), aBytes);
        return CheckDevice(lResult);
    }
    const uint64_t lPiece = aSpot.mIsEvent ? aSpot.mLength : cPiece; // an event stays one
    KyResult lResult;
    for (uint64_t lDone = 0; lResult.IsOK() && lDone < aSpot.mLength; lDone += lPiece)
    {
        if (!TakeTime(aNode))
        {
            return false;
        }
        const uint64_t lSize = std::min(lPiece, aSpot.mLength - lDone);
        lResult = Timed([&] { return mSpace.ReadMemory(aSpot.mAddress + lDone, aBytes + lDone, lSize); });
    }
    return CheckDevice(lResult);
}

bool Evaluator::CheckDevice(const KyResult& aResult)
{
    if (!aResult.IsOK() && !mFailure)
    {
        mFailure = aResult;
    }
    return aResult.IsOK();
}

bool Evaluator::IsPlainRegister(const RegisterSpot& aSpot) const
{
    // Descriptions of the older schema want four bytes accessed as a register, not as memory.
    return mDescription.HasRegistersOnly() && aSpot.mLength == 4 && aSpot.mAddress % 4 == 0 &&
           aSpot.mAddress <= std::numeric_limits<uint32_t>::max();
}

bool Evaluator::MayKeep(NodeId aNode, const RegisterSpot& aSpot) const
{
    // The bytes of an event are its own: the next event has others at the same place.
    return !aSpot.mIsEvent && mNodes.GetText(aNode, PropertyId::Cachable) != "NoCache";
}

void Evaluator::Keep(NodeId aNode, const RegisterSpot& aSpot, std::span<const uint8_t> aBytes)
{
    const uint64_t lLifetime = mGraph.GetLifetime(aNode);
    mCache.Keep(aNode, aSpot.mAddress, aBytes, lLifetime != 0 ? mClock() + lLifetime : 0);
}

bool Evaluator::ReadBytes(NodeId aNode, const RegisterSpot& aSpot, uint8_t* aBytes)
{
    const auto lSize = static_cast<size_t>(aSpot.mLength);
    if (lSize == 0) // a text of no length is empty; devices refuse such reads
    {
        return true;
    }
    const bool lMayKeep = MayKeep(aNode, aSpot);
    bool lExpired = false;
    const uint64_t lNow = mGraph.GetLifetime(aNode) != 0 ? mClock() : 0;
    const std::span<const uint8_t> lKept = mCache.Find(aNode, aSpot.mAddress, lSize, lNow, lExpired);
    if (!lKept.empty())
    {
        std::copy(lKept.begin(), lKept.end(), aBytes);
        return true;
    }
    if (!TakeAccess(aNode, lSize))
    {
        return false;
    }
    if (!ReadDevice(aNode, aSpot, aBytes))
    {
        return false;
    }
    if (lExpired) // what this register invalidates is as old
    {
        for (const NodeId lStale : mGraph.StaleAfter(aNode))
        {
            mCache.Drop(lStale);
        }
    }
    if (lMayKeep)
    {
        Keep(aNode, aSpot, {aBytes, lSize});
    }
    return true;
}

bool Evaluator::WriteBytes(NodeId aNode, const RegisterSpot& aSpot, std::vector<uint8_t> aBytes)
{
    if (aBytes.empty())
    {
        return true;
    }
    if (!TakeAccess(aNode, aBytes.size()))
    {
        return false;
    }
    const KyResult lResult = Timed(
        [&]
        {
            return IsPlainRegister(aSpot)
                       ? mSpace.WriteRegister(aSpot.mAddress, static_cast<uint32_t>(ToBits(aBytes, false)))
                       : mSpace.WriteMemory(aSpot.mAddress, aBytes.data(), aBytes.size());
        });
    // Also after a failure: the device may have done it, or a part.
    mCache.DropOverlapping(aSpot.mAddress, aBytes.size());
    ++mUse; // what this use has worked out may be different now
    mExpressions.clear();
    mRanges.clear();
    if (!CheckDevice(lResult))
    {
        return false;
    }
    mWritten.push_back({aNode, aSpot, std::move(aBytes)});
    return true;
}

bool Evaluator::WriteInteger(NodeId aNode, int64_t aValue)
{
    RegisterSpot lSpot;
    Field lField;
    if (!GetNumberSpot(aNode, lSpot) || !GetField(aNode, lSpot, lField) ||
        !CheckRange(aNode, Number::Integer(aValue)))
    {
        return false;
    }
    uint64_t lBits = (static_cast<uint64_t>(aValue) & MaskOf(lField.mWidth)) << lField.mShift;
    if (lField.mWidth < 8 * lSpot.mLength && mNodes.GetText(aNode, PropertyId::AccessMode) != "WO")
    {
        // The other bits stay; in a register that cannot be read nobody knows them, and they are 0. They are read anew: the
        // device may have changed them since, and would get old ones back.
        uint64_t lOld = 0;
        mCache.Drop(aNode);
        if (!ReadBits(aNode, lSpot, lField.mLittle, lOld))
        {
            return false;
        }
        lBits |= lOld & ~(MaskOf(lField.mWidth) << lField.mShift);
    }
    return WriteBytes(aNode, lSpot, ToBytes(lBits, static_cast<size_t>(lSpot.mLength), lField.mLittle));
}

bool Evaluator::WriteFloat(NodeId aNode, double aValue)
{
    RegisterSpot lSpot;
    if (!GetNumberSpot(aNode, lSpot))
    {
        return false;
    }
    const bool lSingle = lSpot.mLength == 4;
    if (!lSingle && lSpot.mLength != 8)
    {
        return FailAt(aNode, "no number has its length");
    }
    // The conversion is undefined for what a float cannot hold.
    if (lSingle && std::abs(aValue) > static_cast<double>(std::numeric_limits<float>::max()))
    {
        return Fail(cInvalidParameter,
                    "The feature " + NameOf(aNode) + " does not take " + FloatText(aValue) + ".");
    }
    const uint64_t lBits =
        lSingle ? std::bit_cast<uint32_t>(static_cast<float>(aValue)) : std::bit_cast<uint64_t>(aValue);
    return WriteBytes(aNode, lSpot,
                      ToBytes(lBits, static_cast<size_t>(lSpot.mLength),
                              mNodes.GetText(aNode, PropertyId::Endianess) != "BigEndian"));
}

bool Evaluator::WriteString(NodeId aNode, const std::string& aValue)
{
    RegisterSpot lSpot;
    if (!GetSpot(aNode, lSpot))
    {
        return false;
    }
    if (aValue.size() > lSpot.mLength)
    {
        return Fail(cInvalidParameter, "The text is too long for " + NameOf(aNode) + ".");
    }
    std::vector<uint8_t> lBytes(aValue.begin(), aValue.end());
    lBytes.resize(static_cast<size_t>(lSpot.mLength)); // nothing of the old text is left
    return WriteBytes(aNode, lSpot, std::move(lBytes));
}

} // namespace KyGigE
