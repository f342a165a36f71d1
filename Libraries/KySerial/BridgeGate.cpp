#include "BridgeGate.h"

#include "JxUtilsLib/LockScope.h"

namespace KySerialLib
{

BridgeGate::BridgeGate() : mOpened(true), mEmpty(true)
{
    mOpened.Set();
    mEmpty.Set();
}

void BridgeGate::Enter() noexcept
{
    for (;;)
    {
        {
            const JxUtilsLib::LockScope lLock(mMutex);
            if (!mShut)
            {
                ++mInside;
                mEmpty.Reset();
                return;
            }
        }
        mOpened.Wait_ms(JxUtilsLib::Event::cInfinite);
    }
}

void BridgeGate::Leave() noexcept
{
    const JxUtilsLib::LockScope lLock(mMutex);
    if (--mInside == 0)
    {
        mEmpty.Set();
    }
}

void BridgeGate::Shut() noexcept
{
    for (;;)
    {
        {
            const JxUtilsLib::LockScope lLock(mMutex);
            if (!mShut)
            {
                mShut = true;
                mOpened.Reset();
                break;
            }
        }
        mOpened.Wait_ms(JxUtilsLib::Event::cInfinite);
    }
    // Nobody comes in any more, so that "empty" cannot be taken back.
    mEmpty.Wait_ms(JxUtilsLib::Event::cInfinite);
}

void BridgeGate::Open() noexcept
{
    const JxUtilsLib::LockScope lLock(mMutex);
    mShut = false;
    mOpened.Set();
}

} // namespace KySerialLib
