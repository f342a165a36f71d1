// The program: the tests, or with --peer one of the processes that they start.

#include "KyPlatform/NamedMutex.h"
#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/Support/TimeOf.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>

using KyTest::TextFifo;

namespace
{

using Arguments = std::vector<std::string>;

void Say(const std::string& aLine)
{
    std::cout << aLine << std::endl;
}

void AwaitLine()
{
    std::string lLine;
    std::getline(std::cin, lLine);
}

/// hold NAME: takes the lock of the FIFO, and ends with it when it reads a line.
int Hold(const Arguments& aArguments)
{
    KyPlatform::NamedMutex lMutex;
    if (!lMutex.Open("Local\\" + aArguments[1] + "Mutex") || !IsOwned(lMutex.Wait(5000)))
    {
        return 1;
    }
    Say("held");
    AwaitLine();
    std::_Exit(0);
}

/// survive NAME: makes the FIFO and uses it on command, which must not take long.
int Survive(const Arguments& aArguments)
{
    TextFifo lFifo(aArguments[1]);
    Say("ready");
    AwaitLine();
    bool lDone = false;
    const auto lTime = KyTest::TimeOf([&] { lDone = lFifo.Write("abc") && lFifo.Read() == "abc"; });
    lDone = lDone && lTime < std::chrono::seconds(3);
    Say(lDone ? "alive" : "stuck");
    return lDone ? 0 : 1;
}

/// write NAME FIRST: writes counting bytes, the first is FIRST, in blocks of any size, until it is killed.
int WriteForEver(const Arguments& aArguments)
{
    TextFifo lFifo(aArguments[1], 1024, false);
    std::mt19937 lRandom(std::random_device{}());
    auto lNext = static_cast<char>(std::stoi(aArguments[2]));
    Say("ready");
    while (lFifo.IsValid())
    {
        std::string lBlock = MakeBlock(lRandom);
        std::generate(lBlock.begin(), lBlock.end(), [&lNext] { return lNext++; });
        lFifo.Write(lBlock, KyPlatform::cInfinite);
    }
    return 1;
}

/// read NAME: reads until it is killed.
int ReadForEver(const Arguments& aArguments)
{
    TextFifo lFifo(aArguments[1], 1024, false);
    Say("ready");
    while (lFifo.IsValid())
    {
        lFifo.Read(300, KyPlatform::cInfinite);
    }
    return 1;
}

} // namespace

int main(int aCount, char** aArguments)
{
    static const std::map<std::string, int (*)(const Arguments&)> cRoles = {
        {"hold", &Hold}, {"survive", &Survive}, {"write", &WriteForEver}, {"read", &ReadForEver}};
    const Arguments lArguments(aArguments + 1, aArguments + aCount);
    if (!lArguments.empty() && lArguments[0] == "--peer")
    {
        return cRoles.at(lArguments.at(1))({lArguments.begin() + 1, lArguments.end()});
    }
    testing::InitGoogleTest(&aCount, aArguments);
    return RUN_ALL_TESTS();
}
