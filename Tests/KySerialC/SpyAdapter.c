#include "SpyAdapter.h"

#include "Check.h"
#include <KySimulatorC/kysimulator.h>

#include <stddef.h>

/* Counts the call of a function; gives the camera's table to pass it on to. */
static const KyAdapter* Enter(void* aContext, int aFunction)
{
    SpyAdapter* const lSpy = (SpyAdapter*)aContext;
    (void)KyTestCount(&lSpy->mCalls[aFunction], 1);
    return &lSpy->mInner;
}

static int32_t IsConnected(void* aContext)
{
    const KyAdapter* const lInner = Enter(aContext, 0);
    return lInner->mIsConnected(lInner->mContext);
}

static int32_t IsKorvoVideoInterface(void* aContext)
{
    const KyAdapter* const lInner = Enter(aContext, 1);
    return lInner->mIsKorvoVideoInterface(lInner->mContext);
}

static int32_t IsGigEVision(void* aContext)
{
    const KyAdapter* const lInner = Enter(aContext, 2);
    return lInner->mIsGigEVision(lInner->mContext);
}

static int32_t IsAlternateTransport(void* aContext)
{
    const KyAdapter* const lInner = Enter(aContext, 3);
    return lInner->mIsAlternateTransport(lInner->mContext);
}

static KyCode ReadRegister(void* aContext, uint32_t aAddress, uint32_t* aValue)
{
    const KyAdapter* const lInner = Enter(aContext, 4);
    return lInner->mReadRegister(lInner->mContext, aAddress, aValue);
}

static KyCode WriteRegister(void* aContext, uint32_t aAddress, uint32_t aValue)
{
    const KyAdapter* const lInner = Enter(aContext, 5);
    return lInner->mWriteRegister(lInner->mContext, aAddress, aValue);
}

static KyCode WriteMemory(void* aContext, const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    const KyAdapter* const lInner = Enter(aContext, 6);
    return lInner->mWriteMemory(lInner->mContext, aBuffer, aAddress, aLength);
}

static int32_t IsFeatureAvailable(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 7);
    return lInner->mIsFeatureAvailable(lInner->mContext, aName);
}

static int32_t IsIntegerFeatureAvailable(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 8);
    return lInner->mIsIntegerFeatureAvailable(lInner->mContext, aName);
}

static int32_t IsRegisterFeatureAvailable(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 9);
    return lInner->mIsRegisterFeatureAvailable(lInner->mContext, aName);
}

static int32_t IsFeatureReadable(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 10);
    return lInner->mIsFeatureReadable(lInner->mContext, aName);
}

static int32_t IsFeatureWritable(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 11);
    return lInner->mIsFeatureWritable(lInner->mContext, aName);
}

static int32_t IsEnumEntryAvailable(void* aContext, const char* aName, const char* aEntry)
{
    const KyAdapter* const lInner = Enter(aContext, 12);
    return lInner->mIsEnumEntryAvailable(lInner->mContext, aName, aEntry);
}

static KyCode GetIntegerValue(void* aContext, const char* aName, int64_t* aValue)
{
    const KyAdapter* const lInner = Enter(aContext, 13);
    return lInner->mGetIntegerValue(lInner->mContext, aName, aValue);
}

static KyCode GetEnumEntries(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 14);
    return lInner->mGetEnumEntries(lInner->mContext, aName);
}

static KyCode GetFeatureAsString(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 15);
    return lInner->mGetFeatureAsString(lInner->mContext, aName);
}

static KyCode SetFeatureFromString(void* aContext, const char* aName, const char* aValue)
{
    const KyAdapter* const lInner = Enter(aContext, 16);
    const SpyAdapter* const lSpy = (const SpyAdapter*)aContext;
    if (lSpy->mRefusal != KY_OK)
    {
        KySetLastText(lSpy->mRefusalText);
        return lSpy->mRefusal;
    }
    return lInner->mSetFeatureFromString(lInner->mContext, aName, aValue);
}

static KyCode GetStringValue(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 17);
    return lInner->mGetStringValue(lInner->mContext, aName);
}

static KyCode GetRegisterLength(void* aContext, const char* aName, int64_t* aLength)
{
    const KyAdapter* const lInner = Enter(aContext, 18);
    return lInner->mGetRegisterLength(lInner->mContext, aName, aLength);
}

