#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedfifo.h"
#include "sharedregistry.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>

using KySerialLib::SharedFifo;
using KySerialLib::SharedFifoHeader;
using KySerialLib::SharedRegistry;

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

/// echo NAME: sends back what comes, until a block begins with a NUL.
int Echo(const Arguments& aArguments)
{
    SharedFifo lDown(aArguments[1] + "Down", "Local\\", 1024, true);
    SharedFifo lUp(aArguments[1] + "Up", "Local\\", 1024, true);
    Say("ready");
    std::array<char, 700> lBuffer{};
    uint32_t lRead = 0;
    uint32_t lWritten = 0;
    while (lDown.Read(lBuffer.data(), lBuffer.size(), lRead, KyPlatform::cInfinite) && lBuffer[0] != '\0')
    {
        if (!lUp.Write(lBuffer.data(), lRead, lWritten, KyPlatform::cInfinite))
        {
            return 1;
        }
    }
    return 0;
}

/// hold NAME [WORD BYTES]: takes the lock of the FIFO, adds BYTES to the header's WORD without telling
/// anybody, and then does what it reads.
int Hold(const Arguments& aArguments)
{
    KyPlatform::NamedMutex lMutex;
    KyPlatform::SharedMemory lMemory;
    if (!lMutex.Open("Local\\" + aArguments[1] + "Mutex") ||
        !lMemory.Open("Local\\" + aArguments[1] + "Memory") ||
        lMutex.Wait(5000) != KyPlatform::WaitResult::Done)
    {
        return 1;
    }
    if (aArguments.size() > 3)
    {
        auto* const lWord = static_cast<uint32_t*>(lMemory.GetBase()) + std::stoi(aArguments[2]);
        *lWord += static_cast<uint32_t>(std::stoi(aArguments[3]));
    }
    Say("held");
    const std::string lOrder = Hear();
    if (lOrder == "exit")
    {
        std::_Exit(0);
    }
    if (lOrder == "release")
    {
        lMutex.Release();
        Say("released");
        Hear();
    }
    return 0;
}

/// survive NAME: makes the FIFO and uses it on command, which must not take long.
int Survive(const Arguments& aArguments)
{
    SharedFifo lFifo(aArguments[1], "Local\\", 1024, true);
    Say("ready");
    Hear();
    const auto lStart = std::chrono::steady_clock::now();
    std::array<char, 16> lBuffer{};
    uint32_t lCount = 0;
    const bool lDone =
        lFifo.Write("abc", 3, lCount, 0) && lFifo.Read(lBuffer.data(), 16, lCount, 0) && lCount == 3;
    const bool lAtOnce = std::chrono::steady_clock::now() - lStart < std::chrono::seconds(3);
    Say(lDone && lAtOnce ? "alive" : "stuck");
    return lDone && lAtOnce ? 0 : 1;
}

/// write NAME FIRST: writes counting bytes, the first is FIRST, in blocks of any size, until it is killed.
int WriteForEver(const Arguments& aArguments)
{
    SharedFifo lFifo(aArguments[1], "Local\\", 1024, false);
    std::mt19937 lRandom(std::random_device{}());
    auto lNext = static_cast<uint8_t>(std::stoi(aArguments[2]));
    Say("ready");
    std::array<uint8_t, 1500> lBlock{};
    uint32_t lWritten = 0;
    do
    {
        const auto lSize = static_cast<uint32_t>(1 + lRandom() % (lRandom() % 4 == 0 ? 1500 : 40));
        for (uint32_t lIndex = 0; lIndex < lSize; ++lIndex)
        {
            lBlock[lIndex] = lNext++;
        }
        lFifo.Write(lBlock.data(), lSize, lWritten, KyPlatform::cInfinite);
    } while (lFifo.IsValid());
    return 1;
}

/// read NAME: reads until it is killed.
int ReadForEver(const Arguments& aArguments)
{
    SharedFifo lFifo(aArguments[1], "Local\\", 1024, false);
    Say("ready");
    std::array<uint8_t, 300> lBlock{};
    uint32_t lRead = 0;
    while (lFifo.IsValid())
    {
        lFifo.Read(lBlock.data(), lBlock.size(), lRead, KyPlatform::cInfinite);
    }
    return 1;
}

/// serve TOKEN NAME: becomes the server of that name.
int Serve(const Arguments& aArguments)
{
    const PrivateSession lSession(aArguments[1]);
    SharedRegistry lRegistry(true);
    KyPlatform::NamedSemaphore lServer;
    KyPlatform::NamedSemaphore lClient;
    const bool lDone = lRegistry.AcquireServer(aArguments[2], lServer, lClient);
    Say(lDone && lRegistry.SetServerActive(aArguments[2], true) ? "serving" : "refused");
    if (Hear() == "end" && lDone)
    {
        SharedRegistry::ReleaseServer(lServer, lClient);
    }
    return 0;
}

/// use TOKEN NAME: becomes the client of that server.
int Use(const Arguments& aArguments)
{
    const PrivateSession lSession(aArguments[1]);
    SharedRegistry lRegistry(false);
    KyPlatform::NamedSemaphore lClient;
    Say(lRegistry.AcquireClient(aArguments[2], lClient) ? "using" : "refused");
    if (Hear() == "end" && lClient.IsValid())
    {
        SharedRegistry::ReleaseClient(lClient);
    }
    return 0;
}

} // namespace

int RunPeer(const std::vector<std::string>& aArguments)
{
    static const std::map<std::string, int (*)(const Arguments&)> cRoles = {
        {"echo", &Echo},        {"hold", &Hold},   {"survive", &Survive}, {"write", &WriteForEver},
        {"read", &ReadForEver}, {"serve", &Serve}, {"use", &Use}};
    return cRoles.at(aArguments.at(0))(aArguments);
}
