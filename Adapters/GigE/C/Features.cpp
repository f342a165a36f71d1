#include "Camera.h"

#include <KyBase/KyStringList.h>

#include <algorithm>
#include <array>

using namespace KyGigECLib;

namespace
{

constexpr KyCode cNoSuchFeature = 0x8001; // as the adapter says it
constexpr KyCode cOtherKind = 0x8002;
constexpr std::array cKinds = {"",       "Integer",  "Float",  "Boolean", "Enumeration",
                               "String", "Register", "Command"};

static_assert(cKinds.size() == KY_FEATURE_COMMAND + 1);

int32_t KindOf(const std::string& aText)
{
    const auto* const lKind = std::find(cKinds.begin(), cKinds.end(), aText);
    // The numbers of the C interface are the positions in this list.
    return lKind != cKinds.end() ? static_cast<int32_t>(lKind - cKinds.begin()) : KY_FEATURE_OTHER;
}

KyFeature FormOf(const KyGigE::FeatureEntry& aEntry)
{
    KyFeature lForm{};
    lForm.mSize = sizeof(KyFeature);
    lForm.mKind = KindOf(aEntry.mKind);
    lForm.mAccess = (aEntry.mAvailable ? KY_ACCESS_AVAILABLE : 0) | (aEntry.mReadable ? KY_ACCESS_READ : 0) |
                    (aEntry.mWritable ? KY_ACCESS_WRITE : 0);
    lForm.mName = aEntry.mName.c_str();
    lForm.mCategory = aEntry.mCategory.c_str();
    lForm.mVisibility = aEntry.mVisibility.c_str();
    lForm.mToolTip = aEntry.mToolTip.c_str();
    return lForm;
}

KyResult NotConnected(const char* aFunction)
{
    return Fail(KY_NO_CONNECTION, aFunction, "The camera is lost.");
}

} // namespace

KyCode KyCameraListFeatures(KyCameraHandle aCamera, KyFeatureFunction aFunction, void* aContext,
                            uint32_t* aCount)
{
    static constexpr char cFunction[] = "KyCameraListFeatures";
    if (aCount != nullptr)
    {
        *aCount = 0;
    }
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     const std::vector<KyGigE::FeatureEntry> lEntries =
                         aObject.NetworkAdapter().ListFeatures();
                     if (!aObject.NetworkAdapter().IsConnected())
                     {
                         return NotConnected(cFunction); // what was listed says nothing about access
                     }
                     for (const KyGigE::FeatureEntry& lEntry : lEntries)
                     {
                         if (aFunction != nullptr)
                         {
                             const KyFeature lForm = FormOf(lEntry);
                             aFunction(aContext, &lForm);
                         }
                     }
                     if (aCount != nullptr)
                     {
                         *aCount = static_cast<uint32_t>(lEntries.size());
                     }
                     return {};
                 });
}

KyCode KyCameraDescribeFeature(KyCameraHandle aCamera, const char* aName, KyFeatureFunction aFunction,
                               void* aContext)
{
    static constexpr char cFunction[] = "KyCameraDescribeFeature";
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aName == nullptr || aFunction == nullptr)
                     {
                         return NullPointer(cFunction);
                     }
                     KyGigE::FeatureEntry lEntry;
                     // A lost camera has no features either, so the connection is looked at before the answer is
                     // believed.
                     const bool lFound = aObject.NetworkAdapter().FindFeature(aName, lEntry);
                     if (!aObject.NetworkAdapter().IsConnected())
                     {
                         return NotConnected(cFunction);
                     }
                     if (!lFound)
                     {
                         return Fail(KY_UNSUPPORTED, cFunction, "There is no such feature.");
                     }
                     const KyFeature lForm = FormOf(lEntry);
                     aFunction(aContext, &lForm);
                     return {};
                 });
}

KyCode KyCameraListEntries(KyCameraHandle aCamera, const char* aName, KyTextFunction aFunction,
                           void* aContext)
{
    static constexpr char cFunction[] = "KyCameraListEntries";
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aName == nullptr || aFunction == nullptr)
                     {
                         return NullPointer(cFunction);
                     }
                     KyStringList lEntries;
                     KyResult lResult = aObject.NetworkAdapter().GetEnumEntries(aName, lEntries);
                     // A failed call hands no entry over: a part of the list would look like all of it.
                     for (const KyString* lEntry = lEntries.GetFirst(); lEntry != nullptr && lResult.IsOK();
                          lEntry = lEntries.GetNext())
                     {
                         aFunction(aContext, lEntry->GetAscii());
                     }
                     return lResult;
                 });
}

// These two are those of the camera's device, under the camera's handle.
KyCode KyCameraGetFeature(KyCameraHandle aCamera, const char* aName, char* aBuffer, uint32_t* aSize)
{
    KyDeviceHandle lDevice = 0;
    const KyCode lCode = KyCameraGetDevice(aCamera, &lDevice);
    return lCode == KY_OK ? KyDeviceGetFeature(lDevice, aName, aBuffer, aSize) : lCode;
}

KyCode KyCameraSetFeature(KyCameraHandle aCamera, const char* aName, const char* aValue)
{
    KyDeviceHandle lDevice = 0;
    const KyCode lCode = KyCameraGetDevice(aCamera, &lDevice);
    return lCode == KY_OK ? KyDeviceSetFeature(lDevice, aName, aValue) : lCode;
}

KyCode KyCameraExecute(KyCameraHandle aCamera, const char* aName)
{
    static constexpr char cFunction[] = "KyCameraExecute";
    return RunOn(cFunction, aCamera,
                 [&](Camera& aObject) -> KyResult
                 {
                     if (aName == nullptr)
                     {
                         return NullPointer(cFunction);
                     }
                     KyGigE::GigEDeviceAdapter& lAdapter = aObject.NetworkAdapter();
                     KyGigE::FeatureEntry lEntry;
                     const bool lFound = lAdapter.FindFeature(aName, lEntry);
                     if (!lAdapter.IsConnected())
                     {
                         return NotConnected(cFunction);
                     }
                     if (!lFound)
                     {
                         return Fail(cNoSuchFeature, cFunction, "There is no such feature.");
                     }
                     // Setting any other feature to "1" would change it, so the kind is asked first.
                     return KindOf(lEntry.mKind) == KY_FEATURE_COMMAND
                                ? lAdapter.SetFeatureFromString(aName, "1")
                                : Fail(cOtherKind, cFunction, "The feature is no command.");
                 });
}
