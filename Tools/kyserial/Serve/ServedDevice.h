#pragma once

#include "kyserial/Bridge/BridgedPort.h"
#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/ServiceLog.h"
#include "kyserial/Serve/Status/RecentTraffic.h"

#include <KyPlatform/Deadline.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace KySerialTool
{

/// What a port does now.
struct ServedPortStatus
{
    std::string mPort{};
    std::string mHost{}; ///< As it is reached.
    bool mRuns = false;
    bool mTerminal = false; ///< The web page may send bytes to it.
    std::string mError{};   ///< Why it does not run.
    std::string mLine{};    ///< "9600 8N1"; empty when nobody has set any.
    int64_t mLastTraffic = 0;
    BridgeCounts mCounts{};
    std::optional<TcpCounts> mTcp{};
};

/// What a device does now.
struct ServedDeviceStatus
{
    std::string mName{};
    std::string mDevice{};
    bool mConnected = false;
    bool mStandby = false; ///< Another application controls it; this one takes over when that is gone.
    uint64_t mGeneration = 0;
    std::string mError{}; ///< Why it is not connected.
    std::vector<ServedPortStatus> mPorts{};
};

/// A device of the service and its ports. What may block, such as connecting, is done by a thread that the device has for as long as
/// there is something to do: one that does not answer holds no other one up, and one that works has no thread. What does not
/// work is tried again every two seconds; a device that another application controls, twice a second, so that this one takes over soon
/// after the other has gone.
///
/// Threads: any.
class ServedDevice
{
public:
    /// Starts to connect. The arguments but the first must outlive the object.
    ServedDevice(ServedDeviceEntry aEntry, const KyToolPlatform::Console& aConsole, Network& aNetwork,
                 ServiceLog& aLog);
    /// Ends it; blocks until the ports have ended and the device has its settings back.
    ~ServedDevice();
    ServedDevice(const ServedDevice&) = delete;
    ServedDevice& operator=(const ServedDevice&) = delete;

    const ServedDeviceEntry& GetEntry() const { return mEntry; }

    /// Sets which ports are to run, and the level. Ports that are the same as before go on undisturbed. Does not block.
    void Update(const ServedDeviceEntry& aEntry);

    /// Reports what has happened, and begins what is due. To be called every 50 ms or so; does not wait for the device.
    void Look();

    /// Asks it to end. Does not block.
    void AskToEnd();
    /// Whether it has ended, so that the destructor does not block.
    bool HasEnded() const { return mHasEnded; }

    ServedDeviceStatus GetStatus() const;
    /// What passed a port after its first aCount bytes (see RecentTraffic). \return Nothing: it does not run.
    std::optional<std::vector<TrafficBlock>> GetTraffic(const std::string& aPort, uint64_t aCount,
                                                        uint64_t& aNext) const;

    /// What became of bytes from the web page.
    enum class SendEnd
    {
        Sent,       ///< They wait for the device, in order with those of clients.
        NoPort,     ///< There is no such port, or it does not run.
        NotAllowed, ///< Its entry does not allow a terminal.
        Busy        ///< Too many wait for the device already; none is sent.
    };
    /// Sends bytes to the device's port beside its clients. Does not block.
    SendEnd Send(const std::string& aPort, const std::string& aBytes);

private:
    struct Port
    {
        ServedPortEntry mEntry{};
        TrafficLog mLog{};
        RecentTraffic mRecent{};
        std::optional<BridgedPort> mBridge{};
        std::string mError{};
    };
    using PortPtr = std::shared_ptr<Port>;

    void Say(LogLevel aLevel, const std::string& aText) const;
    void Say(LogLevel aLevel, const Port& aPort, const std::string& aText) const;
    void Ask();
    void StartWork();
    void Rest();
    void Work();
    bool WorkOnce();
    void Serve();
    void End();
    void Connect();
    std::string TryToConnect(bool& aStandby);
    void Adopt();
    void StartPorts();
    void Follow();
    std::string TryToStart(Port& aPort);
    PortPtr FindRunning(const std::string& aPort) const;
    bool IsComplete() const; // under mLock, and not while another thread is busy

    const ServedDeviceEntry mEntry;
    const KyToolPlatform::Console& mConsole;
    Network& mNetwork;
    ServiceLog& mLog;
    std::unique_ptr<Device> mDevice{}; // of the thread that is busy with the device
    std::atomic<bool> mStop{false};
    std::atomic<bool> mHasEnded{false};
    mutable std::mutex mLock;
    std::condition_variable mResting;
    bool mIsBusy = false; // some thread has the device and its ports for itself; under mLock, as all below
    bool mHasWork = false;
    KyPlatform::Deadline mNextTry{0};
    std::optional<std::vector<ServedPortEntry>> mWanted{}; // not adopted yet
    std::vector<PortPtr> mPorts{};                         // changed by the busy thread alone
    std::optional<LogLevel> mLevel{};
    std::string mError{};
    bool mConnected = false;
    bool mStandby = false;
    uint64_t mGeneration = 0;
    std::thread mWorker{}; // last: it uses the others
};

} // namespace KySerialTool