static KyCode GetRegisterData(void* aContext, const char* aName, uint8_t* aBuffer, int64_t aLength)
{
    const KyAdapter* const lInner = Enter(aContext, 19);
    return lInner->mGetRegisterData(lInner->mContext, aName, aBuffer, aLength);
}

static KyCode SetRegisterData(void* aContext, const char* aName, const uint8_t* aBuffer, int64_t aLength)
{
    const KyAdapter* const lInner = Enter(aContext, 20);
    return lInner->mSetRegisterData(lInner->mContext, aName, aBuffer, aLength);
}

static KyCode PostWrite(void* aContext, uint32_t aMilliseconds)
{
    const KyAdapter* const lInner = Enter(aContext, 21);
    ((SpyAdapter*)aContext)->mReturned = KyReturnText("nobody asked");
    return lInner->mPostWrite(lInner->mContext, aMilliseconds);
}

static KyCode RegisterFeatureInterest(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 22);
    return lInner->mRegisterFeatureInterest(lInner->mContext, aName);
}

static KyCode UnregisterFeatureInterest(void* aContext, const char* aName)
{
    const KyAdapter* const lInner = Enter(aContext, 23);
    return lInner->mUnregisterFeatureInterest(lInner->mContext, aName);
}

static KyCode RegisterEventSink(void* aContext, KyDeviceHandle aDevice)
{
    const KyAdapter* const lInner = Enter(aContext, 24);
    ((SpyAdapter*)aContext)->mDevice = aDevice;
    return lInner->mRegisterEventSink(lInner->mContext, aDevice);
}

static KyCode UnregisterEventSink(void* aContext, KyDeviceHandle aDevice)
{
    const KyAdapter* const lInner = Enter(aContext, 25);
    (void)lInner; /* the camera's is null */
    (void)aDevice;
    return KY_OK;
}

KyAdapter MakeSpy(SpyAdapter* aSpy, uint64_t aCamera)
{
    static const SpyAdapter cNone;
    KyAdapter lTable;
    *aSpy = cNone;
    aSpy->mInner.mSize = sizeof aSpy->mInner;
    CHECK_OK(KySimCameraGetAdapter(aCamera, &aSpy->mInner));
    lTable.mSize = sizeof lTable;
    lTable.mReserved = 0;
    lTable.mContext = aSpy;
    lTable.mIsConnected = &IsConnected;
    lTable.mIsKorvoVideoInterface = &IsKorvoVideoInterface;
    lTable.mIsGigEVision = &IsGigEVision;
    lTable.mIsAlternateTransport = &IsAlternateTransport;
    lTable.mReadRegister = &ReadRegister;
    lTable.mWriteRegister = &WriteRegister;
    lTable.mWriteMemory = &WriteMemory;
    lTable.mIsFeatureAvailable = &IsFeatureAvailable;
    lTable.mIsIntegerFeatureAvailable = &IsIntegerFeatureAvailable;
    lTable.mIsRegisterFeatureAvailable = &IsRegisterFeatureAvailable;
    lTable.mIsFeatureReadable = &IsFeatureReadable;
    lTable.mIsFeatureWritable = &IsFeatureWritable;
    lTable.mIsEnumEntryAvailable = &IsEnumEntryAvailable;
    lTable.mGetIntegerValue = &GetIntegerValue;
    lTable.mGetEnumEntries = &GetEnumEntries;
    lTable.mGetFeatureAsString = &GetFeatureAsString;
    lTable.mSetFeatureFromString = &SetFeatureFromString;
    lTable.mGetStringValue = &GetStringValue;
    lTable.mGetRegisterLength = &GetRegisterLength;
    lTable.mGetRegisterData = &GetRegisterData;
    lTable.mSetRegisterData = &SetRegisterData;
    lTable.mPostWrite = &PostWrite;
    lTable.mRegisterFeatureInterest = &RegisterFeatureInterest;
    lTable.mUnregisterFeatureInterest = &UnregisterFeatureInterest;
    lTable.mRegisterEventSink = &RegisterEventSink;
    lTable.mUnregisterEventSink = &UnregisterEventSink;
    return lTable;
}

uint32_t CountSpyCalls(SpyAdapter* aSpy)
{
    uint32_t lSum = 0;
    int lFunction = 0;
    for (lFunction = 0; lFunction < SPY_FUNCTIONS; ++lFunction)
    {
        lSum += KyTestCount(&aSpy->mCalls[lFunction], 0);
    }
    return lSum;
}
