#ifndef KYTEST_SPYADAPTER_H
#define KYTEST_SPYADAPTER_H

#include <KySerialC/kyserial.h>

/* A table of functions that counts its calls and passes them on to a simulated camera's. */

enum
{
    SPY_FUNCTIONS = 26
};

typedef struct SpyAdapter
{
    KyAdapter mInner;               /* the camera's */
    uint32_t mCalls[SPY_FUNCTIONS]; /* in the order of the table; counted and read by KyTestCount() */
    KyDeviceHandle mDevice;         /* what the sinks were registered for */
    KyCode mRefusal;                /* not 0: SetFeatureFromString fails with it */
    const char* mRefusalText;
    KyCode mReturned; /* of a KyReturnText() where none belongs */
} SpyAdapter;

/* Fills in a spy before a simulated camera, and the table to give to the library. */
KyAdapter MakeSpy(SpyAdapter* aSpy, uint64_t aCamera);

/* All calls so far. */
uint32_t CountSpyCalls(SpyAdapter* aSpy);

#endif
