#pragma once

#include "Simulator/Time/Scheduler.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace KySimulator
{

/// What a datagram of the camera is, as far as faults choose by it.
enum class DatagramKind
{
    Command,         ///< To the control channel.
    Acknowledge,     ///< From it, PENDING_ACK included.
    Event,           ///< From the message channel.
    EventAcknowledge ///< To it.
};

constexpr size_t cDatagramKinds = 4;

/// Counts to every n-th of something.
class EveryNth
{
public:
    /// \param aNth  0: never; 1: each. Counting starts anew.
    void Set(uint32_t aNth)
    {
        mNth = aNth;
        mCount = 0;
    }
    /// Whether it is one of them.
    bool Take() { return mNth != 0 && ++mCount % mNth == 0; }

private:
    uint32_t mNth = 0;
    uint64_t mCount = 0;
};

/// Faults of a network camera, and of the network before it. None at the start. One thread at a time.
class NetworkFaults
{
public:
    struct Fate
    {
        uint32_t mCopies = 1;
        Time mDelay{0};
        Time mAgain{0}; ///< After which it comes once more; 0: it does not.
    };

    void Drop(DatagramKind aKind, uint32_t aNth) { At(aKind).mDrop.Set(aNth); }
    void Double(DatagramKind aKind, uint32_t aNth) { At(aKind).mDouble.Set(aNth); }
    /// Delays every n-th datagram, which later ones may overtake.
    void Delay(DatagramKind aKind, uint32_t aNth, Time aTime);
    /// Brings every n-th datagram once more, after aTime, whatever has come meanwhile.
    void Late(DatagramKind aKind, uint32_t aNth, Time aTime);
    /// Refuses every n-th command with the status for a busy device.
    void SetBusy(uint32_t aNth) { mBusy.Set(aNth); }
    /// Takes aTime for every n-th command, and announces it.
    void SetSlow(uint32_t aNth, Time aTime);
    /// Takes aTime for every n-th command, and does not announce it.
    void SetSilent(uint32_t aNth, Time aTime);
    /// How long a command may take in silence because of that.
    Time GetSilentTime() const { return mSilentTime; }
    /// Takes back all of it.
    void Clear() { *this = NetworkFaults(); }

    /// What becomes of the next datagram.
    Fate NextFate(DatagramKind aKind);
    /// Whether the next command meets a busy device.
    bool TakeBusy() { return mBusy.Take(); }
    /// Time that the next command takes.
    Time TakeSlow() { return mSlow.Take() ? mSlowTime : Time(0); }
    Time TakeSilent() { return mSilent.Take() ? mSilentTime : Time(0); }

private:
    struct Rules
    {
        EveryNth mDrop;
        EveryNth mDouble;
        EveryNth mDelay;
        EveryNth mLate;
        Time mDelayTime{0};
        Time mLateTime{0};
    };

    Rules& At(DatagramKind aKind) { return mRules[static_cast<size_t>(aKind)]; }

    std::array<Rules, cDatagramKinds> mRules;
    EveryNth mBusy;
    EveryNth mSlow;
    EveryNth mSilent;
    Time mSlowTime{0};
    Time mSilentTime{0};
};

} // namespace KySimulator
