#pragma once

#include "JxUtilsLib/Event.h"
#include "JxUtilsLib/Mutex.h"

namespace KySerialLib
{

/// Keeps the relay threads out of the device port while it is opened again, which replaces what they would be
/// inside of. Not a lock: any number of threads may be inside, and nothing is held that others wait for.
///
/// Threads: any. A thread inside must leave before it enters or shuts.
class BridgeGate
{
public:
    BridgeGate();

    /// Goes in; waits while the gate is shut.
    void Enter() noexcept;
    void Leave() noexcept;

    /// Shuts the gate and waits until nobody is inside. Waits also while somebody else has it shut.
    void Shut() noexcept;
    void Open() noexcept;

private:
    JxUtilsLib::Mutex mMutex;
    unsigned mInside JX_GUARDED_BY(mMutex) = 0;
    bool mShut JX_GUARDED_BY(mMutex) = false;
    JxUtilsLib::Event mOpened; // set: not shut
    JxUtilsLib::Event mEmpty;  // set: nobody inside
};

/// Inside a gate from construction to destruction.
class BridgeGateScope
{
public:
    explicit BridgeGateScope(BridgeGate& aGate) noexcept : mGate(aGate) { mGate.Enter(); }
    ~BridgeGateScope() { mGate.Leave(); }
    BridgeGateScope(const BridgeGateScope&) = delete;
    BridgeGateScope& operator=(const BridgeGateScope&) = delete;

private:
    BridgeGate& mGate;
};

} // namespace KySerialLib
