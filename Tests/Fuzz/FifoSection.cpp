// Whatever other processes write into a FIFO's section: with a header that makes sense the bytes come out as
// the ring says, with any other every operation fails and nothing is touched.

#include "Fuzz/FuzzInput.h"
#include "JxUtilsLib/Logger.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/PrivateSession.h"
#include "clserzmo/sharedfifo.h"

#include <cstring>

using namespace KyTest;
using KySerialLib::SharedFifo;
using KySerialLib::SharedFifoHeader;

namespace
{

constexpr uint32_t cCapacity = 64;
constexpr size_t cSectionSize = sizeof(SharedFifoHeader) + cCapacity;

// The section as it has to be.
struct FifoModel
{
    SharedFifoHeader mHeader{};
    uint8_t mRing[cCapacity]{};

    bool IsSound() const
    {
        return mHeader.mSize == cCapacity && mHeader.mTailIndex < cCapacity && mHeader.mHeadIndex < cCapacity;
    }
    uint32_t GetUsed() const { return (mHeader.mHeadIndex + cCapacity - mHeader.mTailIndex) % cCapacity; }
    void Push(uint8_t aByte)
    {
        mRing[mHeader.mHeadIndex] = aByte;
        mHeader.mHeadIndex = (mHeader.mHeadIndex + 1) % cCapacity;
    }
    uint8_t Pop()
    {
        const uint8_t lByte = mRing[mHeader.mTailIndex];
        mHeader.mTailIndex = (mHeader.mTailIndex + 1) % cCapacity;
        return lByte;
    }
};
static_assert(sizeof(FifoModel) == cSectionSize);

void Write(SharedFifo& aFifo, FifoModel& aModel, FuzzInput& aInput)
{
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(aInput.TakeByte());
    uint32_t lWritten = 0xDEAD;
    const bool lDone = aFifo.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lWritten, 0);
    if (!aModel.IsSound())
    {
        KY_REQUIRE(!lDone && lWritten == 0);
        return;
    }
    const size_t lRoom = cCapacity - 1 - aModel.GetUsed();
    const size_t lStored = std::min(lBytes.size(), lRoom);
    KY_REQUIRE(lWritten == lStored);
    // A write that leaves it full waits for the reader, which does not come.
    KY_REQUIRE(lDone == (lStored < lRoom || lBytes.empty()));
    std::for_each_n(lBytes.begin(), lStored, [&](uint8_t aByte) { aModel.Push(aByte); });
}

void Read(SharedFifo& aFifo, FifoModel& aModel, uint32_t aSize)
{
    std::vector<uint8_t> lBytes(std::max(aSize, 1U)); // size 0 takes one byte
    uint32_t lRead = 0xDEAD;
    const bool lDone = aFifo.Read(lBytes.data(), aSize, lRead, 0);
    const size_t lExpected = aModel.IsSound() ? std::min<size_t>(lBytes.size(), aModel.GetUsed()) : 0;
    KY_REQUIRE(lRead == lExpected && lDone == (lExpected > 0));
    for (uint32_t lIndex = 0; lIndex < lRead; ++lIndex)
    {
        KY_REQUIRE(lBytes[lIndex] == aModel.Pop());
    }
}

void Ask(SharedFifo& aFifo, const FifoModel& aModel)
{
    uint32_t lCount = 0xDEAD;
    KY_REQUIRE(aFifo.GetAvailable(lCount) == aModel.IsSound());
    KY_REQUIRE(lCount == (aModel.IsSound() ? aModel.GetUsed() : 0));
    KY_REQUIRE(!aFifo.Clear());
    if (lCount == 0) // else it sleeps a little
    {
        KY_REQUIRE(aFifo.WaitUntilEmpty(0) == aModel.IsSound());
    }
}

// Another process writes a word of the header, or into the ring.
void Scribble(uint8_t* aSection, FifoModel& aModel, uint8_t aPlace, FuzzInput& aInput)
{
    const size_t lPlace = aPlace % 8U < 6 ? aPlace % 4U * size_t{4} : aInput.TakeByte() % (cSectionSize - 4);
    const bool lSmall = (aPlace & 8U) != 0;
    const uint32_t lWord = lSmall ? aInput.TakeByte() % (cCapacity + 2) : aInput.TakeWord();
    std::memcpy(aSection + lPlace, &lWord, sizeof lWord);
    std::memcpy(reinterpret_cast<uint8_t*>(&aModel) + lPlace, &lWord, sizeof lWord);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static const PrivateSession cSession;
    static SharedFifo sFirst("Fuzzed", "Local\\", cCapacity, true);
    static SharedFifo sSecond("Fuzzed", "Local\\", cCapacity, false);
    static KyPlatform::SharedMemory sMemory;
    if (!sMemory.IsValid())
    {
        JxUtilsLib::Logger::SetPriority(
            static_cast<JxUtilsLib::PriorityLevel>(JxUtilsLib::PriorityFatal + 1));
        KY_REQUIRE(sMemory.Open("Local\\FuzzedMemory") && sMemory.HasSizeOf(cSectionSize));
        KY_REQUIRE(sFirst.IsValid() && sSecond.IsValid());
    }
    auto* const lSection = static_cast<uint8_t*>(sMemory.GetBase());
    FuzzInput lInput(aData, aSize);
    FifoModel lModel;
    lModel.mHeader.mSize = cCapacity;
    std::memcpy(lSection, &lModel, cSectionSize);
    while (lInput.HasStep())
    {
        const uint8_t lCode = lInput.TakeByte();
        SharedFifo& lFifo = (lCode & 4U) != 0 ? sFirst : sSecond;
        switch (lCode % 4U)
        {
        case 0:
            Write(lFifo, lModel, lInput);
            break;
        case 1:
            Read(lFifo, lModel, lCode / 8U * 4U);
            break;
        case 2:
            Ask(lFifo, lModel);
            break;
        default:
            Scribble(lSection, lModel, lCode / 8U, lInput);
            break;
        }
        KY_REQUIRE(std::memcmp(lSection, &lModel, cSectionSize) == 0);
    }
    return 0;
}
