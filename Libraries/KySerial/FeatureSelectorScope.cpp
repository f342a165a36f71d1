#include "FeatureSelectorScope.h"

namespace KySerialLib
{

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
