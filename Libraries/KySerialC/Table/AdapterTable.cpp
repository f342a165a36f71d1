#include "Table/AdapterTable.h"

#include "Table/AdapterObject.h"

#include <new>

namespace KySerialCLib
{

namespace
{

static_assert(sizeof(void*) >= sizeof(uint64_t), "a context holds a handle");

uint64_t HandleOf(void* aContext)
{
    return reinterpret_cast<uint64_t>(aContext);
}

// A question to a camera that may be gone.
template<typename Question>
int32_t Ask(void* aContext, const Question& aQuestion) noexcept
{
    // Nothing may be thrown out of the functions of a table: the caller may be written in C.
    try
    {
        const AdapterObjectCall lCall(HandleOf(aContext));
        return lCall.Get() != nullptr && aQuestion(lCall.Get()->Adapter()) ? 1 : 0;
    }
    catch (const std::bad_alloc&)
    {
        return 0;
    }
}

// An operation on a camera that may be gone.
template<typename Operation>
KyCode Do(void* aContext, const Operation& aOperation) noexcept
{
    try
    {
        const AdapterObjectCall lCall(HandleOf(aContext));
        return FinishCall(lCall.Get() != nullptr ? aOperation(*lCall.Get())
                                                 : KyResult(KY_NO_CONNECTION, "The camera is gone."));
    }
    catch (const std::bad_alloc&)
    {
        return FinishCall(KyResult(KY_FAILURE, "Out of memory."));
    }
}

// Hands a text that an operation gave over to the library.
KyResult Return(const KyResult& aResult, const KyString& aText)
{
    return aResult.IsOK() ? KyResult(KyReturnText(aText.GetAscii())) : aResult;
}

// The functions of the table: each is the operation of the same name.
using Question = bool (IKyDeviceAdapter::*)();
using NamedQuestion = bool (IKyDeviceAdapter::*)(const KyString&);
using NamedOperation = KyResult (IKyDeviceAdapter::*)(const KyString&);
using TextOperation = KyResult (IKyDeviceAdapter::*)(const KyString&, KyString&);
using IntegerOperation = KyResult (IKyDeviceAdapter::*)(const KyString&, int64_t&);

template<Question cQuestion>
int32_t AskCamera(void* aContext)
{
    return Ask(aContext, [](IKyDeviceAdapter& aAdapter) { return (aAdapter.*cQuestion)(); });
}

template<NamedQuestion cQuestion>
int32_t AskOfFeature(void* aContext, const char* aName)
{
    return Ask(aContext, [&](IKyDeviceAdapter& aAdapter) { return (aAdapter.*cQuestion)(aName); });
}

template<NamedOperation cOperation>
KyCode DoWithFeature(void* aContext, const char* aName)
{
    return Do(aContext, [&](AdapterObject& aCamera) { return (aCamera.Adapter().*cOperation)(aName); });
}

template<TextOperation cOperation>
KyCode GetText(void* aContext, const char* aName)
{
    return Do(aContext,
              [&](AdapterObject& aCamera)
              {
                  KyString lValue;
                  const KyResult lResult = (aCamera.Adapter().*cOperation)(aName, lValue);
                  return Return(lResult, lValue);
              });
}

template<IntegerOperation cOperation>
KyCode GetInteger(void* aContext, const char* aName, int64_t* aValue)
{
    return Do(aContext,
              [&](AdapterObject& aCamera) { return (aCamera.Adapter().*cOperation)(aName, *aValue); });
}

int32_t IsEnumEntryAvailable(void* aContext, const char* aName, const char* aEntry)
{
    return Ask(aContext,
               [&](IKyDeviceAdapter& aAdapter) { return aAdapter.IsEnumEntryAvailable(aName, aEntry); });
}

KyCode GetEnumEntries(void* aContext, const char* aName)
{
    return Do(aContext,
              [&](AdapterObject& aCamera)
              {
                  KyStringList lEntries;
                  KyResult lResult = aCamera.Adapter().GetEnumEntries(aName, lEntries);
                  for (const KyString* lEntry = lEntries.GetFirst(); lEntry != nullptr && lResult.IsOK();
                       lEntry = lEntries.GetNext())
                  {
                      lResult = Return(lResult, *lEntry);
                  }
                  return lResult;
              });
}

KyCode SetFeatureFromString(void* aContext, const char* aName, const char* aValue)
{
    return Do(aContext,
              [&](AdapterObject& aCamera) { return aCamera.Adapter().SetFeatureFromString(aName, aValue); });
}

KyCode GetRegisterData(void* aContext, const char* aName, uint8_t* aBuffer, int64_t aLength)
{
    return Do(aContext, [&](AdapterObject& aCamera)
              { return aCamera.Adapter().GetRegisterData(aName, aBuffer, aLength); });
}

KyCode SetRegisterData(void* aContext, const char* aName, const uint8_t* aBuffer, int64_t aLength)
{
    return Do(aContext, [&](AdapterObject& aCamera)
              { return aCamera.Adapter().SetRegisterData(aName, aBuffer, aLength); });
}

KyCode ReadRegister(void* aContext, uint32_t aAddress, uint32_t* aValue)
{
    return Do(aContext,
              [&](AdapterObject& aCamera) { return aCamera.Adapter().ReadRegister(aAddress, *aValue); });
}

KyCode WriteRegister(void* aContext, uint32_t aAddress, uint32_t aValue)
{
    return Do(aContext,
              [&](AdapterObject& aCamera) { return aCamera.Adapter().WriteRegister(aAddress, aValue); });
}

KyCode WriteMemory(void* aContext, const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    return Do(aContext, [&](AdapterObject& aCamera)
              { return aCamera.Adapter().WriteMemory(aBuffer, aAddress, aLength); });
}

KyCode PostWrite(void* aContext, uint32_t aMilliseconds)
{
    return Do(aContext, [&](AdapterObject& aCamera) { return aCamera.Adapter().PostWrite(aMilliseconds); });
}

KyCode RegisterEventSink(void* aContext, KyDeviceHandle aDevice)
{
    return Do(aContext, [&](AdapterObject& aCamera) { return aCamera.ReportTo(aDevice); });
}

} // namespace

KyAdapter AdapterTable(uint64_t aHandle)
{
    using Adapter = IKyDeviceAdapter;
    KyAdapter lTable = {};
    lTable.mSize = sizeof(lTable);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a number that is carried, not an address
    lTable.mContext = reinterpret_cast<void*>(aHandle);
    lTable.mIsConnected = &AskCamera<&Adapter::IsConnected>;
    lTable.mIsKorvoVideoInterface = &AskCamera<&Adapter::IsKorvoVideoInterface>;
    lTable.mIsGigEVision = &AskCamera<&Adapter::IsGigEVision>;
    lTable.mIsAlternateTransport = &AskCamera<&Adapter::IsAlternateTransport>;
    lTable.mReadRegister = &ReadRegister;
    lTable.mWriteRegister = &WriteRegister;
    lTable.mWriteMemory = &WriteMemory;
    lTable.mIsFeatureAvailable = &AskOfFeature<&Adapter::IsFeatureAvailable>;
    lTable.mIsIntegerFeatureAvailable = &AskOfFeature<&Adapter::IsIntegerFeatureAvailable>;
    lTable.mIsRegisterFeatureAvailable = &AskOfFeature<&Adapter::IsRegisterFeatureAvailable>;
    lTable.mIsFeatureReadable = &AskOfFeature<&Adapter::IsFeatureReadable>;
    lTable.mIsFeatureWritable = &AskOfFeature<&Adapter::IsFeatureWritable>;
    lTable.mIsEnumEntryAvailable = &IsEnumEntryAvailable;
    lTable.mGetIntegerValue = &GetInteger<&Adapter::GetIntegerValue>;
    lTable.mGetEnumEntries = &GetEnumEntries;
    lTable.mGetFeatureAsString = &GetText<&Adapter::GetFeatureAsString>;
    lTable.mSetFeatureFromString = &SetFeatureFromString;
    lTable.mGetStringValue = &GetText<&Adapter::GetStringValue>;
    lTable.mGetRegisterLength = &GetInteger<&Adapter::GetRegisterLength>;
    lTable.mGetRegisterData = &GetRegisterData;
    lTable.mSetRegisterData = &SetRegisterData;
    lTable.mPostWrite = &PostWrite;
    lTable.mRegisterFeatureInterest = &DoWithFeature<&Adapter::RegisterFeatureInterest>;
    lTable.mUnregisterFeatureInterest = &DoWithFeature<&Adapter::UnregisterFeatureInterest>;
    lTable.mRegisterEventSink = &RegisterEventSink; // a device that has ended stops listening by itself
    return lTable;
}

} // namespace KySerialCLib
