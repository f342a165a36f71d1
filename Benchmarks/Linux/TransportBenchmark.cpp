// The shared-memory transport beside what else passes bytes from one process to another.
//   TransportBenchmark [--quick]           all figures, one a line: "figure <name> <value>"
//   TransportBenchmark --trips KIND COUNT  round trips only, to count system calls
//   TransportBenchmark --pour KIND SIZE    messages of one size only, to profile

#include "Benchmarks/Figures.h"
#include "Benchmarks/Linux/Channels.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <sched.h>
#include <sys/mman.h>
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
    lKinds.push_back({"futex", false, [](size_t) { return MakeFutex(FutexSleep::Plain); }});
    lKinds.push_back({"futex50", false, [](size_t) { return MakeFutex(FutexSleep::Timed); }});
    lKinds.push_back({"futexyield", false, [](size_t) { return MakeFutex(FutexSleep::YieldFirst); }});
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

/// A second process on processor 0 or 1. It ends by itself, and is waited for.
class Peer
{
public:
    Peer(bool aSpread, const std::function<void()>& aRoutine) : mProcess(::fork())
    {
        PinTo(aSpread && mProcess == 0 ? 1 : 0);
        if (mProcess == 0)
        {
            aRoutine();
            ::_exit(0);
        }
    }
    ~Peer() { ::waitpid(mProcess, nullptr, 0); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

private:
    const pid_t mProcess;
};

/// A program that computes, for as long as it lives, on processor 0.
class Computing
{
public:
    Computing() : mProcess(::fork())
    {
        if (mProcess == 0)
        {
            PinTo(0);
            for (const volatile bool lForEver = true; lForEver;)
            {
            }
        }
    }
    ~Computing()
    {
        ::kill(mProcess, SIGKILL);
        ::waitpid(mProcess, nullptr, 0);
    }
    Computing(const Computing&) = delete;
    Computing& operator=(const Computing&) = delete;

private:
    const pid_t mProcess;
};

/// Microseconds of a one-byte round trip. A tenth more of them go before, in which the peer comes up.
double MeasureRoundTrip(const Kind& aKind, bool aSpread, int aTurns)
{
    const auto lDown = aKind.mMake(1);
    const auto lUp = aKind.mMake(1);
    const int lBefore = aTurns / 10;
    char lByte = 'x';
    const Peer lPeer(aSpread,
                     [&]
                     {
                         for (int lTurn = 0; lTurn < lBefore + aTurns; ++lTurn)
                         {
                             lDown->Receive(&lByte, 1);
                             lUp->Send(&lByte, 1);
                         }
                     });
    auto lStart = Clock::now();
    for (int lTurn = 0; lTurn < lBefore + aTurns; ++lTurn)
    {
        if (lTurn == lBefore)
        {
            lStart = Clock::now();
        }
        lDown->Send(&lByte, 1);
        lUp->Receive(&lByte, 1);
    }
    return KyBench::GetSeconds(lStart) / aTurns * 1e6;
}

/// What the sending process reports to the receiving one.
struct Load
{
    std::atomic<size_t> mBytes{0};
};

/// Sends messages of one size until all have been received. \return Seconds.
double Pour(Channel& aDown, Channel& aUp, Load& aLoad, const std::vector<char>& aMessage, size_t aCount)
{
    aLoad.mBytes = aCount * aMessage.size();
    char lByte = 0;
    const auto lStart = Clock::now();
    for (size_t lTurn = 0; lTurn < aCount; ++lTurn)
    {
        aDown.Send(aMessage.data(), aMessage.size());
    }
    aUp.Receive(&lByte, 1);
    return KyBench::GetSeconds(lStart);
}

/// Megabytes a second of messages of one size. A first run, in which the peer comes up and memory is touched
/// for the first time, says how many of them take aSeconds.
double MeasureThroughput(const Kind& aKind, size_t aSize, bool aSpread, double aSeconds)
{
    const auto lDown = aKind.mMake(aSize);
    const auto lUp = aKind.mMake(1);
    auto* const lLoad =
        new (::mmap(nullptr, sizeof(Load), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Load;
    double lSpeed = 0;
    {
        const Peer lPeer(aSpread,
                         [&]
                         {
                             std::vector<char> lBuffer(16384);
                             for (int lRun = 0; lRun < 3; ++lRun)
                             {
                                 size_t lGot = 0;
                                 do
                                 {
                                     lGot += lDown->Receive(lBuffer.data(), lBuffer.size());
                                 } while (lGot < lLoad->mBytes);
                                 lUp->Send("x", 1);
                             }
                         });
        const std::vector<char> lMessage(aSize, 'x');
        const size_t lFew = std::clamp<size_t>(131072 / aSize, 20, 2000);
        Pour(*lDown, *lUp, *lLoad, lMessage, lFew);
        const double lTime = Pour(*lDown, *lUp, *lLoad, lMessage, lFew);
        const auto lCount = std::max(lFew, static_cast<size_t>(static_cast<double>(lFew) * aSeconds / lTime));
        lSpeed = static_cast<double>(lCount * aSize) / Pour(*lDown, *lUp, *lLoad, lMessage, lCount) / 1e6;
    }
    ::munmap(lLoad, sizeof(Load));
    return lSpeed;
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
                         MeasureThroughput(aKind, lSize, aSpread, aQuick ? 0.005 : 0.04));
        }
    }
}

/// Round trips on a processor that has something else to do as well: a thread that gives it away gets it back late.
void MeasureBeside(KyBench::Figures& aFigures)
{
    const Computing lComputing;
    for (const Kind& lKind : GetKinds())
    {
        const std::string lName = lKind.mName;
        if (lName == "futex" || lName == "futexyield" || lName == "fifo1024")
        {
            // A thread that gives it away each time gets few done.
            const int lTurns = lName == "futexyield" ? 40 : 20000;
            aFigures.Add("beside." + lName + ".trip_us", MeasureRoundTrip(lKind, false, lTurns));
        }
    }
}

int RunOne(const std::string& aWhat, const char* aName, int aNumber)
{
    for (const Kind& lKind : GetKinds())
    {
        if (std::strcmp(lKind.mName, aName) == 0)
        {
            const bool lTrips = aWhat == "--trips";
            std::printf("figure %s %.3f\n", lTrips ? "trip_us" : "MBs",
                        lTrips ? MeasureRoundTrip(lKind, false, aNumber)
                               : MeasureThroughput(lKind, static_cast<size_t>(aNumber), false, 1));
            return 0;
        }
    }
    return 2;
}

} // namespace

int main(int aCount, char** aArguments)
{
    if (aCount == 4)
    {
        return RunOne(aArguments[1], aArguments[2], std::atoi(aArguments[3]));
    }
    const bool lQuick = aCount == 2 && std::strcmp(aArguments[1], "--quick") == 0;
    KyBench::Figures lFigures;
    // Turn by turn, so that a load from elsewhere hits all of them alike.
    for (int lRepeat = 0; lRepeat < (lQuick ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        for (const bool lSpread : {false, true})
        {
            for (const Kind& lKind : GetKinds())
            {
                Measure(lFigures, lKind, lSpread, lQuick);
            }
        }
        MeasureBeside(lFigures);
    }
    lFigures.Print();
    return 0;
}
