// What the adapter for GigE Vision devices costs over the loop-back network, beside two threads that send
// each other plain datagrams, and beside Aravis, which reads the same camera's registers. Everything is in
// this process, on one processor and on all of them.
//   NetworkBenchmark [--quick]   "figure <name> <value>" lines, microseconds

#include "Benchmarks/Figures.h"
#include "Benchmarks/MakeDescription.h"
#include "JxUtilsLib/Event.h"
#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Network/NetworkCamera.h"

#include "Adapters/GigE/Client/ControlChannel.h"

#include <KyGigE/GigEDeviceAdapter.h>
#include <KySerial/DeviceProtocol.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <arpa/inet.h>
#include <array>
#include <arv.h>
#include <atomic>
#include <ctime>
#include <functional>
#include <optional>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KyDeviceProtocol;

namespace
{

constexpr uint32_t cLoopback = 0x7F000001;
constexpr int cWarmUp = 50;
constexpr const char* cTextFeature = "Uart0BaudRate"; // an enumeration on one register

using KyBench::Figures;
using KyBench::Require;

/// Runs aDo a few times before the measurement: the first times find nothing in the caches.
void MeasureWarm(Figures& aFigures, const std::string& aName, int aRounds, const std::function<void()>& aDo)
{
    for (int lRound = 0; lRound < cWarmUp; ++lRound)
    {
        aDo();
    }
    KyBench::Measure(aFigures, aName, aRounds, aDo);
}

/// The processors of the two sides. The system chooses anew in each run whether both sides share one, and a round trip
/// between two processors takes a multiple of one on a single processor: such runs cannot be compared.
constexpr int cHere = 0;
int gThere = 0;

void RunOn(int aProcessor)
{
    cpu_set_t lProcessors;
    CPU_ZERO(&lProcessors);
    CPU_SET(aProcessor, &lProcessors);
    ::sched_setaffinity(0, sizeof(lProcessors), &lProcessors); // the threads that follow inherit it
}

/// For its life the threads that the caller starts run on the camera's processor.
class CameraSide
{
public:
    CameraSide() { RunOn(gThere); }
    ~CameraSide() { RunOn(cHere); }
    CameraSide(const CameraSide&) = delete;
    CameraSide& operator=(const CameraSide&) = delete;
};

/// A datagram socket on the loop-back network, nothing around it.
class PlainSocket
{
public:
    PlainSocket() : mSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in lAny = GetAddress(0);
        Require(::bind(mSocket, reinterpret_cast<sockaddr*>(&lAny), sizeof lAny) == 0, "socket");
    }
    ~PlainSocket() { ::close(mSocket); }
    PlainSocket(const PlainSocket&) = delete;
    PlainSocket& operator=(const PlainSocket&) = delete;

    void ConnectTo(const PlainSocket& aOther) const
    {
        sockaddr_in lOther{};
        socklen_t lSize = sizeof lOther;
        Require(::getsockname(aOther.mSocket, reinterpret_cast<sockaddr*>(&lOther), &lSize) == 0 &&
                    ::connect(mSocket, reinterpret_cast<sockaddr*>(&lOther), sizeof lOther) == 0,
                "connection");
    }
    bool Send(const void* aData, size_t aSize) const
    {
        return ::send(mSocket, aData, aSize, 0) == static_cast<ssize_t>(aSize);
    }
    ssize_t Receive(void* aBuffer, size_t aSize) const { return ::recv(mSocket, aBuffer, aSize, 0); }

    /// Sends back one datagram with the calls that the simulated camera makes for a command: waits at four
    /// files, asks who has sent, and sends without being connected. \return Its size.
    ssize_t Answer(const PlainSocket& aOther, int aEvent, int aTimer) const
    {
        std::array<pollfd, 4> lPolls = {
            {{mSocket, POLLIN, 0}, {aOther.mSocket, POLLIN, 0}, {aEvent, POLLIN, 0}, {aTimer, POLLIN, 0}}};
        std::array<uint8_t, 64> lBuffer{};
        sockaddr_in lFrom{};
        socklen_t lSize = sizeof lFrom;
        auto* const lAddress = reinterpret_cast<sockaddr*>(&lFrom);
        Require(::ppoll(lPolls.data(), lPolls.size(), nullptr, nullptr) == 1, "wait");
        const ssize_t lCount = ::recvfrom(mSocket, lBuffer.data(), lBuffer.size(), 0, lAddress, &lSize);
        Require(::sendto(mSocket, lBuffer.data(), static_cast<size_t>(lCount), 0, lAddress, lSize) == lCount,
                "answer");
        return lCount;
    }

private:
    static sockaddr_in GetAddress(uint16_t aPort)
    {
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(aPort);
        lAddress.sin_addr.s_addr = htonl(cLoopback);
        return lAddress;
    }

