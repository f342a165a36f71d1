// The program: the tests, or with --peer one of the processes that they start.

#include "KyPlatform/NamedMutex.h"
#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/TextFifo.h"
#include "sharedregistry.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>

using KySerialLib::SharedRegistry;
using KyTest::TextFifo;

namespace
{

using Arguments = std::vector<std::string>;

void Say(const std::string& aLine)
{
    std::cout << aLine << std::endl;
}

std::string Hear()
{
    std::string lLine;
    std::getline(std::cin, lLine);
    while (!lLine.empty() && lLine.back() == '\r')
    {
        lLine.pop_back();
    }
    return lLine;
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
    Hear();
    std::_Exit(0);
}

/// survive NAME: makes the FIFO and uses it on command, which must not take long.
int Survive(const Arguments& aArguments)
{
    TextFifo lFifo(aArguments[1]);
    Say("ready");
    Hear();
    const auto lStart = std::chrono::steady_clock::now();
    const bool lDone = lFifo.Write("abc") && lFifo.Read() == "abc";
    const bool lAtOnce = std::chrono::steady_clock::now() - lStart < std::chrono::seconds(3);
    Say(lDone && lAtOnce ? "alive" : "stuck");
    return lDone && lAtOnce ? 0 : 1;
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

/// serve TOKEN NAME, or use TOKEN NAME: becomes the server of that name or its client.
int TakePlace(const Arguments& aArguments)
{
    const PrivateSession lSession(aArguments[1]);
    const bool lServes = aArguments[0] == "serve";
    SharedRegistry lRegistry(lServes);
    KyPlatform::NamedSemaphore lServer;
    KyPlatform::NamedSemaphore lClient;
    const bool lDone = lServes ? lRegistry.AcquireServer(aArguments[2], lServer, lClient) &&
                                     lRegistry.SetServerActive(aArguments[2], true)
                               : lRegistry.AcquireClient(aArguments[2], lClient);
    Say(lDone ? "has the place" : "refused");
    if (Hear() == "end" && lDone)
    {
        lServes ? SharedRegistry::ReleaseServer(lServer, lClient) : SharedRegistry::ReleaseClient(lClient);
    }
    return 0;
}

} // namespace

int main(int aCount, char** aArguments)
{
    static const std::map<std::string, int (*)(const Arguments&)> cRoles = {
        {"hold", &Hold},        {"survive", &Survive}, {"write", &WriteForEver},
        {"read", &ReadForEver}, {"serve", &TakePlace}, {"use", &TakePlace}};
    const Arguments lArguments(aArguments + 1, aArguments + aCount);
    if (!lArguments.empty() && lArguments[0] == "--peer")
    {
        return cRoles.at(lArguments.at(1))({lArguments.begin() + 1, lArguments.end()});
    }
    testing::InitGoogleTest(&aCount, aArguments);
    return RUN_ALL_TESTS();
}
