// The shared-memory transport beside events and named pipes: "figure <name> <value>" lines.
//   TransportBenchmark [--quick]

#include "Benchmarks/Figures.h"
#include "KyPlatform/Windows/SystemCalls.h"
#include "sharedfifo.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using KySerialLib::SharedFifo;

namespace
{

using KyBench::Clock;

constexpr std::array<uint32_t, 5> cSizes = {1, 16, 256, 4096, 16384};
constexpr int cTurns = 600;

/// Both directions between two processes; the first one makes it, the second joins by name.
class Link
{
public:
    virtual ~Link() = default;
    virtual void Send(const void* aData, uint32_t aSize) = 0;
    virtual uint32_t Receive(void* aBuffer, uint32_t aSize) = 0;
};

class FifoLink : public Link
{
public:
    FifoLink(const std::string& aName, uint32_t aCapacity, bool aFirst)
        : mA(aName + "A", "Local\\", aCapacity, true)
        , mB(aName + "B", "Local\\", aCapacity, true)
        , mOut(aFirst ? mA : mB)
        , mIn(aFirst ? mB : mA)
    {
    }
    void Send(const void* aData, uint32_t aSize) override
    {
        uint32_t lWritten = 0;
        mOut.Write(aData, aSize, lWritten, KyPlatform::cInfinite);
    }
    uint32_t Receive(void* aBuffer, uint32_t aSize) override
    {
        uint32_t lRead = 0;
        mIn.Read(aBuffer, aSize, lRead, KyPlatform::cInfinite);
        return lRead;
    }

private:
    SharedFifo mA;
    SharedFifo mB;
    SharedFifo& mOut;
    SharedFifo& mIn;
};

class PipeLink : public Link
{
public:
    PipeLink(const std::string& aName, bool aFirst) : mIsJoined(!aFirst)
    {
        const std::string lPath = "\\\\.\\pipe\\" + aName;
        mPipe = aFirst ? ::CreateNamedPipeA(lPath.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                            65536, 65536, 0, nullptr)
                       : ::CreateFileA(lPath.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                       0, nullptr);
    }
    ~PipeLink() override { ::CloseHandle(mPipe); }
    void Send(const void* aData, uint32_t aSize) override
    {
        if (!mIsJoined)
        {
            // What is written before the other end is there is lost.
            ::ConnectNamedPipe(mPipe, nullptr);
            mIsJoined = true;
        }
        DWORD lDone = 0;
        ::WriteFile(mPipe, aData, aSize, &lDone, nullptr);
    }
    uint32_t Receive(void* aBuffer, uint32_t aSize) override
    {
        DWORD lDone = 0;
        ::ReadFile(mPipe, aBuffer, aSize, &lDone, nullptr);
        return lDone;
    }

private:
    HANDLE mPipe = nullptr;
    bool mIsJoined;
};

/// Two auto-reset events: the least that a round trip can cost.
class EventLink : public Link
{
public:
    EventLink(const std::string& aName, bool aFirst)
    {
        HANDLE lA = ::CreateEventA(nullptr, FALSE, FALSE, (aName + "A").c_str());
        HANDLE lB = ::CreateEventA(nullptr, FALSE, FALSE, (aName + "B").c_str());
        mOut = aFirst ? lA : lB;
        mIn = aFirst ? lB : lA;
    }
    void Send(const void* /*aData*/, uint32_t /*aSize*/) override { ::SetEvent(mOut); }
    uint32_t Receive(void* /*aBuffer*/, uint32_t /*aSize*/) override
    {
        ::WaitForSingleObject(mIn, INFINITE);
        return 1;
    }

private:
    HANDLE mOut = nullptr;
    HANDLE mIn = nullptr;
};

std::unique_ptr<Link> MakeLink(const std::string& aKind, const std::string& aName, bool aFirst)
{
    if (aKind == "event")
    {
        return std::make_unique<EventLink>(aName, aFirst);
    }
    if (aKind == "pipe")
    {
        return std::make_unique<PipeLink>(aName, aFirst);
    }
    return std::make_unique<FifoLink>(aName, aKind == "fifo1024" ? 1024 : 65536, aFirst);
}

uint32_t GetCount(uint32_t aSize)
{
    return std::clamp<uint32_t>(512U * 1024 / aSize, 40, 400);
}

/// The second process: answers round trips, then drains one run of each size and acknowledges it.
int RunPeer(const std::string& aKind, const std::string& aName, DWORD_PTR aProcessor)
{
    ::SetProcessAffinityMask(::GetCurrentProcess(), aProcessor);
    const auto lLink = MakeLink(aKind, aName, false);
    std::vector<char> lBuffer(16384);
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        lLink->Receive(lBuffer.data(), 1);
        lLink->Send(lBuffer.data(), 1);
    }
    for (const uint32_t lSize : cSizes)
    {
        if (aKind == "event")
        {
            break; // carries no bytes
        }
        for (uint64_t lGot = 0; lGot < uint64_t{GetCount(lSize)} * lSize;)
        {
            lGot += lLink->Receive(lBuffer.data(), 16384);
        }
        lLink->Send(lBuffer.data(), 1);
    }
    return 0;
}