    const int mSocket;
};

/// Sends sixteen bytes, as many as a register's read and its answer have, and takes them back.
void PingPong(Figures& aFigures, const std::string& aName, int aRounds, const PlainSocket& aHere)
{
    std::array<uint8_t, 64> lBuffer{};
    MeasureWarm(aFigures, aName, aRounds,
                [&]
                {
                    Require(aHere.Send(lBuffer.data(), 16) &&
                                aHere.Receive(lBuffer.data(), lBuffer.size()) == 16,
                            "ping-pong");
                });
    Require(aHere.Send(lBuffer.data(), 1), "end"); // one byte ends the echo
}

/// There and back with a send and a receive at each end.
void MeasureDatagrams(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    const PlainSocket lHere;
    const PlainSocket lThere;
    lHere.ConnectTo(lThere);
    lThere.ConnectTo(lHere);
    std::thread lEcho(
        [&lThere]
        {
            RunOn(gThere);
            std::array<uint8_t, 64> lBuffer{};
            for (ssize_t lSize = 16; lSize == 16;)
            {
                lSize = lThere.Receive(lBuffer.data(), lBuffer.size());
                Require(lThere.Send(lBuffer.data(), static_cast<size_t>(lSize)), "echo");
            }
        });
    PingPong(aFigures, aPrefix + "udp_us", aRounds, lHere);
    lEcho.join();
}

/// There and back with the calls that a register costs the adapter and the camera, and nothing else.
void MeasureCalls(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    const PlainSocket lHere;
    const PlainSocket lThere;
    const PlainSocket lOther;
    lHere.ConnectTo(lThere);
    const int lEvent = ::eventfd(0, EFD_CLOEXEC);
    const int lTimer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    Require(lEvent >= 0 && lTimer >= 0, "files");
    std::thread lEcho(
        [&]
        {
            RunOn(gThere);
            while (lThere.Answer(lOther, lEvent, lTimer) == 16)
            {
            }
        });
    PingPong(aFigures, aPrefix + "calls_us", aRounds, lHere);
    lEcho.join();
    ::close(lEvent);
    ::close(lTimer);
}

/// A camera whose line takes no time, at a place of its own.
class Camera
{
public:
    explicit Camera(const KyGvcp::Endpoint& aPlace, const KySimulator::NetworkForms& aForms = {})
        : mCamera(MakeModel(), {aPlace, false}, aForms)
    {
        mIsThere = mCamera.Start();
        mSide.reset();
    }
    ~Camera() { mCamera.Stop(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    bool IsThere() const { return mIsThere; }
    KySimulator::CameraModel& GetModel() const { return mCamera.GetCamera(); }
    uint16_t GetPort() { return mCamera.GetEndpoint().mPort; }

private:
    static std::shared_ptr<KySimulator::CameraModel> MakeModel()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        return std::make_shared<KySimulator::CameraModel>(lConfiguration);
    }

    std::optional<CameraSide> mSide{std::in_place}; // first: the camera's threads start after it
    KySimulator::NetworkCamera mCamera;
    bool mIsThere = false;
};

/// Notes when an event has come.
class Listener : public IKyDeviceEventSink
{
public:
    void NotifyEvent(uint16_t, uint16_t, uint64_t, uint64_t, const void*, uint32_t) override
    {
        mCount.fetch_add(1);
        mEvent.Set();
    }
    void NotifyFeatureInvalidated(const KyString*) override {}

