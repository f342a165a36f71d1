// One bridge to a pseudo terminal beside programs that relay bytes between two of them: socat, and ser2net,
// whose other side is a socket. Those that are not installed are left out. For each: how late a byte is, and
// what processor time it takes.
//   RelayBenchmark [--quick]   "figure <name> <value>" lines

#include "Benchmarks/Figures.h"
#include "Benchmarks/Linux/RelaySubjects.h"
#include "Benchmarks/Linux/TerminalPair.h"

#include <array>
#include <cstring>
#include <string>
#include <thread>

namespace
{

using KyBench::Figures;
using KyBench::Subject;
using Milliseconds = std::chrono::milliseconds;

constexpr size_t cMessage = 256;
constexpr auto cPeriod = std::chrono::microseconds(22222); // of 256 bytes at 115200 bit/s
constexpr int cQuiet = 10; // milliseconds until a bridge passes on what it has

double GetMilliseconds(int64_t aNanoseconds)
{
    return static_cast<double>(aNanoseconds) * 1e-6;
}

/// One byte from the host, again and again: milliseconds until the device has it.
void MeasureDown(Subject& aSubject, int aTurns, std::vector<double>& aLate)
{
    aSubject.Tell('r');
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        const uint32_t lBefore = aSubject.GetShared().mReceived;
        const int64_t lStart = KyBench::GetNanoseconds();
        if (!KyBench::SendAll(aSubject.GetHostFile(), "x", 1))
        {
            return;
        }
        std::this_thread::sleep_for(Milliseconds(2 * cQuiet));
        while (aSubject.GetShared().mReceived == lBefore)
        {
            std::this_thread::sleep_for(Milliseconds(1));
        }
        aLate.push_back(GetMilliseconds(aSubject.GetShared().mWhen - lStart));
    }
}

/// One byte from the device, again and again: milliseconds until the host has it.
void MeasureUp(Subject& aSubject, std::vector<double>& aLate)
{
    aSubject.Tell('s');
    for (int lTurn = 0; lTurn < KyBench::cSlowTurns; ++lTurn)
    {
        char lByte = 0;
        if (KyBench::ReceiveSome(aSubject.GetHostFile(), &lByte, 1, 2000) == 0)
        {
            return;
        }
        aLate.push_back(GetMilliseconds(KyBench::GetNanoseconds() - aSubject.GetShared().mWhen));
    }
}

/// \return Milliseconds of processor time for a megabyte from the device.
double MeasureCost(Subject& aSubject)
{
    std::array<char, 16384> lBuffer;
    const double lBefore = aSubject.GetCpuOfRelay();
    aSubject.Tell('f');
    for (size_t lGot = 0; lGot < KyBench::cFastBytes;)
    {
        const size_t lCount =
            KyBench::ReceiveSome(aSubject.GetHostFile(), lBuffer.data(), lBuffer.size(), 2000);
        if (lCount == 0)
        {
            return 0;
        }
        lGot += lCount;
    }
    const double lUsed = aSubject.GetCpuOfRelay() - lBefore;
    return lUsed * 1e3 / (KyBench::cFastBytes * 1e-6);
}

/// \return Per cent of a processor at 115200 bit/s both ways, without a pause: 12 bytes every 1.04 ms.
double MeasureStream(Subject& aSubject)
{
    std::array<char, 4096> lBuffer{};
    const double lBefore = aSubject.GetCpuOfRelay();
    aSubject.Tell('l');
    const auto lStart = KyBench::Clock::now();
    for (int lTurn = 0; lTurn < KyBench::cStreamTurns; ++lTurn)
    {
        KyBench::SendAll(aSubject.GetHostFile(), lBuffer.data(), KyBench::cStreamBytes);
        std::this_thread::sleep_until(lStart + (lTurn + 1) * KyBench::cStreamPeriod);
        KyBench::ReceiveSome(aSubject.GetHostFile(), lBuffer.data(), lBuffer.size(), 0);
    }
    const double lUsed = aSubject.GetCpuOfRelay() - lBefore;
    while (KyBench::ReceiveSome(aSubject.GetHostFile(), lBuffer.data(), lBuffer.size(), 20) > 0)
    {
    }
    return lUsed / std::chrono::duration<double>(KyBench::cStreamTurns * KyBench::cStreamPeriod).count() *
           100;
}

