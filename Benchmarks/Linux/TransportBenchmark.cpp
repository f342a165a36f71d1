#include "Benchmarks/Linux/Channels.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;
using Maker = std::function<std::unique_ptr<Channel>()>;

constexpr std::array<size_t, 5> cSizes = {1, 16, 256, 4096, 16384};
constexpr int cRepeats = 5;

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
double MeasureRoundTrip(const Maker& aMake, bool aSpread)
{
    constexpr int cTurns = 4000;
    const auto lDown = aMake();
    const auto lUp = aMake();
    char lByte = 'x';
    const auto lEcho = [&]
    {
        for (int lTurn = 0; lTurn < cTurns; ++lTurn)
        {
            lDown->Receive(&lByte, 1);
            lUp->Send(&lByte, 1);
        }
    };
    const auto lAsk = [&]
    {
        for (int lTurn = 0; lTurn < cTurns; ++lTurn)
        {
            lDown->Send(&lByte, 1);
            lUp->Receive(&lByte, 1);
        }
    };
    return Time(aSpread, lEcho, lAsk) / cTurns * 1e6;
}

/// Megabytes a second of messages of one size.
double MeasureThroughput(const Maker& aMake, size_t aSize, bool aSpread)
{
    const size_t lCount = std::clamp<size_t>(8U * 1024 * 1024 / aSize, 1000, 20000);
    const auto lDown = aMake();
    const auto lUp = aMake();
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

/// One line of the report: the round trip, then one figure for each size of message.
struct Line
{
    const char* mName;
    Maker mMake;
    bool mCarriesData;
    std::array<std::vector<double>, 1 + cSizes.size()> mFigures;
};

void Measure(Line& aLine, bool aSpread)
{
    aLine.mFigures[0].push_back(MeasureRoundTrip(aLine.mMake, aSpread));
    for (size_t lIndex = 0; aLine.mCarriesData && lIndex < cSizes.size(); ++lIndex)
    {
        aLine.mFigures[lIndex + 1].push_back(MeasureThroughput(aLine.mMake, cSizes[lIndex], aSpread));
    }
}

/// Prints the medians.
void Report(Line& aLine, bool aSpread)
{
    std::printf("%-24s %-7s", aLine.mName, aSpread ? "spread" : "one");
    for (std::vector<double>& lFigures : aLine.mFigures)
    {
        std::sort(lFigures.begin(), lFigures.end());
        if (!lFigures.empty())
        {
            std::printf(" %8.2f", lFigures[lFigures.size() / 2]);
        }
    }
    std::printf("\n");
    std::fflush(stdout);
}

std::vector<Line> GetLines()
{
    std::vector<Line> lLines;
    lLines.push_back({"futex ping-pong", &MakeFutex, false, {}});
    lLines.push_back({"SharedFifo 1024", [] { return MakeFifo(1024); }, true, {}});
    lLines.push_back({"SharedFifo 65536", [] { return MakeFifo(65536); }, true, {}});
    lLines.push_back({"pipe", &MakePipe, true, {}});
    lLines.push_back({"AF_UNIX stream", &MakeUnixStream, true, {}});
    if (MakeBoostQueue(1, 1) != nullptr)
    {
        lLines.push_back({"boost message_queue", [] { return MakeBoostQueue(16384, 64); }, true, {}});
    }
    return lLines;
}

} // namespace

int main()
{
    std::printf("%-24s %-7s %8s %8s %8s %8s %8s %8s\n", "", "cores", "trip/us", "1 B", "16 B", "256 B",
                "4096 B", "16384 B");
    for (const bool lSpread : {false, true})
    {
        // Turn by turn, so that a load from elsewhere hits all of them alike.
        std::vector<Line> lLines = GetLines();
        for (int lRepeat = 0; lRepeat < cRepeats; ++lRepeat)
        {
            for (Line& lLine : lLines)
            {
                Measure(lLine, lSpread);
            }
        }
        for (Line& lLine : lLines)
        {
            Report(lLine, lSpread);
        }
    }
    return 0;
}
