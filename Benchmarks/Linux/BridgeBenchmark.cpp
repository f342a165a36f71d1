// Many bridges in one process, each between a pseudo terminal and a device that sends everything back. A
// process of its own is the client of all of them: 256 bytes at a time at 115200 bit/s, each compared with
// what comes back.
//   BridgeBenchmark COUNT [SECONDS]   one process with COUNT bridges: "figure <name> <value>" lines

#include "Benchmarks/Figures.h"
#include "Benchmarks/Linux/TerminalPair.h"
#include "Benchmarks/Linux/Usage.h"
#include "Benchmarks/LoopDevice.h"
#include "KySerial/KySerialBridge.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace
{

constexpr size_t cMessage = 256;
constexpr double cPeriod = cMessage / 11520.0; // seconds; ten bits a byte
constexpr int cIdleSeconds = 1;

struct Client
{
    std::unique_ptr<KyBench::TerminalPair> mTerminal = std::make_unique<KyBench::TerminalPair>();
    uint32_t mSent = 0;
    uint32_t mGot = 0;
    bool mIsWrong = false;

    /// The byte at a place of the stream; no piece of it looks like another one nearby.
    static uint8_t GetByte(uint32_t aPlace) { return static_cast<uint8_t>(aPlace * 7 + aPlace / 251); }

    void Send()
    {
        uint8_t lMessage[cMessage];
        for (uint8_t& lByte : lMessage)
        {
            lByte = GetByte(mSent++);
        }
        mIsWrong = !KyBench::SendAll(mTerminal->GetEnd(), lMessage, sizeof lMessage) || mIsWrong;
    }
    void Receive(int aTime)
    {
        uint8_t lBuffer[4096];
        const size_t lCount = KyBench::ReceiveSome(mTerminal->GetEnd(), lBuffer, sizeof lBuffer, aTime);
        for (size_t lIndex = 0; lIndex < lCount; ++lIndex)
        {
            mIsWrong = lBuffer[lIndex] != GetByte(mGot++) || mIsWrong;
        }
    }
};

/// \return The number of bytes that did not come back.
uint32_t RunClients(std::vector<Client>& aClients, int aSeconds)
{
    const int lTurns = static_cast<int>(aSeconds / cPeriod);
    const auto lStart = KyBench::Clock::now();
    for (int lTurn = 0; lTurn < lTurns; ++lTurn)
    {
        for (size_t lIndex = 0; lIndex < aClients.size(); ++lIndex)
        {
            const double lShare = static_cast<double>(lIndex) / static_cast<double>(aClients.size());
            const auto lWhen = std::chrono::duration<double>((lTurn + lShare) * cPeriod);
            std::this_thread::sleep_until(lStart +
                                          std::chrono::duration_cast<KyBench::Clock::duration>(lWhen));
            aClients[lIndex].Receive(0);
            aClients[lIndex].Send();
        }
    }
    uint32_t lLost = 0;
    for (Client& lClient : aClients)
    {
        for (int lTry = 0; lClient.mGot < lClient.mSent && lTry < 20; ++lTry)
        {
            lClient.Receive(100);
        }
        lLost += lClient.mIsWrong ? lClient.mSent : lClient.mSent - lClient.mGot;
    }
    return lLost;
}

struct Served
{
    std::unique_ptr<KyBench::LoopDevice> mDevice;
    std::unique_ptr<KySerialBridge> mBridge;
};

bool StartAll(std::vector<Client>& aClients, std::vector<Served>& aServed)
{
    for (size_t lIndex = 0; lIndex < aClients.size(); ++lIndex)
    {
        Served lServed{std::make_unique<KyBench::LoopDevice>(static_cast<int64_t>(0x100000 + lIndex)),
                       std::make_unique<KySerialBridge>()};
        const KyResult lResult =
            lServed.mBridge->Start(KyString(aClients[lIndex].mTerminal->GetPath().c_str()),
                                   KySerialPortConfiguration(115200, KyParityNone, 8, 1),
                                   lServed.mDevice.get(), KyDeviceSerialBulk1);
        if (!lResult.IsOK())
        {
            std::fprintf(stderr, "bridge %zu: %s\n", lIndex, lResult.GetDescription().GetAscii());
            return false;
        }
        aServed.push_back(std::move(lServed));
    }
    return true;
}

} // namespace

int main(int aCount, char** aArguments)
{
    const int lBridges = aCount > 1 ? std::atoi(aArguments[1]) : 1;
    const int lSeconds = aCount > 2 ? std::atoi(aArguments[2]) : 4;
    const std::string lName = "bridges" + std::to_string(lBridges) + ".";
    KyBench::Figures lFigures;
    std::vector<Client> lClients(static_cast<size_t>(lBridges));
    std::vector<Served> lServed;
    const double lResident = KyBench::GetResident();
    if (!StartAll(lClients, lServed))
    {
        return 1;
    }
    const pid_t lChild = ::fork();
    if (lChild == 0)
    {
        const uint32_t lLost = RunClients(lClients, lSeconds);
        ::_exit(lLost == 0 ? 0 : 1);
    }
    const auto lStart = KyBench::Clock::now();
    double lBefore = KyBench::GetOwnCpu();
    std::this_thread::sleep_for(std::chrono::seconds(lSeconds));
    lFigures.Add(lName + "cpu_percent", (KyBench::GetOwnCpu() - lBefore) / KyBench::GetSeconds(lStart) * 100);
    int lStatus = 1;
    ::waitpid(lChild, &lStatus, 0);
    lFigures.Add(lName + "lost", lStatus == 0 ? 0 : 1);
    lFigures.Add(lName + "resident_KiB_each", (KyBench::GetResident() - lResident) / 1024 / lBridges);
    lBefore = KyBench::GetOwnCpu();
    std::this_thread::sleep_for(std::chrono::seconds(cIdleSeconds));
    lFigures.Add(lName + "idle_cpu_percent", (KyBench::GetOwnCpu() - lBefore) / cIdleSeconds * 100);
    const auto lStop = KyBench::Clock::now();
    for (const Served& lOne : lServed)
    {
        static_cast<void>(lOne.mBridge->Stop());
    }
    lFigures.Add(lName + "stop_all_ms", KyBench::GetSeconds(lStop) * 1000);
    lFigures.Print();
    return 0;
}
