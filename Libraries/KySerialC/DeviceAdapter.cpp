#include "DeviceAdapter.h"

#include "JxUtilsLib/LockScope.h"
#include "Table/AdapterTable.h"
#include "ThreadText.h"

#include <algorithm>
#include <cstring>

namespace KySerialCLib
{

namespace
{

// A question; a table without it says no.
template<typename... Parameters, typename... Arguments>
bool Ask(const KyAdapter& aAdapter, int32_t (*aFunction)(void*, Parameters...), Arguments... aArguments)
{
    const AdapterCall lCall;
    return aFunction != nullptr && aFunction(aAdapter.mContext, aArguments...) != 0;
}

// An operation of a table, whose failure comes with the text that the application has set for it.
template<typename... Parameters, typename... Arguments>
KyResult Do(const KyAdapter& aAdapter, KyCode (*aFunction)(void*, Parameters...), Arguments... aArguments)
{
    if (aFunction == nullptr)
    {
        return KyResult(KY_UNSUPPORTED, "The device adapter does not have this function.");
    }
    const KyCode lCode = aFunction(aAdapter.mContext, aArguments...);
    return lCode == KY_OK ? KyResult() : KyResult(lCode, KyString(GetThreadText()));
}

// One that an adapter may do without.
template<typename... Parameters, typename... Arguments>
KyResult DoIfThere(const KyAdapter& aAdapter, KyCode (*aFunction)(void*, Parameters...),
                   Arguments... aArguments)
{
    const AdapterCall lCall;
    return aFunction != nullptr ? Do(aAdapter, aFunction, aArguments...) : KyResult();
}

} // namespace

DeviceAdapter::DeviceAdapter(const KyAdapter& aAdapter) : mAdapter()
{
    // An application that was built with a shorter table has none of the later functions: they stay null.
    std::memcpy(&mAdapter, &aAdapter, WholeTable(aAdapter.mSize));
}

DeviceAdapter::Loan::Loan(DeviceAdapter& aRetired, const DeviceAdapter& aOther) : mRetired(aRetired)
{
    KyAdapter lTable = aOther.mAdapter;
    // What the retired device had registered has ended with it; the other one's application counts its own.
    lTable.mRegisterFeatureInterest = nullptr;
    lTable.mUnregisterFeatureInterest = nullptr;
    lTable.mRegisterEventSink = nullptr;
    lTable.mUnregisterEventSink = nullptr;
    mRetired.mAdapter = lTable;
}

bool DeviceAdapter::IsComplete(const KyAdapter& aAdapter)
{
    return WholeTable(aAdapter.mSize) > 0 && aAdapter.mIsConnected != nullptr;
}

bool DeviceAdapter::Hold()
{
    const JxUtilsLib::LockScope lScope(mMutex);
    mHolds += mRetired ? 0 : 1;
    return !mRetired;
}

void DeviceAdapter::Release()
{
    const JxUtilsLib::LockScope lScope(mMutex);
    --mHolds;
}

KyCode DeviceAdapter::Retire()
{
    const JxUtilsLib::LockScope lLock(mMutex);
    if (mRetired)
    {
        return KY_INVALID_HANDLE;
    }
    if (mHolds > 0)
    {
        return KY_WRONG_STATE;
    }
    mRetired = true;
    // A report of another thread may be inside a sink. A report of this thread would wait for itself.
    while (mReporter != std::thread::id() && mReporter != std::this_thread::get_id())
    {
        mChanged.Wait(mMutex);
    }
    return KY_OK;
}

template<typename Call>
KyCode DeviceAdapter::Report(const Call& aCall)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    // A report inside a report of the same thread would wait for its own end.
    if (mReporter == std::this_thread::get_id())
    {
        return KY_WRONG_STATE;
    }
    while (mReporter != std::thread::id())
    {
        mChanged.Wait(mMutex);
    }
    // The device may have ended during the wait.
    if (mRetired)
    {
        return KY_INVALID_HANDLE;
    }
    const std::vector<IKyDeviceEventSink*> lSinks = mSinks;
    mReporter = std::this_thread::get_id();
    for (IKyDeviceEventSink* const lSink : lSinks)
    {
        // One of the calls before may have removed it, or ended the device.
        if (!mRetired && std::find(mSinks.begin(), mSinks.end(), lSink) != mSinks.end())
        {
            mCurrent = lSink;
            mMutex.Release(); // a sink does not throw
            aCall(*lSink);
            mMutex.Wait();
            mCurrent = nullptr;
            mChanged.NotifyAll();
        }
    }
    mReporter = std::thread::id();
    mChanged.NotifyAll();
    return KY_OK;
}

