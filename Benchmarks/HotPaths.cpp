// One hot path, run a number of times, to count its instructions and its calls into the system:
//   HotPaths NAME TURNS   "figure allocations <number>"

#include "Benchmarks/BenchDevice.h"

#include "BulkIPEngine.h"
#include "IRegisterSerialPort.h"
#include "SerialPortIPEngine.h"
#include "sharedfifo.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>

using namespace KySerialLib;
using KyBench::BenchDevice;

namespace
{

uint64_t gAllocations = 0;

} // namespace

void* operator new(size_t aSize)
{
    ++gAllocations;
    if (void* const lMemory = std::malloc(aSize > 0 ? aSize : 1))
    {
        return lMemory;
    }
    throw std::bad_alloc();
}

void operator delete(void* aMemory) noexcept
{
    std::free(aMemory);
}

void operator delete(void* aMemory, size_t /*aSize*/) noexcept
{
    std::free(aMemory);
}

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
};

void PushAndRead(int aTurns, bool aRead)
{
    Ring lRing;
    std::array<uint8_t, 256> lBytes{};
    uint32_t lRead = 0;
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lRing.LockRx();
        lRing.PushBytes(lBytes.data(), lBytes.size());
        lRing.UnlockRx();
        if (aRead)
        {
            static_cast<void>(lRing.Read(lBytes.data(), lBytes.size(), lRead, 0));
        }
    }
}

template<typename tEngine>
void Write(tEngine& aEngine, KyDeviceSerial aPort, uint32_t aSize, int aTurns)
{
    BenchDevice lDevice;
    std::array<uint8_t, 256> lBytes{};
    uint32_t lWritten = 0;
    if (!aEngine.Open(&lDevice, aPort).IsOK())
    {
        std::abort();
    }
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        static_cast<void>(aEngine.Write(lBytes.data(), aSize, lWritten));
    }
    static_cast<void>(aEngine.Close());
}

void WriteUart(int aTurns)
{
    SerialPortIPEngine lEngine;
    Write(lEngine, KyDeviceSerialUart0, 1, aTurns);
}

void WriteBulkRegisters(int aTurns)
{
    BulkIPEngine lEngine;
    Write(lEngine, KyDeviceSerialBulk0, 256, aTurns);
}

void WriteBulkFeatures(int aTurns)
{
    IRegisterSerialPort lEngine(false);
    Write(lEngine, KyDeviceSerialBulk0, 256, aTurns);
}

void ReceiveUart(int aTurns)
{
    BenchDevice lDevice;
    SerialPortIPEngine lEngine;
    const std::array<uint8_t, 8> lEvent{0x02, 0, 0, 0, 0x41, 0, 0, 0};
    uint8_t lByte = 0;
    uint32_t lRead = 0;
    if (!lEngine.Open(&lDevice, KyDeviceSerialUart0).IsOK())
    {
        std::abort();
    }
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lEngine.NotifyEvent(KyDeviceProtocol::cInterruptEvent, 0xFFFF, 0, 0, lEvent.data(), lEvent.size());
        static_cast<void>(lEngine.Read(&lByte, 1, lRead, 0));
    }
    static_cast<void>(lEngine.Close());
}

/// A write with room and a read with data: no thread waits.
void PassThroughFifo(int aTurns)
{
    SharedFifo lFifo("KyBenchHotPath", "Local\\", 1024, true);
    std::array<uint8_t, 256> lBytes{};
    uint32_t lCount = 0;
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lFifo.Write(lBytes.data(), lBytes.size(), lCount, 0);
        lFifo.Read(lBytes.data(), lBytes.size(), lCount, 0);
    }
}

} // namespace

int main(int aCount, char** aArguments)
{
    const std::map<std::string, std::function<void(int)>> lPaths = {
        {"RingPush/256", [](int aTurns) { PushAndRead(aTurns, false); }},
        {"RingPushAndRead/256", [](int aTurns) { PushAndRead(aTurns, true); }},
        {"UartWrite/1", &WriteUart},
        {"BulkRegisterWrite/256", &WriteBulkRegisters},
        {"BulkFeatureWrite/256", &WriteBulkFeatures},
        {"UartEvent", &ReceiveUart},
        {"FifoWriteAndRead/256", &PassThroughFifo},
    };
    const auto lPath = aCount == 3 ? lPaths.find(aArguments[1]) : lPaths.end();
    if (lPath == lPaths.end())
    {
        return 2;
    }
    lPath->second(std::atoi(aArguments[2]));
    std::printf("figure allocations %llu\n", static_cast<unsigned long long>(gAllocations));
    return 0;
}
