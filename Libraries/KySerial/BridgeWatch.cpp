#include "BridgeWatch.h"

#include "JxUtilsLib/LockScope.h"

#include <chrono>

namespace KySerialLib
{

using JxUtilsLib::LockScope;

void BridgeWatch::Begin(const KySerialBridgeOptions& aOptions, IKyDeviceAdapter* aDevice)
{
    mOptions = aOptions;
    mDevice = aDevice;
    mGeneration = GetGeneration();
}

uint64_t BridgeWatch::GetGeneration() const
{
    return mOptions.mGeneration != nullptr ? mOptions.mGeneration->GetGeneration() : 0;
}

bool BridgeWatch::LookForDevice()
{
    HasLost(GetSetup());
    return mAway;
}

// A device that is back gets nothing before it is set up: it has other settings than the sender expects.
bool BridgeWatch::IsDropping() const
{
    return mOptions.mReconnect && (mAway || GetGeneration() != mGeneration);
}

bool BridgeWatch::HasLost(uint64_t aSetup)
{
    // The device is asked without the lock, which reports and transfers take too. When SetUp() comes in between, the
    // answer is about the former setup and does not count.
    if (!IsSame(mGeneration))
    {
        const LockScope lLock(mMutex);
        mAway = mAway || mSetup == aSetup;
    }
    return IsDropping();
}

void BridgeWatch::SetUp(uint64_t aGeneration)
{
    const LockScope lLock(mMutex);
    // All three change under the lock, so that HasLost() enters no former absence into this set-up.
    ++mSetup;
    mGeneration = aGeneration;
    mAway = false;
}

void BridgeWatch::Sent(const uint8_t* aBytes, uint32_t aCount) noexcept
{
    ReportTraffic(BridgeWay::ToDevice, aBytes, aCount);
}

// An observer that throws must not stop the relaying.
template<typename Call>
void BridgeWatch::Report(const Call& aCall) noexcept
{
    if (mOptions.mObserver == nullptr)
    {
        return;
    }
    try
    {
        aCall(*mOptions.mObserver);
    }
    catch (...) // NOLINT(bugprone-empty-catch): documented as dropped
    {
    }
}

void BridgeWatch::ReportTraffic(BridgeWay aWay, const uint8_t* aBytes, uint32_t aCount) noexcept
{
    if (aCount == 0)
    {
        return;
    }
    // The clock is read inside the call, so that a bridge without an observer does not pay for it.
    Report(
        [&](IKySerialBridgeObserver& aObserver)
        {
            const auto lNow = std::chrono::system_clock::now().time_since_epoch();
            const auto lTime = std::chrono::duration_cast<std::chrono::microseconds>(lNow).count();
            aObserver.NotifyTraffic(aWay, lTime, aBytes, aCount);
        });
}

void BridgeWatch::ReportLoss(BridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes) noexcept
{
    if (aBytes > 0)
    {
        Report([&](IKySerialBridgeObserver& aObserver) { aObserver.NotifyLoss(aWay, aLoss, aBytes); });
    }
}

void BridgeWatch::ReportGone() noexcept
{
    Report([](IKySerialBridgeObserver& aObserver) { aObserver.NotifyDeviceGone(); });
}

void BridgeWatch::ReportBack(uint64_t aLost) noexcept
{
    Report([&](IKySerialBridgeObserver& aObserver) { aObserver.NotifyDeviceBack(aLost); });
}

void BridgeWatch::ReportSettings(const KySerialPortConfiguration& aSettings) noexcept
{
    Report([&](IKySerialBridgeObserver& aObserver) { aObserver.NotifySettings(aSettings); });
}

} // namespace KySerialLib
