#include "Benchmarks/BenchDevice.h"

#include "BulkIPEngine.h"
#include "IRegisterSerialPort.h"
#include "JxUtilsLib/Logger.h"
#include "SerialPortIPEngine.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <mutex>
#include <vector>
#if __has_include(<boost/lockfree/spsc_queue.hpp>)
#include <boost/lockfree/spsc_queue.hpp>
#define KYSERIAL_HAS_BOOST
#endif

// What the library itself costs, beside what it cannot do without: the copy, the lock, the adapter's call.

using namespace KySerialLib;
using KyBench::BenchDevice;

namespace
{

class Ring : public DeviceSerialPort
{
public:
    bool IsOpened() override { return true; }
    KyResult Write(const uint8_t* /*aBuffer*/, uint32_t /*aSize*/, uint32_t& /*aBytesWritten*/) override
    {
        return KyResult();
    }
    KyResult Open(IKyDeviceAdapter* /*aDevice*/, KyDeviceSerial /*aPort*/) override { return KyResult(); }
    // Not in line: the engines call it across compile units too.
    [[gnu::noinline]] void Push(const uint8_t* aBytes, uint32_t aCount)
    {
        LockRx();
        PushBytes(aBytes, aCount);
        UnlockRx();
    }
};

void CopyBytes(benchmark::State& aState)
{
    std::array<uint8_t, 4096> lFrom{};
    std::array<uint8_t, 4096> lTo{};
    const auto lSize = static_cast<size_t>(aState.range(0));
    for ([[maybe_unused]] auto lTurn : aState)
    {
        benchmark::DoNotOptimize(lFrom.data());
        std::memcpy(lTo.data(), lFrom.data(), lSize);
        benchmark::DoNotOptimize(lTo.data());
        benchmark::ClobberMemory();
    }
}

void MutexPair(benchmark::State& aState)
{
    std::mutex lMutex;
    for ([[maybe_unused]] auto lTurn : aState)
    {
        lMutex.lock();
        benchmark::ClobberMemory();
        lMutex.unlock();
    }
}

void RingPush(benchmark::State& aState)
{
    Ring lRing;
    std::array<uint8_t, 4096> lFrom{};
    for ([[maybe_unused]] auto lTurn : aState)
    {
        lRing.Push(lFrom.data(), static_cast<uint32_t>(aState.range(0)));
    }
}

void RingPushAndRead(benchmark::State& aState)
{
    Ring lRing;
    std::array<uint8_t, 4096> lFrom{};
    std::array<uint8_t, 4096> lTo{};
    const auto lSize = static_cast<uint32_t>(aState.range(0));
    uint32_t lRead = 0;
    for ([[maybe_unused]] auto lTurn : aState)
    {
        lRing.Push(lFrom.data(), lSize);
        static_cast<void>(lRing.Read(lTo.data(), lSize, lRead, 0));
        benchmark::ClobberMemory();
    }
}

void RingPushByteByByte(benchmark::State& aState)
{
    Ring lRing;
    for ([[maybe_unused]] auto lTurn : aState)
    {
        for (int64_t lByte = 0; lByte < aState.range(0); ++lByte)
        {
            lRing.PushByte(static_cast<uint8_t>(lByte), true);
        }
    }
}

#if defined(KYSERIAL_HAS_BOOST)
void SpscPushAndPop(benchmark::State& aState)
{
    boost::lockfree::spsc_queue<uint8_t> lQueue(16384);
    std::array<uint8_t, 4096> lFrom{};
    std::array<uint8_t, 4096> lTo{};
    const auto lSize = static_cast<size_t>(aState.range(0));
    for ([[maybe_unused]] auto lTurn : aState)
    {
        lQueue.push(lFrom.data(), lSize);
        lQueue.pop(lTo.data(), lSize);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(SpscPushAndPop)->Arg(256);
#endif

/// The adapter's own part of a byte: one register write with its event, which the sink throws away.
void AdapterRegisterWrite(benchmark::State& aState)
{
    BenchDevice lDevice;
    Ring lSink;
    static_cast<void>(lDevice.RegisterEventSink(&lSink));
    IKyDeviceAdapter* lAdapter = &lDevice;
    benchmark::DoNotOptimize(lAdapter);
    for ([[maybe_unused]] auto lTurn : aState)
    {
        static_cast<void>(lAdapter->WriteRegister(KyDeviceProtocol::cUart0Data, 0x55));
    }
}

template<typename tEngine, KyDeviceSerial tPort>
void EngineWrite(benchmark::State& aState)
{
    BenchDevice lDevice;
    tEngine lEngine;
    if (!lEngine.Open(&lDevice, tPort).IsOK())
    {
        aState.SkipWithError("the port does not open");
        return;
    }
    const std::vector<uint8_t> lBytes(static_cast<size_t>(aState.range(0)), 0x55);
    uint32_t lWritten = 0;
    const uint64_t lBefore = lDevice.mRegisterWrites + lDevice.mMemoryWrites + lDevice.mMessages;
    for ([[maybe_unused]] auto lTurn : aState)
    {
        static_cast<void>(lEngine.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lWritten));
    }
    aState.counters["adapter_writes"] = benchmark::Counter(
        static_cast<double>(lDevice.mRegisterWrites + lDevice.mMemoryWrites + lDevice.mMessages - lBefore),
        benchmark::Counter::kAvgIterations);
    static_cast<void>(lEngine.Close());
}

class DataEngine : public IRegisterSerialPort
{
public:
    DataEngine() : IRegisterSerialPort(false) {}
};

void UartEvent(benchmark::State& aState)
{
    BenchDevice lDevice;
    SerialPortIPEngine lEngine;
    if (!lEngine.Open(&lDevice, KyDeviceSerialUart0).IsOK())
    {
        aState.SkipWithError("the port does not open");
        return;
    }
    std::array<uint8_t, 8> lEvent{0x02, 0, 0, 0, 0x41, 0, 0, 0};
    uint8_t lByte = 0;
    uint32_t lRead = 0;
    for ([[maybe_unused]] auto lTurn : aState)
    {
        lEngine.NotifyEvent(KyDeviceProtocol::cInterruptEvent, 0xFFFF, 0, 0, lEvent.data(), lEvent.size());
        static_cast<void>(lEngine.Read(&lByte, 1, lRead, 0));
    }
    static_cast<void>(lEngine.Close());
}

BENCHMARK(CopyBytes)->Arg(256);
BENCHMARK(MutexPair);
BENCHMARK(RingPush)->Arg(1)->Arg(256);
BENCHMARK(RingPushAndRead)->Arg(1)->Arg(256);
BENCHMARK(RingPushByteByByte)->Arg(256);
BENCHMARK(AdapterRegisterWrite);
BENCHMARK(EngineWrite<SerialPortIPEngine, KyDeviceSerialUart0>)->Name("UartWrite")->Arg(1)->Arg(1000);
BENCHMARK(EngineWrite<BulkIPEngine, KyDeviceSerialBulk0>)->Name("BulkRegisterWrite")->Arg(256)->Arg(600);
BENCHMARK(EngineWrite<DataEngine, KyDeviceSerialBulk0>)->Name("BulkFeatureWrite")->Arg(256)->Arg(512);
BENCHMARK(UartEvent);

} // namespace

BENCHMARK_MAIN();
