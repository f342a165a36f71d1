#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// \file
/// What every fuzz target has: its input, and the end of a run that went wrong.

/// Ends the process when a result is not the one that must be; the fuzzer keeps the input then.
#define KY_REQUIRE(aCondition)                                                                               \
    ((aCondition) ? static_cast<void>(0) : ::KyTest::RequirementFailed(#aCondition, __FILE__, __LINE__))

namespace KyTest
{

[[noreturn]] inline void RequirementFailed(const char* aText, const char* aFile, int aLine)
{
    static_cast<void>(std::fprintf(stderr, "%s:%d: \"%s\" does not hold\n", aFile, aLine, aText));
    std::abort();
}

/// Counts what the runs did and prints it at the end of the process: a run may be one operation or a hundred.
class StepCounter
{
public:
    static void Count() { ++sInstance.mSteps; }

private:
    ~StepCounter() { static_cast<void>(std::fprintf(stderr, "stat::number_of_steps: %llu\n", mSteps)); }

    unsigned long long mSteps = 0;
    static StepCounter sInstance;
};
inline StepCounter StepCounter::sInstance;

/// The fuzzer's bytes, taken from the front; past the end they are zeros.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* aData, size_t aSize) : mData(aData), mSize(aSize) {}

    bool IsEmpty() const { return mNext >= mSize; }

    /// Whether another operation follows.
    bool HasStep() const
    {
        if (IsEmpty())
        {
            return false;
        }
        StepCounter::Count();
        return true;
    }

    uint8_t TakeByte() { return mNext < mSize ? mData[mNext++] : uint8_t{0}; }

    bool TakeFlag() { return (TakeByte() & 1U) != 0; }

    uint32_t TakeWord()
    {
        uint32_t lWord = 0;
        for (unsigned lShift = 0; lShift < 32; lShift += 8)
        {
            lWord |= static_cast<uint32_t>(TakeByte()) << lShift;
        }
        return lWord;
    }

    /// Up to aCount bytes: fewer where the input ends.
    std::vector<uint8_t> TakeBytes(size_t aCount)
    {
        const size_t lCount = std::min(aCount, mSize - std::min(mNext, mSize));
        const uint8_t* const lFirst = mData + (lCount > 0 ? mNext : 0);
        mNext += lCount;
        return lCount > 0 ? std::vector<uint8_t>(lFirst, lFirst + lCount) : std::vector<uint8_t>();
    }

    std::vector<uint8_t> TakeRest() { return TakeBytes(mSize); }

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mNext = 0;
};

} // namespace KyTest

/// One run of a target.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize);