KyCode DeviceAdapter::ReportEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID,
                                  uint64_t aTimestamp, const void* aData, uint32_t aDataLength)
{
    return Report([&](IKyDeviceEventSink& aSink)
                  { aSink.NotifyEvent(aEventID, aChannel, aBlockID, aTimestamp, aData, aDataLength); });
}

KyCode DeviceAdapter::ReportChange(const KyString& aName)
{
    return Report(
        [&](IKyDeviceEventSink& aSink)
        {
            const KyUpstreamReports::Report lReport(mUpstreamReports, aName);
            aSink.NotifyFeatureInvalidated(&aName);
        });
}

KyResult DeviceAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    {
        const JxUtilsLib::LockScope lScope(mMutex);
        if (std::find(mSinks.begin(), mSinks.end(), aSink) != mSinks.end())
        {
            // GCOVR_EXCL_START: each of the library's sinks registers itself once
            return KyResult(KY_FAILURE, "The sink has been registered already.");
            // GCOVR_EXCL_STOP
        }
        mSinks.push_back(aSink);
    }
    // After the sink is there: an application may report from inside this call.
    KyResult lResult = DoIfThere(mAdapter, mAdapter.mRegisterEventSink, mHandle);
    if (!lResult.IsOK())
    {
        RemoveSink(aSink);
    }
    return lResult;
}

KyResult DeviceAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    // Whatever the application says: the library destroys the sink after this call.
    return RemoveSink(aSink) ? DoIfThere(mAdapter, mAdapter.mUnregisterEventSink, mHandle) : KyResult();
}

bool DeviceAdapter::RemoveSink(IKyDeviceEventSink* aSink)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    const auto lSink = std::find(mSinks.begin(), mSinks.end(), aSink);
    const bool lFound = lSink != mSinks.end();
    if (lFound)
    {
        mSinks.erase(lSink);
    }
    // The sink may be destroyed after this, so a call into it ends first. A call on this thread is the one
    // that removes the sink, and would wait for itself.
    while (mCurrent == aSink && mReporter != std::this_thread::get_id())
    {
        mChanged.Wait(mMutex);
    }
    return lFound;
}

bool DeviceAdapter::IsIntegerFeatureAvailable(const KyString& aName)
{
    return Ask(mAdapter, mAdapter.mIsIntegerFeatureAvailable, aName.GetAscii());
}

bool DeviceAdapter::IsFeatureAvailable(const KyString& aName)
{
    return Ask(mAdapter, mAdapter.mIsFeatureAvailable, aName.GetAscii());
}

bool DeviceAdapter::IsRegisterFeatureAvailable(const KyString& aName)
{
    return Ask(mAdapter, mAdapter.mIsRegisterFeatureAvailable, aName.GetAscii());
}

bool DeviceAdapter::IsFeatureReadable(const KyString& aName)
{
    return Ask(mAdapter, mAdapter.mIsFeatureReadable, aName.GetAscii());
}

bool DeviceAdapter::IsFeatureWritable(const KyString& aName)
{
    return Ask(mAdapter, mAdapter.mIsFeatureWritable, aName.GetAscii());
}

