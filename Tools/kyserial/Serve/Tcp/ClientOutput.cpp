#include "kyserial/Serve/Tcp/ClientOutput.h"

#include <algorithm>

namespace KySerialTool
{

void ClientOutput::AddBytes(const std::string& aText, size_t aBytes)
{
    AddRun(false, aText.size());
    mWaiting += aText;
    mBytes += aBytes;
}

void ClientOutput::AddAnswer(const std::string& aText)
{
    AddRun(true, aText.size());
    mWaiting += aText;
}

// What has left is counted in bytes of the device; escaped text has answers and doubled bytes among them.
void ClientOutput::AddRun(bool aIsAnswer, size_t aSize)
{
    if (!mEscaped || aSize == 0)
    {
        return;
    }
    if (mRuns.empty() || mRuns.back().mIsAnswer != aIsAnswer)
    {
        mRuns.push_back({aIsAnswer, 0});
    }
    mRuns.back().mSize += aSize;
}

bool ClientOutput::Begin()
{
    // A write of the system may still read this text, so it stays as it is until all of it has left.
    if (!mSending.empty() || mWaiting.empty())
    {
        return false;
    }
    mSending.swap(mWaiting);
    return true;
}

void ClientOutput::Sent(size_t aCount)
{
    if (!mEscaped)
    {
        // Without escapes there are no answers either, so each byte is one of the device.
        mBytes -= aCount;
    }
    for (size_t lPlace = 0; mEscaped && lPlace < aCount;)
    {
        Run& lRun = mRuns.front();
        const size_t lPart = std::min(lRun.mSize, aCount - lPlace);
        mBytes -= lRun.mIsAnswer ? 0 : CountWhole(mSending.data() + lPlace, lPart);
        lPlace += lPart;
        lRun.mSize -= lPart;
        if (lRun.mSize == 0)
        {
            mRuns.pop_front();
        }
    }
    mSending.erase(0, aCount);
}

// A byte 255 is sent twice, and is there when both are.
uint64_t ClientOutput::CountWhole(const char* aText, size_t aSize)
{
    constexpr char cEscape = '\xFF';
    uint64_t lWhole = 0;
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        mHalfHasLeft = aText[lIndex] == cEscape && !mHalfHasLeft;
        lWhole += mHalfHasLeft ? 0 : 1;
    }
    return lWhole;
}

} // namespace KySerialTool
