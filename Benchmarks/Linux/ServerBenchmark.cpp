// What 64 servers at 115200 bit/s cost: each has the product's two FIFOs and a thread that sends back what it
// gets. A client process of its own gives each of them 256 bytes 45 times a second.

#include "Benchmarks/Figures.h"
#include "Benchmarks/Linux/Usage.h"
#include "sharedfifo.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using KySerialLib::SharedFifo;

constexpr int cServers = 64;
constexpr uint32_t cMessage = 256;
constexpr double cPeriod = cMessage / 11520.0; // seconds; ten bits a byte

struct Pair
{
    std::unique_ptr<SharedFifo> mDown;
    std::unique_ptr<SharedFifo> mUp;
};

std::vector<Pair> MakePairs(const std::string& aStem)
{
    std::vector<Pair> lPairs;
    for (int lServer = 0; lServer < cServers; ++lServer)
    {
        const std::string lName = aStem + std::to_string(lServer);
        lPairs.push_back({std::make_unique<SharedFifo>(lName + "d", "Local\\", 1024, true),
                          std::make_unique<SharedFifo>(lName + "u", "Local\\", 1024, true)});
    }
    return lPairs;
}

void Serve(Pair& aPair, const std::atomic<bool>& aStop)
{
    std::array<uint8_t, 16384> lBuffer;
    while (!aStop)
    {
        uint32_t lCount = 0;
        if (aPair.mDown->Read(lBuffer.data(), lBuffer.size(), lCount, 100, &aStop))
        {
            aPair.mUp->Write(lBuffer.data(), lCount, lCount, KyPlatform::cInfinite, &aStop);
        }
    }
}

/// \return Whether every byte came back.
bool RunClient(std::vector<Pair>& aPairs, int aTurns)
{
    std::array<uint8_t, cMessage> lMessage{};
    std::array<uint8_t, 1024> lBuffer{};
    uint64_t lGot = 0;
    const auto lStart = KyBench::Clock::now();
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        for (int lServer = 0; lServer < cServers; ++lServer)
        {
            // Not all at once: lines are not in step.
            const double lWhen = (lTurn + static_cast<double>(lServer) / cServers) * cPeriod;
            std::this_thread::sleep_until(lStart + std::chrono::microseconds(static_cast<long>(lWhen * 1e6)));
            Pair& lPair = aPairs[static_cast<size_t>(lServer)];
            uint32_t lCount = 0;
            lPair.mDown->Write(lMessage.data(), cMessage, lCount, 1000);
            if (lPair.mUp->Read(lBuffer.data(), lBuffer.size(), lCount, 0))
            {
                lGot += lCount;
            }
        }
    }
    for (Pair& lPair : aPairs)
    {
        uint32_t lCount = 0;
        while (lPair.mUp->Read(lBuffer.data(), lBuffer.size(), lCount, 200))
        {
            lGot += lCount;
            if (lGot == uint64_t{cServers} * static_cast<uint64_t>(aTurns) * cMessage)
            {
                return true;
            }
        }
    }
    return false;
}

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    const bool lQuick = aCount > 1;
    const int lTurns = lQuick ? 45 : 90; // a second or two; to make and end so many servers takes longer
    KyBench::Figures lFigures;
    for (int lRepeat = 0; lRepeat < (lQuick ? 1 : KyBench::cRepeats); ++lRepeat)
    {
        const std::string lStem =
            "KyBenchServer" + std::to_string(::getpid()) + "x" + std::to_string(lRepeat) + "n";
        std::vector<Pair> lPairs = MakePairs(lStem);
        const pid_t lClient = ::fork();
        if (lClient == 0)
        {
            ::_exit(RunClient(lPairs, lTurns) ? 0 : 1);
        }
        std::atomic<bool> lStop{false};
        std::vector<std::thread> lThreads;
        lThreads.reserve(lPairs.size());
        for (Pair& lPair : lPairs)
        {
            lThreads.emplace_back([&lPair, &lStop] { Serve(lPair, lStop); });
        }
        const double lBefore = KyBench::GetOwnCpu();
        const auto lStart = KyBench::Clock::now();
        int lStatus = 1;
        ::waitpid(lClient, &lStatus, 0);
        lFigures.Add("servers64.cpu_percent",
                     (KyBench::GetOwnCpu() - lBefore) / KyBench::GetSeconds(lStart) * 100);
        lFigures.Add("servers64.lost", lStatus == 0 ? 0 : 1);
        lStop = true;
        for (std::thread& lThread : lThreads)
        {
            lThread.join();
        }
    }
    lFigures.Print();
    return 0;
}
