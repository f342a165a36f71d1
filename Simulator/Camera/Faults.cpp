#include "Simulator/Camera/Faults.h"

#include <algorithm>
#include <iterator>

namespace KySimulator
{

namespace
{

/// Whether the adapter answers a call from what it knows, without asking the device.
bool IsKnownOffline(AdapterSlot aSlot)
{
    // The kind of a device does not change while it is away.
    return aSlot == AdapterSlot::IsKorvoVideoInterface || aSlot == AdapterSlot::IsGigEVision ||
           aSlot == AdapterSlot::IsAlternateTransport;
}

} // namespace

void Faults::FailCall(const CallFault& aFault)
{
    LockScope lScope(mLock);
    mCallFaults.push_back(aFault);
    // The next call is the earliest that a fault can meet, so 0 counts as 1.
    mCallFaults.back().mNth = std::max<uint64_t>(aFault.mNth, 1);
}

void Faults::LoseEvent(uint64_t aNth)
{
    AddEventFault(aNth, {0, Time(0)});
}

void Faults::DoubleEvent(uint64_t aNth)
{
    AddEventFault(aNth, {2, Time(0)});
}

void Faults::DelayEvent(Time aDelay, uint64_t aNth)
{
    AddEventFault(aNth, {1, aDelay});
}

void Faults::AddEventFault(uint64_t aNth, EventFate aFate)
{
    LockScope lScope(mLock);
    // The earliest event that a fault can meet is the next one, so 0 counts as 1 here too.
    mEventFaults.push_back({std::max<uint64_t>(aNth, 1), aFate});
}

void Faults::Clear()
{
    LockScope lScope(mLock);
    // A cut connection stays cut. Only what is still to come is taken back, a planned cut included.
    mCallFaults.clear();
    mEventFaults.clear();
    mDisconnectIn = 0;
}

void Faults::Disconnect()
{
    LockScope lScope(mLock);
    mDisconnected = true;
}

void Faults::DisconnectAtCall(uint64_t aNth)
{
    LockScope lScope(mLock);
    mDisconnectIn = std::max<uint64_t>(aNth, 1);
}

void Faults::Reconnect()
{
    LockScope lScope(mLock);
    // A planned disconnection is dropped too: it belonged to the connection that has just been replaced.
    mDisconnected = false;
    mDisconnectIn = 0;
}

bool Faults::IsDisconnected() const
{
    LockScope lScope(mLock);
    return mDisconnected;
}

uint64_t Faults::GetCallCount() const
{
    LockScope lScope(mLock);
    return mCalls;
}

uint64_t Faults::GetCallCount(AdapterSlot aSlot) const
{
    LockScope lScope(mLock);
    const auto lIndex = static_cast<size_t>(aSlot);
    return lIndex < mCallsOfSlot.size() ? mCallsOfSlot[lIndex] : 0;
}

uint64_t Faults::GetEventCount() const
{
    LockScope lScope(mLock);
    return mEvents;
}

void Faults::RecordCalls(bool aOn)
{
    LockScope lScope(mLock);
    // Only the start empties the transcript, so a test may read it after the recording has ended.
    if (aOn)
    {
        mTranscript.clear();
    }
    mRecording = aOn;
}

bool Faults::IsRecording() const
{
    LockScope lScope(mLock);
    return mRecording;
}

std::vector<RecordedCall> Faults::GetTranscript() const
{
    LockScope lScope(mLock);
    return mTranscript;
}

std::optional<KyResult> Faults::EnterCall(AdapterSlot aSlot, const std::string& aArguments)
{
    LockScope lScope(mLock);
    ++mCalls;
    ++mCallsOfSlot[std::min(static_cast<size_t>(aSlot), mCallsOfSlot.size() - 1)];
    if (mRecording)
    {
        mTranscript.push_back({aSlot, aArguments});
    }
    // Counted down before the call is judged: the N-th call already finds the connection cut.
    if (mDisconnectIn > 0 && --mDisconnectIn == 0)
    {
        mDisconnected = true;
    }
    // Faults count calls of a cut connection too, so that a test's numbers do not depend on when it was cut.
    std::optional<KyResult> lResult = TakeCallFault(aSlot);
    if (mDisconnected && !IsKnownOffline(aSlot))
    {
        lResult = KyResult(KyResult::NO_CONNECTION, "The camera is disconnected.");
    }
    return lResult;
}

std::optional<KyResult> Faults::TakeCallFault(AdapterSlot aSlot)
{
    std::optional<KyResult> lResult;
    for (auto lFault = mCallFaults.begin(); lFault != mCallFaults.end();)
    {
        // A fault without an operation of its own counts every call.
        if (lFault->mSlot.value_or(aSlot) != aSlot)
        {
            ++lFault;
            continue;
        }
        // Every fault counts this call, also when another fault has already decided its result.
        if (lFault->mNth > 1)
        {
            --lFault->mNth;
            ++lFault;
            continue;
        }
        lResult = lResult.has_value() ? lResult : lFault->mResult;
        lFault = lFault->mRepeat ? std::next(lFault) : mCallFaults.erase(lFault);
    }
    return lResult;
}

Faults::EventFate Faults::EnterEvent()
{
    LockScope lScope(mLock);
    ++mEvents;
    EventFate lFate;
    for (auto lFault = mEventFaults.begin(); lFault != mEventFaults.end();)
    {
        if (lFault->mLeft > 1)
        {
            --lFault->mLeft;
            ++lFault;
            continue;
        }
        // Several faults of one event add up: doubled and delayed, say. Lost is lost.
        lFate.mCopies *= lFault->mFate.mCopies;
        lFate.mDelay += lFault->mFate.mDelay;
        lFault = mEventFaults.erase(lFault);
    }
    // An event of a cut connection is lost, whatever faults are set. It has used them up, as a delivered one would
    // have.
    lFate.mCopies = mDisconnected ? 0 : lFate.mCopies;
    return lFate;
}

} // namespace KySimulator
