#include "Benchmarks/Linux/RelaySubjects.h"

#include "Benchmarks/Linux/TerminalPair.h"
#include "Benchmarks/Linux/Usage.h"
#include "Benchmarks/LoopDevice.h"
#include "KySerial/KySerialBridge.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace KyBench
{

namespace
{

using Sender = std::function<void(const uint8_t*, uint32_t)>;

constexpr uint32_t cPacket = 512;
constexpr int cPacketsAtOnce = 8;

double GetThreadCpu()
{
    timespec lTime{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) * 1e-9;
}

void SendSlowly(Shared& aShared, const Sender& aSend)
{
    const uint8_t lByte = 'x';
    for (int lTurn = 0; lTurn < cSlowTurns; ++lTurn)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        aShared.mWhen = GetNanoseconds();
        aSend(&lByte, 1);
    }
}

/// Sends aCount packets of aSize bytes, aTurns times, one turn a period. What that costs besides the sending
/// goes into mOwnCpu.
void SendPaced(Shared& aShared, const Sender& aSend, int aTurns, std::chrono::nanoseconds aPeriod, int aCount,
               uint32_t aSize)
{
    const std::array<uint8_t, cPacket> lPacket{};
    const double lBegin = GetThreadCpu();
    double lSending = 0;
    auto lNext = std::chrono::steady_clock::now();
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lNext += aPeriod;
        std::this_thread::sleep_until(lNext);
        const double lBefore = GetThreadCpu();
        for (int lCount = 0; lCount < aCount; ++lCount)
        {
            aSend(lPacket.data(), aSize);
        }
        lSending += GetThreadCpu() - lBefore;
    }
    aShared.mOwnCpu = aShared.mOwnCpu + GetThreadCpu() - lBegin - lSending;
}

/// The device's process: carries out commands until its pipe is closed.
void RunDevice(int aOrders, Shared& aShared, std::atomic<bool>& aEcho, const Sender& aSend)
{
    char lOrder = 0;
    while (::read(aOrders, &lOrder, 1) == 1)
    {
        aEcho = lOrder == 'e';
        if (lOrder == 's')
        {
            SendSlowly(aShared, aSend);
        }
        if (lOrder == 'f')
        {
            SendPaced(aShared, aSend, cFastBytes / (size_t{cPacket} * cPacketsAtOnce),
                      std::chrono::milliseconds(2), cPacketsAtOnce, cPacket);
        }
        if (lOrder == 'l')
        {
            SendPaced(aShared, aSend, cStreamTurns, cStreamPeriod, 1, cStreamBytes);
        }
        --aShared.mBusy;
    }
}

pid_t Fork(const std::function<void()>& aRoutine)
{
    const pid_t lChild = ::fork();
    if (lChild == 0)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        aRoutine();
        ::_exit(0);
    }
    return lChild;
}

pid_t Run(std::vector<std::string> aCommand)
{
    return Fork(
        [&aCommand]
        {
            std::vector<char*> lArguments;
            lArguments.reserve(aCommand.size() + 1);
            for (std::string& lArgument : aCommand)
            {
                lArguments.push_back(lArgument.data());
            }
            lArguments.push_back(nullptr);
            ::execvp(lArguments[0], lArguments.data());
        });
}

class BridgeSubject : public Subject
{
public:
    BridgeSubject()
    {
        mDevice = mRelay = Fork(
            [this]
            {
                ::close(mOrders[1]);
                std::atomic<bool> lEcho{false};
                LoopDevice lDevice(1);
                KySerialBridge lBridge;
                lDevice.mOnData = [this, &lEcho, &lDevice](const uint8_t* aData, uint32_t aSize)
                {
                    mShared->mWhen = GetNanoseconds();
                    mShared->mReceived += aSize;
                    if (lEcho)
                    {
                        lDevice.Emit(aData, aSize);
                    }
                };
                static_cast<void>(lBridge.Start(KyString(mTerminal.GetPath().c_str()),
                                                KySerialPortConfiguration(115200, KyParityNone, 8, 1),
                                                &lDevice, KyDeviceSerialBulk1));
                RunDevice(mOrders[0], *mShared, lEcho,
                          [&lDevice](const uint8_t* aData, uint32_t aSize) { lDevice.Emit(aData, aSize); });
                static_cast<void>(lBridge.Stop());
            });
    }
    ~BridgeSubject() override { EndAll(); }
    int GetHostFile() const override { return mTerminal.GetEnd(); }

private:
    TerminalPair mTerminal;
};

