#include "Platform/Console.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

// The other half of ConsoleTest: a program that does one thing with its console and reports on the error
// output.

using KyToolPlatform::Console;

namespace
{

const char* Text(Console::ReadResult aResult)
{
    switch (aResult)
    {
    case Console::ReadResult::Data:
        return "data";
    case Console::ReadResult::End:
        return "end";
    case Console::ReadResult::TimedOut:
        return "timed out";
    default:
        return "interrupted";
    }
}

/// Copies the input to the output until something else than data comes, or until a 'q' when aRaw.
int Copy(Console& aConsole, bool aRaw)
{
    std::fputs("ready\n", stderr);
    for (;;)
    {
        uint8_t lBuffer[100];
        size_t lRead = 0;
        const Console::ReadResult lResult =
            aConsole.Read(lBuffer, sizeof(lBuffer), lRead, Console::cInfinite);
        if (lResult != Console::ReadResult::Data)
        {
            std::fputs(Text(lResult), stderr);
            return lRead == 0 ? 0 : 3;
        }
        if (!aConsole.Write(lBuffer, lRead))
        {
            return 4;
        }
        if (aRaw && lBuffer[lRead - 1] == 'q')
        {
            return 0;
        }
    }
}

int CopyRaw(Console& aConsole)
{
    // Twice: what is left for later is the mode before the first time.
    const bool lRaw = aConsole.EnterRawMode() && aConsole.EnterRawMode();
    std::fputs(lRaw ? "raw\n" : "not raw\n", stderr);
    if (Copy(aConsole, lRaw) != 0)
    {
        return 5;
    }
    aConsole.LeaveRawMode();
    std::fputs("left\n", stderr);
    return Copy(aConsole, false);
}

int ReadOnce(Console& aConsole, uint32_t aTimeout)
{
    uint8_t lByte = 0;
    size_t lRead = 7;
    const Console::ReadResult lResult = aConsole.Read(&lByte, 1, lRead, aTimeout);
    std::fprintf(stderr, "%s %u %s", Text(lResult), static_cast<unsigned>(lRead),
                 aConsole.IsInterrupted() ? "yes" : "no");
    return 0;
}

/// Waits for a request to end, without a look at the input.
int Await(Console& aConsole)
{
    const bool lEarly = aConsole.WaitForInterrupt(40);
    std::fputs(lEarly ? "early\n" : "ready\n", stderr);
    const bool lLate = aConsole.WaitForInterrupt(Console::cInfinite);
    std::fputs(lLate && aConsole.WaitForInterrupt(0) ? "interrupted" : "not interrupted", stderr);
    return 0;
}

int AwaitFromThread(Console& aConsole)
{
    std::thread lThread([&] { aConsole.Interrupt(); });
    const bool lInterrupted = aConsole.WaitForInterrupt(60000);
    lThread.join();
    std::fputs(lInterrupted ? "interrupted" : "not interrupted", stderr);
    return 0;
}

int InterruptFromThread(Console& aConsole)
{
    std::thread lThread([&] { aConsole.Interrupt(); });
    ReadOnce(aConsole, Console::cInfinite);
    lThread.join();
    return ReadOnce(aConsole, 0);
}

/// Writes until the output breaks.
int Flood(Console& aConsole)
{
    const std::vector<uint8_t> lData(100000, 'x');
    while (aConsole.Write(lData.data(), lData.size()))
    {
    }
    std::fputs("broken", stderr);
    return 0;
}

int Terminals()
{
    std::fprintf(stderr, "%d %d", Console::IsInputTerminal() ? 1 : 0, Console::IsOutputTerminal() ? 1 : 0);
    return 0;
}

} // namespace

int main(int aCount, char** aArguments)
{
    const std::string lWhat = aCount > 1 ? aArguments[1] : "";
    Console lConsole;
    if (lWhat == "copy")
    {
        return Copy(lConsole, false);
    }
    if (lWhat == "watch")
    {
        return lConsole.WatchInterrupts() ? Copy(lConsole, false) : 6;
    }
    if (lWhat == "await")
    {
        return lConsole.WatchInterrupts() ? Await(lConsole) : 6;
    }
    if (lWhat == "await thread")
    {
        return AwaitFromThread(lConsole);
    }
    if (lWhat == "raw")
    {
        return CopyRaw(lConsole);
    }
    if (lWhat == "timeout")
    {
        return ReadOnce(lConsole, 60);
    }
    if (lWhat == "interrupt")
    {
        return InterruptFromThread(lConsole);
    }
    if (lWhat == "flood")
    {
        return Flood(lConsole);
    }
    return Terminals();
}
