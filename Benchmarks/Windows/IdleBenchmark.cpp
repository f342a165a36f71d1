// Bridges that have nothing to do, and then send back what comes: IdleBenchmark SECONDS COM30 COM31 ...
// It says "idle" when the first time begins and "echo" when the second one does.

#include "Benchmarks/Figures.h"
#include "Benchmarks/LoopDevice.h"
#include "KyPlatform/Windows/SystemCalls.h"
#include "KySerial/KySerialBridge.h"

#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

double GetOwnCpu()
{
    FILETIME lIgnored{};
    FILETIME lKernel{};
    FILETIME lUser{};
    ::GetProcessTimes(::GetCurrentProcess(), &lIgnored, &lIgnored, &lKernel, &lUser);
    return static_cast<double>(lKernel.dwLowDateTime + lUser.dwLowDateTime) * 1e-7;
}

constexpr DWORD cEchoTime = 2500;

struct Served
{
    std::unique_ptr<KyBench::LoopDevice> mDevice;
    std::unique_ptr<KySerialBridge> mBridge = std::make_unique<KySerialBridge>();
};

} // namespace

int main(int aCount, char** aArguments)
{
    if (aCount < 3)
    {
        return 2;
    }
    std::vector<Served> lServed;
    for (int lIndex = 2; lIndex < aCount; ++lIndex)
    {
        lServed.push_back({std::make_unique<KyBench::LoopDevice>(0x100000 + lIndex)});
        const KyResult lResult = lServed.back().mBridge->Start(
            KyString(aArguments[lIndex]), KySerialPortConfiguration(115200, KyParityNone, 8, 1),
            lServed.back().mDevice.get(), KyDeviceSerialBulk1);
        if (!lResult.IsOK())
        {
            std::fprintf(stderr, "%s: %s\n", aArguments[lIndex], lResult.GetDescription().GetAscii());
            return 1;
        }
    }
    std::printf("idle\n");
    std::fflush(stdout);
    const double lBefore = GetOwnCpu();
    const auto lStart = KyBench::Clock::now();
    ::Sleep(static_cast<DWORD>(std::atoi(aArguments[1])) * 1000);
    std::printf("figure idle%zu.cpu_percent %.3f\n", lServed.size(),
                (GetOwnCpu() - lBefore) / KyBench::GetSeconds(lStart) * 100);
    std::printf("echo\n");
    std::fflush(stdout);
    ::Sleep(cEchoTime);
    const auto lStop = KyBench::Clock::now();
    for (const Served& lOne : lServed)
    {
        static_cast<void>(lOne.mBridge->Stop());
    }
    std::printf("figure idle%zu.stop_all_ms %.1f\n", lServed.size(), KyBench::GetSeconds(lStop) * 1000);
    return 0;
}