/// \return Per cent of a processor at 115200 bit/s both ways, in messages of 256 bytes that are sent back.
/// \param aSleeps  Receives how often the relay goes to sleep for each.
double MeasureMessages(Subject& aSubject, int aTurns, double& aSleeps)
{
    aSubject.Tell('e');
    std::array<char, cMessage> lMessage{};
    std::array<char, 4096> lBuffer;
    const double lBefore = aSubject.GetCpuOfRelay();
    const double lSleeps = aSubject.GetSleepsOfRelay();
    const auto lStart = KyBench::Clock::now();
    size_t lGot = 0;
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        KyBench::SendAll(aSubject.GetHostFile(), lMessage.data(), lMessage.size());
        std::this_thread::sleep_until(lStart + (lTurn + 1) * cPeriod);
        lGot += KyBench::ReceiveSome(aSubject.GetHostFile(), lBuffer.data(), lBuffer.size(), 0);
    }
    const double lShare = (aSubject.GetCpuOfRelay() - lBefore) / KyBench::GetSeconds(lStart) * 100;
    aSleeps = (aSubject.GetSleepsOfRelay() - lSleeps) / aTurns;
    while (lGot < static_cast<size_t>(aTurns) * cMessage)
    {
        const size_t lCount =
            KyBench::ReceiveSome(aSubject.GetHostFile(), lBuffer.data(), lBuffer.size(), 500);
        if (lCount == 0)
        {
            return 0;
        }
        lGot += lCount;
    }
    return lShare;
}

struct Late
{
    std::vector<double> mDown;
    std::vector<double> mUp;
};

void Measure(Figures& aFigures, Late& aLate, const char* aName, Subject& aSubject, bool aQuick)
{
    const std::string lName = std::string("relay.") + aName + ".";
    MeasureDown(aSubject, aQuick ? 20 : 60, aLate.mDown);
    MeasureUp(aSubject, aLate.mUp);
    aFigures.Add(lName + "up_cpu_ms_per_MB", MeasureCost(aSubject));
    double lSleeps = 0;
    aFigures.Add(lName + "messages_cpu_percent", MeasureMessages(aSubject, aQuick ? 20 : 90, lSleeps));
    aFigures.Add(lName + "messages_sleeps", lSleeps);
    aFigures.Add(lName + "stream_cpu_percent", MeasureStream(aSubject));
}

void Report(Figures& aFigures, const char* aName, const Late& aLate)
{
    const std::string lName = std::string("relay.") + aName + ".";
    aFigures.Add(lName + "down_ms_median", KyBench::GetQuantile(aLate.mDown, 0.5));
    aFigures.Add(lName + "down_ms_p99", KyBench::GetQuantile(aLate.mDown, 0.99));
    aFigures.Add(lName + "up_us_median", KyBench::GetQuantile(aLate.mUp, 0.5) * 1e3);
    aFigures.Add(lName + "up_us_p99", KyBench::GetQuantile(aLate.mUp, 0.99) * 1e3);
}

} // namespace

int main(int aCount, char** aArguments)
{
    const bool lQuick = aCount == 2 && std::strcmp(aArguments[1], "--quick") == 0;
    Figures lFigures;
    std::map<std::string, Late> lLate;
    for (int lRepeat = 0; lRepeat < (lQuick ? 1 : KyBench::cRepeats); ++lRepeat)
    {
        for (const char* const lName : {"bridge", "socat", "ser2net"})
        {
            const std::unique_ptr<Subject> lSubject = Subject::Make(lName);
            if (lSubject != nullptr)
            {
                Measure(lFigures, lLate[lName], lName, *lSubject, lQuick);
            }
        }
    }
    for (const auto& [lName, lOne] : lLate)
    {
        Report(lFigures, lName.c_str(), lOne);
    }
    lFigures.Print();
    return 0;
}
