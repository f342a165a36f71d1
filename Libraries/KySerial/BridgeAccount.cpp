#include "BridgeAccount.h"

#include "JxUtilsLib/LockScope.h"

namespace KySerialLib
{

KySerialBridgeFlow BridgeAccount::Get(BridgeWay aWay) const noexcept
{
    const JxUtilsLib::LockScope lLock(mMutex);
    return aWay == BridgeWay::ToDevice ? mToDevice : mFromDevice;
}

void BridgeAccount::Add(BridgeWay aWay, uint64_t KySerialBridgeFlow::*aCount, uint64_t aBytes) noexcept
{
    const JxUtilsLib::LockScope lLock(mMutex);
    // Two steps: some compilers add to a copy when the choice is part of the expression.
    KySerialBridgeFlow& lFlow = aWay == BridgeWay::ToDevice ? mToDevice : mFromDevice;
    lFlow.*aCount += aBytes;
}

void BridgeAccount::Reset() noexcept
{
    const JxUtilsLib::LockScope lLock(mMutex);
    for (KySerialBridgeFlow* const lFlow : {&mToDevice, &mFromDevice})
    {
        // These bytes are delivered or lost after the reset. Counted as taken,
        // they keep the new account balanced.
        const uint64_t lOnTheirWay = lFlow->mTaken - lFlow->mDelivered - lFlow->mOverrun - lFlow->mCleared -
                                     lFlow->mRefused - lFlow->mCutOff - lFlow->mAway;
        *lFlow = KySerialBridgeFlow();
        lFlow->mTaken = lOnTheirWay;
    }
}

} // namespace KySerialLib