    // Not with the wait of std::atomic: it offers the processor to others before it sleeps, which costs
    // milliseconds beside a program that computes.
    void WaitFor(uint32_t aCount)
    {
        while (mCount < aCount)
        {
            mEvent.Wait_ms(JxUtilsLib::Event::cInfinite);
        }
    }

private:
    std::atomic<uint32_t> mCount = 0;
    JxUtilsLib::Event mEvent{false};
};

void MeasureEvents(Figures& aFigures, const std::string& aPrefix, KyGigE::GigEDeviceAdapter& aAdapter,
                   KySimulator::CameraModel& aCamera, int aRounds)
{
    Listener lListener;
    Require(aAdapter.WriteRegister(cInterruptEnable, cUart1Receive).IsOK(), "interrupts");
    Require(aAdapter.RegisterEventSink(&lListener).IsOK(), "sink");
    uint32_t lExpected = 0;
    MeasureWarm(aFigures, aPrefix + "event_us", aRounds,
                [&]
                {
                    const uint8_t lByte = 'x';
                    aCamera.InjectBytes(KySimulator::Port::Uart1, &lByte, 1);
                    lListener.WaitFor(++lExpected);
                });
    Require(aAdapter.UnregisterEventSink(&lListener).IsOK(), "sink");
}

void MeasureAdapter(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    Camera lCamera({cLoopback, 0});
    Require(lCamera.IsThere(), "camera");
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    Require(KyGigE::GigEDeviceAdapter::Connect({"127.0.0.1", lCamera.GetPort(), ""}, lAdapter).IsOK(),
            "connection");
    uint32_t lValue = 0;
    MeasureWarm(aFigures, aPrefix + "read_us", aRounds,
                [&] { Require(lAdapter->ReadRegister(cFunctionCapabilities, lValue).IsOK(), "read"); });
    KyString lText;
    MeasureWarm(aFigures, aPrefix + "feature_us", aRounds,
                [&] { Require(lAdapter->GetFeatureAsString(cTextFeature, lText).IsOK(), "feature"); });
    MeasureWarm(aFigures, aPrefix + "write_us", aRounds,
                [&] { Require(lAdapter->WriteRegister(cInterruptEnable, 0).IsOK(), "write"); });
    MeasureEvents(aFigures, aPrefix, *lAdapter, lCamera.GetModel(), aRounds);
    KyDeviceSerialPort lPort;
    Require(lPort.Open(lAdapter.get(), KyDeviceSerialUart0).IsOK(), "port");
    MeasureWarm(aFigures, aPrefix + "uart_us", aRounds,
                [&]
                {
                    const uint8_t lByte = 'x';
                    uint32_t lWritten = 0;
                    Require(lPort.Write(&lByte, 1, lWritten).IsOK(), "byte");
                });
    Require(lPort.Close().IsOK(), "close");
}

/// Microseconds that the process has computed since.
double ProcessorTime(std::clock_t aBegin)
{
    return static_cast<double>(std::clock() - aBegin) * 1e6 / CLOCKS_PER_SEC;
}

/// What a connection to a device with a description of 1 MiB takes, and what reading it takes alone: processor time of
/// both ends, so that what else the machine does is no part of it.
void MeasureConnect(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    KySimulator::NetworkForms lForms;
    lForms.mDescription = KyBench::MakeDescription(size_t{1} << 20U);
    Camera lCamera({cLoopback, 0}, lForms);
    Require(lCamera.IsThere(), "camera");
    KyGigE::ControlChannel lChannel({200, 50, 1000});
    Require(lChannel.Open({cLoopback, lCamera.GetPort()}, 0).IsOK(), "channel");
    lChannel.Begin();
    std::vector<uint8_t> lBytes(lForms.mDescription.size());
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    std::vector<double> lConnections;
    std::vector<double> lReads;
    for (int lRound = 0; lRound < aRounds; ++lRound) // in turns: what else the machine does meets both
    {
        lAdapter.reset(); // giving the device back is no part of it
        std::clock_t lBegin = std::clock();
        Require(KyGigE::GigEDeviceAdapter::Connect({"127.0.0.1", lCamera.GetPort(), ""}, lAdapter).IsOK(),
                "connection");
        lConnections.push_back(ProcessorTime(lBegin));
        lBegin = std::clock();
        Require(
            lChannel.ReadMemory(KySimulator::RegisterMap::cDescription, lBytes.data(), lBytes.size()).IsOK(),
            "description");
        lReads.push_back(ProcessorTime(lBegin));
    }
    aFigures.Add(aPrefix + "connect_mib_us", KyBench::GetQuantile(lConnections, 0.5));
    aFigures.Add(aPrefix + "read_mib_us", KyBench::GetQuantile(lReads, 0.5));
}

/// Aravis knows one port only, so its camera has an address of its own.
struct AravisPlace
{
    uint32_t mAddress = 0x7F400000U + static_cast<uint32_t>(::getpid() % 60000) + 2;

