#include "FeatureSelectorScope.h"

#include "JxUtilsLib/Condition.h"
#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Mutex.h"
#include "KyBase/KyPermanent.h"

namespace KySerialLib
{

// The scopes themselves are the list: nothing is allocated, and there is no number of devices that it has room for.
struct FeatureSelectorScope::OpenScopes
{
    JxUtilsLib::Mutex mMutex;
    JxUtilsLib::Condition mLeft;
    FeatureSelectorScope* mFirst JX_GUARDED_BY(mMutex) = nullptr;
};

FeatureSelectorScope::OpenScopes& FeatureSelectorScope::GetOpenScopes()
{
    static KyPermanent<OpenScopes> sScopes; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sScopes.Get();
}

FeatureSelectorScope::FeatureSelectorScope(IKyDeviceAdapter* aDevice) : mDevice(aDevice)
{
    Enter();
}

void FeatureSelectorScope::Enter()
{
    OpenScopes& lScopes = GetOpenScopes();
    const JxUtilsLib::LockScope lScope(lScopes.mMutex);
    for (const FeatureSelectorScope* lOther = lScopes.mFirst; lOther != nullptr;)
    {
        // A thread may nest scopes, and must not wait for itself.
        if (lOther->mDevice == mDevice && lOther->mThread != mThread)
        {
            lScopes.mLeft.Wait(lScopes.mMutex);
            // The scopes of the list may have gone during the wait, so the search begins anew.
            lOther = lScopes.mFirst;
        }
        else
        {
            lOther = lOther->mNext;
        }
    }
    mNext = lScopes.mFirst;
    lScopes.mFirst = this;
}

void FeatureSelectorScope::Leave()
{
    OpenScopes& lScopes = GetOpenScopes();
    const JxUtilsLib::LockScope lScope(lScopes.mMutex);
    FeatureSelectorScope** lPlace = &lScopes.mFirst;
    while (*lPlace != this)
    {
        lPlace = &(*lPlace)->mNext;
    }
    *lPlace = mNext;
    // All waiters are woken, since those of other devices wait at the same condition.
    lScopes.mLeft.NotifyAll();
}

FeatureSelectorScope::~FeatureSelectorScope()
{
    for (const auto& [lName, lValue] : mWritten)
    {
        static_cast<void>(mDevice->SetFeatureFromString(lName, lValue)); // ignored: set once already
    }
    // The scope ends after the writes, so that no other thread's scope comes before them.
    Leave();
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