bool DeviceAdapter::IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry)
{
    return Ask(mAdapter, mAdapter.mIsEnumEntryAvailable, aName.GetAscii(), aEntry.GetAscii());
}

KyResult DeviceAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    // While another port is reported, a port would take the bytes of its last event a second time.
    if (mUpstreamReports.IsHidden(aName))
    {
        aValue = 0;
        return KyResult();
    }
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mGetIntegerValue, aName.GetAscii(), &aValue);
}

KyResult DeviceAdapter::GetEnumEntries(const KyString& aName, KyStringList& aEntries)
{
    const AdapterCall lCall(nullptr, &aEntries);
    return Do(mAdapter, mAdapter.mGetEnumEntries, aName.GetAscii());
}

KyResult DeviceAdapter::GetFeatureAsString(const KyString& aName, KyString& aValue)
{
    const AdapterCall lCall(&aValue);
    return Do(mAdapter, mAdapter.mGetFeatureAsString, aName.GetAscii());
}

KyResult DeviceAdapter::SetFeatureFromString(const KyString& aName, const KyString& aValue)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mSetFeatureFromString, aName.GetAscii(), aValue.GetAscii());
}

KyResult DeviceAdapter::GetStringValue(const KyString& aName, KyString& aValue)
{
    const AdapterCall lCall(&aValue);
    return Do(mAdapter, mAdapter.mGetStringValue, aName.GetAscii());
}

KyResult DeviceAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mGetRegisterLength, aName.GetAscii(), &aLength);
}

KyResult DeviceAdapter::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mGetRegisterData, aName.GetAscii(), aBuffer, aLength);
}

KyResult DeviceAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mSetRegisterData, aName.GetAscii(), aBuffer, aLength);
}

KyResult DeviceAdapter::RegisterFeatureInterest(const KyString& aName)
{
    return DoIfThere(mAdapter, mAdapter.mRegisterFeatureInterest, aName.GetAscii());
}

KyResult DeviceAdapter::UnregisterFeatureInterest(const KyString& aName)
{
    return DoIfThere(mAdapter, mAdapter.mUnregisterFeatureInterest, aName.GetAscii());
}

KyResult DeviceAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mWriteRegister, aAddress, aValue);
}

KyResult DeviceAdapter::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mReadRegister, aAddress, &aValue);
}

KyResult DeviceAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    const AdapterCall lCall;
    return Do(mAdapter, mAdapter.mWriteMemory, aBuffer, aAddress, aLength);
}

KyResult DeviceAdapter::PostWrite(uint32_t aMilliseconds)
{
    return DoIfThere(mAdapter, mAdapter.mPostWrite, aMilliseconds);
}

bool DeviceAdapter::IsConnected()
{
    return Ask(mAdapter, mAdapter.mIsConnected);
}

bool DeviceAdapter::IsKorvoVideoInterface()
{
    return Ask(mAdapter, mAdapter.mIsKorvoVideoInterface);
}

bool DeviceAdapter::IsGigEVision()
{
    return Ask(mAdapter, mAdapter.mIsGigEVision);
}

bool DeviceAdapter::IsAlternateTransport()
{
    return Ask(mAdapter, mAdapter.mIsAlternateTransport);
}

DeviceReference::DeviceReference(KyDeviceHandle aDevice) : mDevice(Devices().Find(aDevice))
{
    // A device that is being destroyed is in the table until its last report has ended.
    if (mDevice != nullptr && !mDevice->Hold())
    {
        mDevice.reset();
    }
}

DeviceReference& DeviceReference::operator=(DeviceReference&& aOther) noexcept
{
    Reset();
    mDevice = std::move(aOther.mDevice);
    return *this;
}

void DeviceReference::Reset()
{
    if (mDevice != nullptr)
    {
        mDevice->Release();
        mDevice.reset();
    }
}

} // namespace KySerialCLib
