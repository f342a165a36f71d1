#pragma once

#include "KySerial/Bridge/BridgeFixture.h"
#include "PortMap.h"
#include "Support/FaultAdapter.h"
#include "Support/ForEachNth.h"
#include "Support/ThreadCount.h"

#include <set>
#include <string>
#include <thread>

namespace KyTest
{

using Codes = std::set<uint32_t>;

/// What opening a port or starting a bridge may answer beside OK when the device spoils something.
inline const Codes cOpenCodes{KyResult::NO_CONNECTION, KyResult::UNSUPPORTED, KyResult::FAILURE,
                              FaultAdapter::cFailed};

/// One life of something on an adapter that may be spoilt, and what came of its operations.
struct OneRun
{
    explicit OneRun(ScriptedAdapter& aDevice) : mDevice(aDevice), mAdapter(aDevice) {}

    void Note(const char* aOperation, const KyResult& aResult, const Codes& aCodes)
    {
        mFailures += aResult.IsOK() ? 0 : 1;
        EXPECT_TRUE(aResult.IsOK() || aCodes.contains(aResult.GetCode()))
            << aOperation << ": " << testing::PrintToString(aResult);
    }

    /// The device comes back, and what is open is closed.
    template<typename Port>
    void Release(Port& aPort)
    {
        mAdapter.Heal();
        if (aPort.IsOpened())
        {
            EXPECT_THAT(aPort.Close(), IsOK());
        }
        EXPECT_FALSE(aPort.IsOpened());
    }

    ScriptedAdapter& mDevice;
    FaultAdapter mAdapter;
    int mFailures = 0;
    /// Whether nobody could close what was open when the device seemed to be gone, so that the claim stays.
    bool mMayKeepItsClaim = false;
};

/// Lives of something, with each call of the adapter spoilt in turn; each life has a device of its own.
/// \tparam Base  The fixture that it extends.
template<typename Base>
class TortureFixture : public Base
{
protected:
    virtual KyDeviceSerial GetPort() const = 0;
    virtual void Prepare(ScriptedAdapter& aDevice) = 0;
    virtual void Live(OneRun& aRun) = 0;

    /// \return Whether the fault was met.
    bool RunOnce(ScriptedAdapter& aDevice, Fault aFault, int aNumber)
    {
        OneRun lRun(aDevice);
        lRun.mAdapter.Set(aFault, aNumber, [] { std::this_thread::yield(); });
        Live(lRun);
        const bool lReached = lRun.mAdapter.IsReached();
        mFailures += lRun.mFailures;
        EXPECT_TRUE(lReached || aFault == Fault::FromThere || lRun.mFailures == 0) << "a run without a fault";
        mCall = lRun.mAdapter.GetCall();
        mLeft = lRun.mMayKeepItsClaim && MayLeaveABridgesClaim(aFault, mCall);
        return lReached;
    }

    /// Expects that the port is free and no thread is left.
    /// \return Whether the port is free: it may keep its claim when the device seemed to be gone.
    bool CheckReleased(ScriptedAdapter& aDevice)
    {
        KySerialLib::PortMap& lPorts = KySerialLib::PortMap::GetInstance();
        const bool lFree = lPorts.Lock(&aDevice, GetPort()) && lPorts.Unlock(&aDevice, GetPort());
        EXPECT_TRUE(lFree || mLeft) << mCall;
        EXPECT_TRUE(aDevice.GetSinks().empty() || !lFree) << mCall;
        EXPECT_TRUE(HasNoMoreThreadsThan(mThreads)) << mCall;
        return lFree;
    }

    /// Spoils each call in turn.
    /// \param aAgain  After every so many lives an unspoilt one follows on the same device, if the port is free.
    /// \return How many calls were spoilt.
    int SpoilEachCall(Fault aFault, int aAgain)
    {
        {
            ScriptedAdapter lDevice;
            Prepare(lDevice);
            EXPECT_FALSE(RunOnce(lDevice, Fault::None, 0));
        }
        mThreads = CountThreadsAtFirst();
        return ForEachNth(
            [&](int aNth, int& aCount)
            {
                ScriptedAdapter lDevice;
                Prepare(lDevice);
                aCount = RunOnce(lDevice, aFault, aNth) && aNth < 1000 ? aNth : 0;
                if (CheckReleased(lDevice) && aNth % aAgain == 1 % aAgain)
                {
                    // Another device by its name: one whose capabilities could not be read is remembered.
                    lDevice.SetInteger("GevMACAddress", sNextMac++);
                    RunOnce(lDevice, Fault::None, 0);
                }
            });
    }

    RecordingLogSink mLog{PriorityFatal};
    AssertRecorder mAsserts; // a device that changes its mind breaks some
    size_t mThreads = 0;
    static inline int64_t sNextMac = 0x0C0000000001;
    std::string mCall;
    bool mLeft = false;
    int mFailures = 0;
};

} // namespace KyTest
