#include "Simulator/Peers/SpiBusPeer.h"

#include <utility>

namespace KySimulator
{

SpiBusPeer::SpiBusPeer(std::shared_ptr<SpiDevice> aDevice) : mDevice(std::move(aDevice)) {}

std::vector<uint8_t> SpiBusPeer::Exchange(const std::vector<uint8_t>& aOut, Time aStart, Time aByteTime)
{
    LockScope lScope(mLock);
    // Nothing is clocked, so the chip is not selected either.
    if (aOut.empty())
    {
        return {};
    }
    // The chip stays selected until Release(): an exchange may consist of several messages.
    if (!std::exchange(mSelected, true))
    {
        mTransfers.push_back({aStart, {}, {}, false});
        if (mTransfers.size() > cHistory)
        {
            mTransfers.pop_front();
        }
        if (mDevice != nullptr)
        {
            mDevice->OnSelect(aStart);
        }
    }
    std::vector<uint8_t> lIn;
    lIn.reserve(aOut.size());
    Time lNow = aStart;
    for (const uint8_t lByte : aOut)
    {
        lNow += aByteTime;
        // Nothing drives an open line, and its pull-up makes ones.
        lIn.push_back(mDevice != nullptr ? mDevice->OnExchange(lByte, lNow) : static_cast<uint8_t>(0xFF));
    }
    if (mTransfers.empty() || mTransfers.back().mReleased)
    {
        mTransfers.push_back({aStart, {}, {}, false}); // the history was cleared in the middle
    }
    SpiTransfer& lTransfer = mTransfers.back();
    lTransfer.mOut.insert(lTransfer.mOut.end(), aOut.begin(), aOut.end());
    lTransfer.mIn.insert(lTransfer.mIn.end(), lIn.begin(), lIn.end());
    return lIn;
}

void SpiBusPeer::Release(Time aNow)
{
    LockScope lScope(mLock);
    // The end of a message without bytes has selected nothing.
    if (!std::exchange(mSelected, false))
    {
        return;
    }
    if (mDevice != nullptr)
    {
        mDevice->OnRelease(aNow);
    }
    if (!mTransfers.empty())
    {
        mTransfers.back().mReleased = true;
    }
}

bool SpiBusPeer::IsSelected() const
{
    LockScope lScope(mLock);
    return mSelected;
}

std::vector<SpiTransfer> SpiBusPeer::GetTransfers() const
{
    LockScope lScope(mLock);
    return {mTransfers.begin(), mTransfers.end()};
}

void SpiBusPeer::ClearTransfers()
{
    LockScope lScope(mLock);
    mTransfers.clear();
}

} // namespace KySimulator
