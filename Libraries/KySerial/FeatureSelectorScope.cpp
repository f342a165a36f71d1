#include "FeatureSelectorScope.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace KySerialLib
{

namespace
{

// A device uses one of these. Two devices that share one wait for each other now and then, which harms nobody.
// The standard lock: a thread nests scopes, and JxUtilsLib's lock cannot be taken twice.
// Never destroyed before a bridge: a mutex of this kind has nothing to destroy.
std::array<std::recursive_mutex, 61> gSelectors;

std::recursive_mutex& SelectorOf(const IKyDeviceAdapter* aDevice)
{
    return gSelectors.at(reinterpret_cast<uintptr_t>(aDevice) / alignof(std::max_align_t) %
                         gSelectors.size());
}

} // namespace

FeatureSelectorScope::FeatureSelectorScope(IKyDeviceAdapter* aDevice)
    : mDevice(aDevice), mLock(SelectorOf(aDevice))
{
}

FeatureSelectorScope::~FeatureSelectorScope()
{
    for (const auto& [lName, lValue] : mWritten)
    {
        static_cast<void>(mDevice->SetFeatureFromString(lName, lValue)); // ignored: set once already
    }
}

KyResult FeatureSelectorScope::Set(const KyString& aName, const KyString& aValue)
{
    KyString lCurrent;
    const KyResult lRead = mDevice->GetFeatureAsString(aName, lCurrent);
    if (!lRead.IsOK() || lCurrent == aValue)
    {
        return KyResult(KyResult::OK);
    }
    mWritten.reserve(mWritten.size() + 1); // first: nothing may throw once the device is changed
    KyResult lResult = mDevice->SetFeatureFromString(aName, aValue);
    if (lResult.IsOK())
    {
        mWritten.emplace_back(aName, aValue);
    }
    return lResult;
}

} // namespace KySerialLib
