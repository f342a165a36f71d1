// The shared-memory transport beside what else passes bytes from one process to another.
//   TransportBenchmark [--quick]           all figures, one a line: "figure <name> <value>"
//   TransportBenchmark --trips KIND COUNT  round trips only, for those who count system calls

#include "Benchmarks/Figures.h"
#include "Benchmarks/Linux/Channels.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

using KyBench::Clock;

constexpr std::array<size_t, 5> cSizes = {1, 16, 256, 4096, 16384};

struct Kind
{
    const char* mName;
    bool mCarriesData;
    std::function<std::unique_ptr<Channel>(size_t)> mMake; ///< For messages of a size.
};

std::vector<Kind> GetKinds()
{
    std::vector<Kind> lKinds;
    lKinds.push_back({"futex", false, [](size_t) { return MakeFutex(false); }});
    lKinds.push_back({"futex50", false, [](size_t) { return MakeFutex(true); }});
    lKinds.push_back({"fifo1024", true, [](size_t) { return MakeFifo(1024); }});
    lKinds.push_back({"bytes1024", true, [](size_t) { return MakeByteFifo(1024); }});
    lKinds.push_back({"fifo65536", true, [](size_t) { return MakeFifo(65536); }});
    lKinds.push_back({"pipe", true, [](size_t) { return MakePipe(); }});
    lKinds.push_back({"unix", true, [](size_t) { return MakeUnixStream(); }});
    if (MakeBoostQueue(1, 1) != nullptr)
    {
        // As many bytes wait in it as in the others.
        lKinds.push_back({"boost", true, [](size_t aSize) { return MakeBoostQueue(aSize, 65536 / aSize); }});
    }
    return lKinds;
}

void PinTo(size_t aProcessor)
{
    cpu_set_t lSet;
    CPU_ZERO(&lSet);
    CPU_SET(aProcessor, &lSet);
    ::sched_setaffinity(0, sizeof(lSet), &lSet);
}

/// Runs aPeer in a second process, on processor 0 or 1, while aMain runs here on processor 0.
double Time(bool aSpread, const std::function<void()>& aPeer, const std::function<void()>& aMain)
{
    const pid_t lChild = ::fork();
    if (lChild == 0)
    {
        PinTo(aSpread ? 1 : 0);
        aPeer();
        ::_exit(0);
    }
    PinTo(0);
    const auto lStart = Clock::now();
    aMain();
    const double lTime = std::chrono::duration<double>(Clock::now() - lStart).count();
    ::waitpid(lChild, nullptr, 0);
    return lTime;
}

/// Microseconds of a one-byte round trip.
double MeasureRoundTrip(const Kind& aKind, bool aSpread, int aTurns)
{
    const auto lDown = aKind.mMake(1);
    const auto lUp = aKind.mMake(1);
    char lByte = 'x';
    const auto lEcho = [&]
    {
        for (int lTurn = 0; lTurn < aTurns; ++lTurn)
        {
            lDown->Receive(&lByte, 1);
            lUp->Send(&lByte, 1);
        }
    };
    const auto lAsk = [&]
    {
        for (int lTurn = 0; lTurn < aTurns; ++lTurn)
        {
            lDown->Send(&lByte, 1);
            lUp->Receive(&lByte, 1);
        }
    };
    return Time(aSpread, lEcho, lAsk) / aTurns * 1e6;
}

/// Megabytes a second of messages of one size.
double MeasureThroughput(const Kind& aKind, size_t aSize, bool aSpread, bool aQuick)
{
    const size_t lMost = aQuick ? 5000 : 20000;
    const size_t lCount = std::clamp<size_t>(8U * 1024 * 1024 / aSize, 500, lMost);
    const auto lDown = aKind.mMake(aSize);
    const auto lUp = aKind.mMake(1);
    std::vector<char> lMessage(aSize, 'x');
    std::vector<char> lBuffer(16384);
    const auto lDrain = [&]
    {
        for (size_t lGot = 0; lGot < lCount * aSize;)
        {
            lGot += lDown->Receive(lBuffer.data(), lBuffer.size());
        }
        lUp->Send("x", 1);
    };
    const auto lPour = [&]
    {
        for (size_t lTurn = 0; lTurn < lCount; ++lTurn)
        {
            lDown->Send(lMessage.data(), aSize);
        }
        lUp->Receive(lBuffer.data(), lBuffer.size());
    };
    return static_cast<double>(lCount * aSize) / Time(aSpread, lDrain, lPour) / 1e6;
}

std::string NameOf(bool aSpread, const Kind& aKind, const std::string& aWhat)
{
    return std::string(aSpread ? "spread." : "one.") + aKind.mName + "." + aWhat;
}

void Measure(KyBench::Figures& aFigures, const Kind& aKind, bool aSpread, bool aQuick)
{
    aFigures.Add(NameOf(aSpread, aKind, "trip_us"), MeasureRoundTrip(aKind, aSpread, aQuick ? 1500 : 4000));
    for (const size_t lSize : cSizes)
    {
        if (aKind.mCarriesData)
        {
            aFigures.Add(NameOf(aSpread, aKind, std::to_string(lSize) + "B_MBs"),
                         MeasureThroughput(aKind, lSize, aSpread, aQuick));
        }
    }
}

int RunTrips(const char* aName, int aTurns)
{
    for (const Kind& lKind : GetKinds())
    {
        if (std::strcmp(lKind.mName, aName) == 0)
        {
            std::printf("figure trip_us %.3f\n", MeasureRoundTrip(lKind, false, aTurns));
            return 0;
        }
    }
    return 2;
}

} // namespace

int main(int aCount, char** aArguments)
{
    if (aCount == 4 && std::strcmp(aArguments[1], "--trips") == 0)
    {
        return RunTrips(aArguments[2], std::atoi(aArguments[3]));
    }
    const bool lQuick = aCount == 2 && std::strcmp(aArguments[1], "--quick") == 0;
    KyBench::Figures lFigures;
    // Turn by turn, so that a load from elsewhere hits all of them alike.
    for (int lRepeat = 0; lRepeat < KyBench::cRepeats; ++lRepeat)
    {
        for (const bool lSpread : {false, true})
        {
            for (const Kind& lKind : GetKinds())
            {
                Measure(lFigures, lKind, lSpread, lQuick);
            }
        }
    }
    lFigures.Print();
    return 0;
}