/// A relay that has the device at another pseudo terminal.
class WireSubject : public Subject
{
protected:
    WireSubject()
    {
        mDevice = Fork(
            [this]
            {
                ::close(mOrders[1]);
                std::atomic<bool> lEcho{false};
                std::thread(
                    [this, &lEcho]
                    {
                        std::array<uint8_t, 4096> lBuffer;
                        for (;;)
                        {
                            const size_t lCount =
                                ReceiveSome(mWire.GetEnd(), lBuffer.data(), lBuffer.size(), -1);
                            mShared->mWhen = GetNanoseconds();
                            mShared->mReceived += static_cast<uint32_t>(lCount);
                            if (lEcho)
                            {
                                SendAll(mWire.GetEnd(), lBuffer.data(), lCount);
                            }
                        }
                    })
                    .detach();
                RunDevice(mOrders[0], *mShared, lEcho,
                          [this](const uint8_t* aData, uint32_t aSize)
                          { SendAll(mWire.GetEnd(), aData, aSize); });
            });
    }

    TerminalPair mWire;
};

class SocatSubject : public WireSubject
{
public:
    SocatSubject()
    {
        mRelay = Run({"socat", mTerminal.GetPath() + ",raw,echo=0", mWire.GetPath() + ",raw,echo=0"});
    }
    ~SocatSubject() override { EndAll(); }
    int GetHostFile() const override { return mTerminal.GetEnd(); }

private:
    TerminalPair mTerminal;
};

class Ser2netSubject : public WireSubject
{
public:
    Ser2netSubject()
    {
        const std::string lPort = std::to_string(20000 + ::getpid() % 10000);
        mRelay = Run({"ser2net", "-n", "-u", "-Y",
                      "connection: &con#  accepter: tcp,127.0.0.1," + lPort + "#  connector: serialdev," +
                          mWire.GetPath() + ",115200n81,local#"});
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(static_cast<uint16_t>(std::stoi(lPort)));
        lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int lTry = 0; lTry < 50; ++lTry)
        {
            mSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (::connect(mSocket, reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress) == 0)
            {
                const int lOn = 1;
                ::setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
                return;
            }
            ::close(mSocket);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        mSocket = -1;
    }
    ~Ser2netSubject() override
    {
        ::close(mSocket);
        EndAll();
    }
    int GetHostFile() const override { return mSocket; }

private:
    int mSocket = -1;
};

bool IsInstalled(const std::string& aProgram)
{
    return std::filesystem::exists("/usr/bin/" + aProgram) ||
           std::filesystem::exists("/usr/sbin/" + aProgram);
}

} // namespace

Subject::Subject()
    : mShared(new (::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                  Shared)
{
    if (::pipe2(mOrders, O_CLOEXEC) != 0)
    {
        throw std::runtime_error("no pipe");
    }
}

Subject::~Subject()
{
    ::close(mOrders[0]);
    ::munmap(mShared, sizeof(Shared));
}

/// To be called while the terminals are there.
void Subject::EndAll()
{
    ::close(mOrders[1]);
    ::waitpid(mDevice, nullptr, 0);
    if (mRelay != mDevice)
    {
        ::kill(mRelay, SIGTERM);
        ::waitpid(mRelay, nullptr, 0);
    }
}

double Subject::GetCpuOfRelay() const
{
    while (mShared->mBusy > 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return GetCpuOf(mRelay) - (mRelay == mDevice ? mShared->mOwnCpu.load() : 0);
}

double Subject::GetSleepsOfRelay() const
{
    return GetSleepsOf(mRelay);
}

void Subject::Tell(char aWhat) const
{
    ++mShared->mBusy;
    if (::write(mOrders[1], &aWhat, 1) != 1)
    {
        throw std::runtime_error("the device has gone");
    }
}

std::unique_ptr<Subject> Subject::Make(const std::string& aName)
{
    std::unique_ptr<Subject> lSubject;
    if (aName == "bridge")
    {
        lSubject = std::make_unique<BridgeSubject>();
    }
    else if (!IsInstalled(aName))
    {
        return nullptr;
    }
    else if (aName == "socat")
    {
        lSubject = std::make_unique<SocatSubject>();
    }
    else
    {
        lSubject = std::make_unique<Ser2netSubject>();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // what was started comes up
    return lSubject;
}

} // namespace KyBench
