#pragma once

#include "Support/ForwardingAdapter.h"

#include <functional>
#include <mutex>
#include <string>

namespace KyTest
{

/// What goes wrong with an adapter's call.
enum class Fault
{
    None,
    Once,       ///< The call fails and has no effect.
    FromThere,  ///< That call fails, and every later one.
    Disconnect, ///< From that call on the device is not connected.
    Delay,      ///< The call is made late.
    Drop        ///< The call has no effect, and says that it had.
};

/// The ways to spoil a call.
inline constexpr Fault cEachFault[] = {Fault::Once, Fault::FromThere, Fault::Disconnect, Fault::Delay,
                                       Fault::Drop};

/// For the name of a test.
inline const char* GetFaultName(Fault aFault)
{
    constexpr const char* cNames[] = {"None", "Once", "FromThere", "Disconnect", "Delay", "Drop"};
    return cNames[static_cast<size_t>(aFault)];
}

/// Whether what a bridge has open may stay open when its start fails: its device seems to be gone, and no thread
/// can close it.
/// \param aCall  The call that was spoilt.
inline bool MayLeaveABridgesClaim(Fault aFault, const std::string& aCall)
{
    return aFault == Fault::Disconnect || aFault == Fault::FromThere ||
           (aFault == Fault::Once && aCall == "IsConnected");
}

/// Stands between the code under test and any adapter, and spoils one of the calls.
///
/// A failed call answers with cFailed, or NO_CONNECTION once the device is gone; a failed question with
/// false. Calls to take a sink or an interest away are made all the same, whatever they answer: the real
/// adapter must not call what is gone. Identifying the device always works: a claim would else be another
/// device's.
///
/// Threads: any; Set() and Heal() while no call is running.
class FaultAdapter final : public ForwardingAdapter
{
public:
    static constexpr uint32_t cFailed = 0x7777;

    /// Calls by a thread that has one are never spoilt, and not counted.
    class Immunity
    {
    public:
        Immunity() { ++sCount; }
        ~Immunity() { --sCount; }
        Immunity(const Immunity&) = delete;
        Immunity& operator=(const Immunity&) = delete;

    private:
        friend class FaultAdapter;
        static inline thread_local int sCount = 0;
    };

    using ForwardingAdapter::ForwardingAdapter;

    /// Spoils the aNumber-th call from now, counted from 1. \param aDelay  What a delay does meanwhile.
    void Set(Fault aFault, int aNumber, std::function<void()> aDelay = {});
    /// No more faults; the device is connected.
    void Heal();
    /// Whether the call that was to be spoilt has come.
    bool IsReached();
    /// Its name; empty before.
    std::string GetCall();

    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override;

private:
    enum class Verdict
    {
        Make,
        Fail,
        Gone,
        Pretend
    };

    KyResult Do(Slot aSlot, const std::function<KyResult()>& aCall) override;
    bool Ask(Slot aSlot, const std::function<bool()>& aCall) override;
    Verdict GetVerdict(Slot aSlot);

    std::mutex mMutex;
    Fault mFault = Fault::None;
    int mCountdown = 0;
    bool mReached = false;
    std::string mCall;
    std::function<void()> mDelay;
};

} // namespace KyTest