void Measure(KyBench::Figures& aFigures, const std::string& aProgram, const std::string& aKind, bool aSpread)
{
    static int sCount = 0;
    const std::string lName =
        "KyBench" + std::to_string(::GetCurrentProcessId()) + "x" + std::to_string(++sCount);
    const std::string lFigure = (aSpread ? "spread." : "one.") + aKind + ".";
    ::SetProcessAffinityMask(::GetCurrentProcess(), 1);
    const auto lLink = MakeLink(aKind, lName, true);
    STARTUPINFOA lStart = {};
    lStart.cb = sizeof(lStart);
    PROCESS_INFORMATION lPeer = {};
    std::string lCommand = "\"" + aProgram + "\" " + aKind + " " + lName + (aSpread ? " 2" : " 1");
    ::CreateProcessA(nullptr, lCommand.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &lStart, &lPeer);
    std::vector<char> lBuffer(16384, 'x');
    auto lTime = Clock::now();
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        if (lTurn == cTurns / 3)
        {
            lTime = Clock::now(); // the first third is the peer's start
        }
        lLink->Send(lBuffer.data(), 1);
        lLink->Receive(lBuffer.data(), 1);
    }
    aFigures.Add(lFigure + "trip_us", KyBench::GetSeconds(lTime) / (cTurns * 2 / 3) * 1e6);
    for (const uint32_t lSize : cSizes)
    {
        if (aKind == "event")
        {
            break;
        }
        lTime = Clock::now();
        for (uint32_t lTurn = 0; lTurn < GetCount(lSize); ++lTurn)
        {
            lLink->Send(lBuffer.data(), lSize);
        }
        lLink->Receive(lBuffer.data(), 1);
        aFigures.Add(lFigure + std::to_string(lSize) + "B_MBs",
                     static_cast<double>(GetCount(lSize)) * lSize / KyBench::GetSeconds(lTime) / 1e6);
    }
    ::WaitForSingleObject(lPeer.hProcess, INFINITE);
}

/// Calls into the system that one write and one read make.
std::atomic<int> gCalls{0};
const KyPlatform::SystemCalls cReal = KyPlatform::GetRealSystem();

/// Those of a round trip between two threads that sleep.
double CountTripCalls()
{
    constexpr int cTrips = 200;
    ::SetProcessAffinityMask(::GetCurrentProcess(), 1);
    const std::string lName = "KyBenchTrip" + std::to_string(::GetCurrentProcessId());
    FifoLink lHere(lName, 1024, true);
    FifoLink lThere(lName, 1024, false);
    char lByte = 'x';
    gCalls = 0;
    std::thread lPeer(
        [&lThere]
        {
            char lEcho = 0;
            for (int lTrip = 0; lTrip < cTrips; ++lTrip)
            {
                lThere.Receive(&lEcho, 1);
                lThere.Send(&lEcho, 1);
            }
        });
    for (int lTrip = 0; lTrip < cTrips; ++lTrip)
    {
        lHere.Send(&lByte, 1);
        lHere.Receive(&lByte, 1);
    }
    lPeer.join();
    return static_cast<double>(gCalls) / cTrips;
}

void ReportCalls()
{
    KyPlatform::gSystem.mWait = [](HANDLE aHandle, DWORD aTime) -> DWORD
    { return ++gCalls, cReal.mWait(aHandle, aTime); };
    KyPlatform::gSystem.mSetEvent = [](HANDLE aHandle) -> BOOL { return ++gCalls, cReal.mSetEvent(aHandle); };
    KyPlatform::gSystem.mReleaseMutex = [](HANDLE aHandle) -> BOOL
    { return ++gCalls, cReal.mReleaseMutex(aHandle); };
    KyPlatform::gSystem.mResetEvent = [](HANDLE aHandle) -> BOOL
    { return ++gCalls, cReal.mResetEvent(aHandle); };
    KyPlatform::gSystem.mWaitForAll = [](DWORD aHandles, const HANDLE* aHandle, BOOL aAll,
                                         DWORD aTime) -> DWORD
    { return ++gCalls, cReal.mWaitForAll(aHandles, aHandle, aAll, aTime); };
    SharedFifo lFifo("KyBenchCalls" + std::to_string(::GetCurrentProcessId()), "Local\\", 1024, true);
    uint32_t lCount = 0;
    std::array<char, 16> lBuffer{};
    gCalls = 0;
    lFifo.Write("abc", 3, lCount, 0);
    std::printf("figure calls.write %d\n", gCalls.load());
    gCalls = 0;
    lFifo.Read(lBuffer.data(), 16, lCount, 0);
    std::printf("figure calls.read %d\n", gCalls.load());
    std::printf("figure calls.trip %.1f\n", CountTripCalls());
    KyPlatform::gSystem = cReal;
}

} // namespace

int main(int aCount, char** aArguments)
{
    if (aCount == 4)
    {
        return RunPeer(aArguments[1], aArguments[2], static_cast<DWORD_PTR>(std::stoi(aArguments[3])));
    }
    std::array<char, MAX_PATH> lProgram{};
    ::GetModuleFileNameA(nullptr, lProgram.data(), MAX_PATH);
    ReportCalls();
    const int lRepeats = aCount == 2 ? 1 : KyBench::cRepeats; // --quick
    KyBench::Figures lFigures;
    for (int lRepeat = 0; lRepeat < lRepeats; ++lRepeat)
    {
        for (const bool lSpread : {false, true})
        {
            for (const char* const lKind : {"event", "fifo1024", "fifo65536", "pipe"})
            {
                Measure(lFigures, lProgram.data(), lKind, lSpread);
            }
        }
        lFigures.Print(); // those so far, in case that the run is cut off
    }
    return 0;
}
