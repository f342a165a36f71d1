// What it costs a thread that waits inside the process to be woken: "figure <name> <value>" lines.
//   WakeBenchmark [--quick]

#include "Benchmarks/BenchDevice.h"
#include "Benchmarks/RoundTrip.h"

#include "BulkIPEngine.h"
#include "JxUtilsLib/Event.h"
#include "SerialPortIPEngine.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <linux/futex.h>
#include <mutex>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace KySerialLib;

namespace
{

/// A word that is changed and waited for: the least that a wake-up can cost.
/// \tparam tTimed  With a time-out, as a reader has one.
template<bool tTimed>
class WordWait
{
public:
    void Set()
    {
        mWord = 1;
        ::syscall(SYS_futex, &mWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void Wait()
    {
        const timespec lTime{1, 0};
        while (mWord.exchange(0) == 0)
        {
            ::syscall(SYS_futex, &mWord, FUTEX_WAIT_PRIVATE, 0, tTimed ? &lTime : nullptr, nullptr, 0);
        }
    }

private:
    std::atomic<uint32_t> mWord{0};
};

class EventWait
{
public:
    void Set() { mEvent.Set(); }
    void Wait() { mEvent.Wait_ms(1000); }

private:
    JxUtilsLib::Event mEvent{false};
};

/// The event as the standard library alone would have it.
class ConditionWait
{
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        mIsSet = true;
        mChanged.notify_one();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lLock(mMutex);
        mChanged.wait_for(lLock, std::chrono::milliseconds(1000), [this] { return mIsSet; });
        mIsSet = false;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mIsSet = false;
};

/// A port's receive ring: an event from the device, and a reader.
class RingWait : private DeviceSerialPort
{
public:
    void Set()
    {
        const uint8_t lByte = 'x';
        LockRx();
        PushBytes(&lByte, 1);
        UnlockRx();
    }
    void Wait()
    {
        uint8_t lByte = 0;
        uint32_t lRead = 0;
        static_cast<void>(Read(&lByte, 1, lRead, 1000));
    }

private:
    bool IsOpened() override { return true; }
    KyResult Write(const uint8_t* /*aBuffer*/, uint32_t /*aSize*/, uint32_t& /*aBytesWritten*/) override
    {
        return KyResult();
    }
    KyResult Open(IKyDeviceAdapter* /*aDevice*/, KyDeviceSerial /*aPort*/) override { return KyResult(); }
};

/// A device that reports the end of a write after the call has returned, on a thread of its own.
class LateDevice : public KyBench::BenchDevice
{
public:
    LateDevice() : mThread([this] { Run(); }) {}
    ~LateDevice() override
    {
        mEnd = true;
        mOrder.Set();
        mThread.join();
    }
    LateDevice(const LateDevice&) = delete;
    LateDevice& operator=(const LateDevice&) = delete;

    KyResult WriteRegister(uint32_t aAddress, uint32_t /*aValue*/) override
    {
        if (aAddress == KyDeviceProtocol::cUart0Data)
        {
            Tell(KyDeviceProtocol::cInterruptEvent, 0x05);
        }
        return KyResult();
    }
    KyResult WriteMemory(const uint8_t* /*aBuffer*/, uint32_t /*aAddress*/, uint32_t /*aLength*/) override
    {
        Tell(KyDeviceProtocol::cBulkInterruptEvent,
             KyDeviceProtocol::cBulkTransmitEmpty | KyDeviceProtocol::cBulkTransmitPartialEmpty);
        return KyResult();
    }

private:
    void Tell(uint16_t aEvent, uint32_t aStatus)
    {
        mEvent = aEvent;
        mStatus = aStatus;
        mOrder.Set();
    }
    void Run()
    {
        for (;;)
        {
            mOrder.Wait();
            if (mEnd)
            {
                return;
            }
            const uint32_t lStatus = mStatus;
            mSink->NotifyEvent(mEvent, 0xFFFF, 0, 0, &lStatus, sizeof(lStatus));
        }
    }

    WordWait<false> mOrder;
    std::atomic<bool> mEnd{false};
    std::atomic<uint16_t> mEvent{0};
    std::atomic<uint32_t> mStatus{0};
    std::thread mThread;
};

/// \return How often the writing thread goes to sleep for each write.
template<typename tEngine>
double CountSleeps(KyDeviceSerial aPort, uint32_t aSize, int aTurns)
{
    LateDevice lDevice;
    tEngine lEngine;
    std::array<uint8_t, 256> lBytes{};
    uint32_t lWritten = 0;
    if (!lEngine.Open(&lDevice, aPort).IsOK())
    {
        return -1;
    }
    rusage lBefore{};
    rusage lAfter{};
    ::getrusage(RUSAGE_THREAD, &lBefore);
    bool lDone = true;
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lDone = lEngine.Write(lBytes.data(), aSize, lWritten).IsOK() && lDone;
    }
    ::getrusage(RUSAGE_THREAD, &lAfter);
    static_cast<void>(lEngine.Close());
    return lDone ? static_cast<double>(lAfter.ru_nvcsw - lBefore.ru_nvcsw) / aTurns : -1;
}

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    const int lTurns = aCount > 1 ? 3000 : 10000;
    cpu_set_t lOne;
    CPU_ZERO(&lOne);
    CPU_SET(0, &lOne);
    ::sched_setaffinity(0, sizeof(lOne), &lOne);
    KyBench::Figures lFigures;
    for (int lRepeat = 0; lRepeat < (aCount > 1 ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        lFigures.Add("wake.futex_us", KyBench::MeasureRoundTrip<WordWait<false>>(lTurns));
        lFigures.Add("wake.timed_us", KyBench::MeasureRoundTrip<WordWait<true>>(lTurns));
        lFigures.Add("wake.ring_us", KyBench::MeasureRoundTrip<RingWait>(lTurns));
        lFigures.Add("wake.event_us", KyBench::MeasureRoundTrip<EventWait>(lTurns));
        lFigures.Add("wake.condition_us", KyBench::MeasureRoundTrip<ConditionWait>(lTurns));
        lFigures.Add("wake.uart_sleeps", CountSleeps<SerialPortIPEngine>(KyDeviceSerialUart0, 1, lTurns));
        lFigures.Add("wake.bulk_sleeps", CountSleeps<BulkIPEngine>(KyDeviceSerialBulk0, 256, lTurns));
    }
    lFigures.Print();
    return 0;
}