    ArvDevice* Connect() const
    {
        GInetAddress* const lInterface = g_inet_address_new_from_string("127.0.0.1");
        GInetAddress* const lPlace = g_inet_address_new_from_string(KyGvcp::AddressText(mAddress).c_str());
        ArvDevice* const lDevice = arv_gv_device_new(lInterface, lPlace, nullptr);
        g_object_unref(lPlace);
        g_object_unref(lInterface);
        return lDevice;
    }
    KyGigE::DeviceAddress GetAddress() const
    {
        return {KyGvcp::AddressText(mAddress), KyGvcp::cControlPort, ""};
    }
};

/// Processor time of both ends for access, value and entries of each feature: the median of a few lists.
template<class List>
void MeasureList(Figures& aFigures, const std::string& aName, int aRounds, const List& aList)
{
    std::vector<double> lTimes;
    for (int lRound = 0; lRound < aRounds; ++lRound)
    {
        const std::clock_t lBegin = std::clock();
        aList();
        lTimes.push_back(ProcessorTime(lBegin));
    }
    aFigures.Add(aName, KyBench::GetQuantile(lTimes, 0.5));
}

void ListByAravis(ArvDevice* aDevice, const std::vector<std::string>& aNames)
{
    for (const std::string& lName : aNames)
    {
        ArvGcNode* const lNode = arv_device_get_feature(aDevice, lName.c_str());
        Require(lNode != nullptr && arv_device_is_feature_available(aDevice, lName.c_str(), nullptr) != 0 &&
                    arv_gc_feature_node_get_actual_access_mode(ARV_GC_FEATURE_NODE(lNode)) ==
                        ARV_GC_ACCESS_MODE_RW &&
                    arv_device_get_string_feature_value(aDevice, lName.c_str(), nullptr) != nullptr,
                "feature of Aravis");
        guint lCount = 0;
        g_free(arv_device_dup_available_enumeration_feature_values_as_strings(aDevice, lName.c_str(), &lCount,
                                                                              nullptr));
        Require(lCount == 6, "entries of Aravis");
    }
}

/// A list of 1,300 features, as users are shown it.
void MeasureLists(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    KySimulator::NetworkForms lForms;
    lForms.mDescription = KyBench::MakeDescription(1'900'000);
    const AravisPlace lPlace;
    Camera lCamera({lPlace.mAddress, KyGvcp::cControlPort}, lForms);
    if (!lCamera.IsThere())
    {
        return;
    }
    std::vector<std::string> lNames;
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lAdapter;
    Require(KyGigE::GigEDeviceAdapter::Connect(lPlace.GetAddress(), lAdapter).IsOK(), "connection");
    MeasureList(aFigures, aPrefix + "list_us", aRounds,
                [&]
                {
                    lNames.clear();
                    for (const KyGigE::FeatureReading& lReading : lAdapter->ReadFeatures())
                    {
                        Require(lReading.mValue == "Entry0" && lReading.mEntries.size() == 6, "feature");
                        lNames.push_back(lReading.mFeature.mName);
                    }
                });
    lAdapter.reset();
    ArvDevice* const lDevice = lPlace.Connect();
    Require(lDevice != nullptr, "connection of Aravis");
    Require(lNames.size() >= 1300, "list");
    MeasureList(aFigures, aPrefix + "aravis_list_us", aRounds, [&] { ListByAravis(lDevice, lNames); });
    g_object_unref(lDevice);
}

void MeasureAravis(Figures& aFigures, const std::string& aPrefix, int aRounds)
{
    const AravisPlace lPlace;
    Camera lCamera({lPlace.mAddress, KyGvcp::cControlPort});
    if (!lCamera.IsThere())
    {
        return; // without the address there are no figures
    }
    ArvDevice* const lDevice = lPlace.Connect();
    if (lDevice != nullptr)
    {
        guint32 lValue = 0;
        MeasureWarm(aFigures, aPrefix + "aravis_us", aRounds,
                    [&] {
                        Require(arv_device_read_register(lDevice, cFunctionCapabilities, &lValue, nullptr) !=
                                    0,
                                "Aravis");
                    });
        MeasureWarm(aFigures, aPrefix + "aravis_feature_us", aRounds,
                    [&]
                    {
                        Require(arv_device_get_string_feature_value(lDevice, cTextFeature, nullptr) !=
                                    nullptr,
                                "feature of Aravis");
                    });
        g_object_unref(lDevice);
    }
}

int FindOtherProcessor()
{
    cpu_set_t lAll;
    CPU_ZERO(&lAll);
    ::sched_getaffinity(0, sizeof(lAll), &lAll);
    for (int lProcessor = cHere + 1; lProcessor < CPU_SETSIZE; ++lProcessor)
    {
        if (CPU_ISSET(lProcessor, &lAll))
        {
            return lProcessor;
        }
    }
    return cHere;
}

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    const int lRounds = aCount > 1 ? 300 : 1500;
    const int lOther = FindOtherProcessor();
    Figures lFigures;
    for (int lRepeat = 0; lRepeat < (aCount > 1 ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        for (const bool lSpread : {false, true})
        {
            gThere = lSpread ? lOther : cHere;
            RunOn(cHere);
            const std::string lPrefix = lSpread ? "spread.net." : "one.net.";
            MeasureDatagrams(lFigures, lPrefix, lRounds);
            MeasureCalls(lFigures, lPrefix, lRounds);
            MeasureAdapter(lFigures, lPrefix, lRounds);
            MeasureAravis(lFigures, lPrefix, lRounds);
            MeasureConnect(lFigures, lPrefix, aCount > 1 ? 3 : 11);
            MeasureLists(lFigures, lPrefix, 3);
        }
    }
    lFigures.Print();
    return 0;
}
