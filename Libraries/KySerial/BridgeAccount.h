#pragma once

#include "JxUtilsLib/Mutex.h"
#include "KySerial/IKySerialBridgeObserver.h"
#include "KySerial/KySerialBridge.h"

#include <cstdint>

namespace KySerialLib
{

using BridgeWay = KySerialBridgeWay;

/// What became of the bytes that a bridge has received, for each way.
///
/// Each byte is entered twice: when the bridge receives it, and when it is delivered or lost. The difference
/// is the number of bytes on their way, which is 0 once the bridge has ended.
///
/// Threads: any.
class BridgeAccount
{
public:
    /// The reasons of a loss are the members of KySerialBridgeFlow.
    using Loss = uint64_t KySerialBridgeFlow::*;

    void Take(BridgeWay aWay, uint64_t aBytes) noexcept { Add(aWay, &KySerialBridgeFlow::mTaken, aBytes); }
    void Deliver(BridgeWay aWay, uint64_t aBytes) noexcept
    {
        Add(aWay, &KySerialBridgeFlow::mDelivered, aBytes);
    }
    void Lose(BridgeWay aWay, Loss aLoss, uint64_t aBytes) noexcept { Add(aWay, aLoss, aBytes); }

    KySerialBridgeFlow Get(BridgeWay aWay) const noexcept;

    /// Starts anew; bytes on their way count as received after that.
    void Reset() noexcept;

private:
    void Add(BridgeWay aWay, uint64_t KySerialBridgeFlow::*aCount, uint64_t aBytes) noexcept;

    mutable JxUtilsLib::Mutex mMutex;
    KySerialBridgeFlow mToDevice JX_GUARDED_BY(mMutex);
    KySerialBridgeFlow mFromDevice JX_GUARDED_BY(mMutex);
};

} // namespace KySerialLib
