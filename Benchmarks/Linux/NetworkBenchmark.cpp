// What the adapter for GigE Vision devices costs over the loop-back network, beside two threads that send
// each other plain datagrams. Both ends run in this process.

#include "Adapters/GigE/Gvcp/UdpSocket.h"
#include "Simulator/CameraModel.h"
#include "Simulator/Network/NetworkCamera.h"

#include <KyGigE/GigEDeviceAdapter.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;
using KyGvcp::Endpoint;
using KyGvcp::UdpSocket;

constexpr int cWarmUp = 200;

void Require(bool aGood, const char* aWhat)
{
    if (!aGood)
    {
        std::fprintf(stderr, "%s failed\n", aWhat);
        std::abort(); // figures of half a run are worth nothing
    }
}

/// Runs aDo many times and prints median, 99th percentile and maximum in microseconds.
void Measure(const char* aName, int aRounds, const std::function<void()>& aDo)
{
    std::vector<double> lTimes;
    for (int lRound = -cWarmUp; lRound < aRounds; ++lRound)
    {
        const Clock::time_point lBegin = Clock::now();
        aDo();
        if (lRound >= 0)
        {
            lTimes.push_back(std::chrono::duration<double, std::micro>(Clock::now() - lBegin).count());
        }
    }
    std::sort(lTimes.begin(), lTimes.end());
    const auto lRank = [&](size_t aPercent) { return lTimes[(lTimes.size() - 1) * aPercent / 100]; };
    std::printf("%-42s %9.1f %9.1f %9.1f\n", aName, lRank(50), lRank(99), lTimes.back());
}

/// A thread that sends every datagram back.
class Echo
{
public:
    Echo()
    {
        Require(mSocket.Open({0x7F000001, 0}), "echo socket");
        mThread = std::thread([this] { Run(); });
    }
    ~Echo()
    {
        mStop = true;
        mWaker.Wake();
        mThread.join();
    }

    Endpoint GetLocal() const { return mSocket.GetLocal(); }

private:
    void Run()
    {
        std::array<uint8_t, 600> lBuffer{};
        while (!mStop)
        {
            size_t lSize = 0;
            Endpoint lFrom;
            if (mSocket.Receive(lBuffer, lSize, &lFrom, KyGvcp::cForever, &mWaker) ==
                KyGvcp::SocketResult::Done)
            {
                static_cast<void>(mSocket.SendTo(lFrom, {lBuffer.data(), lSize}));
            }
        }
    }

    UdpSocket mSocket;
    KyGvcp::Waker mWaker;
    std::atomic<bool> mStop = false;
    std::thread mThread;
};

void MeasureDatagrams(size_t aSize, const char* aName, int aRounds)
{
    const Echo lEcho;
    UdpSocket lSocket;
    Require(lSocket.Open({0x7F000001, 0}) && lSocket.Connect(lEcho.GetLocal()), "socket");
    std::array<uint8_t, 600> lBuffer{};
    Measure(aName, aRounds,
            [&]
            {
                size_t lSize = 0;
                static_cast<void>(lSocket.Send({lBuffer.data(), aSize}));
                Require(lSocket.Receive(lBuffer, lSize, nullptr, std::chrono::seconds(5)) ==
                            KyGvcp::SocketResult::Done,
                        "ping-pong");
            });
}

/// Tells when an event has come.
class Listener : public IKyDeviceEventSink
{
public:
    void NotifyEvent(uint16_t, uint16_t, uint64_t, uint64_t, const void*, uint32_t) override
    {
        mCount.fetch_add(1);
        mCount.notify_all();
    }
    void NotifyFeatureInvalidated(const KyString*) override {}

    void WaitFor(uint32_t aCount)
    {
        for (uint32_t lNow = mCount; lNow < aCount; lNow = mCount)
        {
            mCount.wait(lNow);
        }
    }

    std::atomic<uint32_t> mCount = 0;
};

void MeasureEvents(KyGigE::GigEDeviceAdapter& aAdapter, KySimulator::CameraModel& aCamera, int aRounds)
{
    constexpr uint32_t cInterruptEnable = 0xB838;
    constexpr uint32_t cUart1Receive = 0x8;
    Listener lListener;
    Require(aAdapter.WriteRegister(cInterruptEnable, cUart1Receive).IsOK(), "interrupts");
    Require(aAdapter.RegisterEventSink(&lListener).IsOK(), "sink");
    uint32_t lExpected = 0;
    Measure("byte on the camera's line until NotifyEvent", aRounds,
            [&]
            {
                const uint8_t lByte = 'x';
                aCamera.InjectBytes(KySimulator::Port::Uart1, &lByte, 1);
                lListener.WaitFor(++lExpected);
            });
    Require(aAdapter.UnregisterEventSink(&lListener).IsOK(), "sink");
}

void MeasureAdapter(int aRounds)
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mUnlimitedLineRate = true;
    const auto lModel = std::make_shared<KySimulator::CameraModel>(lConfiguration);
    KySimulator::NetworkCamera lCamera(lModel, {{0x7F000001, 0}, false});
    Require(lCamera.Start(), "camera");
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    Require(
        KyGigE::GigEDeviceAdapter::Connect({"127.0.0.1", lCamera.GetEndpoint().mPort, ""}, lAdapter).IsOK(),
        "connection");
    uint32_t lValue = 0;
    Measure("read a register", aRounds,
            [&] { Require(lAdapter->ReadRegister(0xB8FC, lValue).IsOK(), "read"); });
    Measure("write a register", aRounds,
            [&] { Require(lAdapter->WriteRegister(0xB838, 0).IsOK(), "write"); });
    KyString lText;
    Measure("read an enumeration feature as text", aRounds / 10,
            [&] { Require(lAdapter->GetFeatureAsString("BulkMode", lText).IsOK(), "feature"); });
    MeasureEvents(*lAdapter, *lModel, aRounds);
    KyDeviceSerialPort lPort;
    Require(lPort.Open(lAdapter.get(), KyDeviceSerialUart0).IsOK(), "port");
    Measure("UART byte: write until its transmit event", aRounds,
            [&]
            {
                const uint8_t lByte = 'x';
                uint32_t lWritten = 0;
                Require(lPort.Write(&lByte, 1, lWritten).IsOK(), "byte");
            });
    Require(lPort.Close().IsOK(), "close");
    lAdapter.reset();
    lCamera.Stop();
}

} // namespace

int main(int aCount, char** aArguments)
{
    const int lRounds = aCount > 1 ? std::max(std::atoi(aArguments[1]), 100) : 20000;
    std::printf("%-42s %9s %9s %9s\n", "microseconds", "median", "p99", "max");
    MeasureDatagrams(16, "16 bytes there and back, plain UDP", lRounds);
    MeasureDatagrams(548, "548 bytes there and back, plain UDP", lRounds);
    MeasureAdapter(lRounds);
    return 0;
}
