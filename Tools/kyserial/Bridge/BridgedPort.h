#pragma once

#include "kyserial/Bridge/BridgeStatistics.h"
#include "kyserial/Bridge/HostSelection.h"
#include "kyserial/Bridge/PtyHost.h"
#include "kyserial/Device/DeviceSelector.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Serve/Status/RecentTraffic.h"
#include "kyserial/Serve/Tcp/Network.h"
#include "kyserial/Terminal/TerminalLink.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KySerial/KySerialBridge.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Which port of a device becomes what on the host.
struct BridgeSelection
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    HostSelection mHost{};
    LineSelection mLine{};
    std::string mLogFile{}; ///< Empty: none.
    TrafficLog::Limit mLogLimit{};
    bool mReconnect = false; ///< Goes on when a device that was away is back.
};

/// A port of a device and its host side, from start to end; says nothing to anybody.
///
/// Threads: one; GetCounts() and GetTcpCounts() also by others until End().
class BridgedPort final : private IKySerialBridgeObserver
{
public:
    /// The device has gone, or is back after that many bytes to it were lost.
    struct DeviceChange
    {
        bool mIsBack;
        uint64_t mLost;
    };

    /// Starts the bridge. Throws OperationError when that fails. The arguments must outlive the object.
    /// \param aRecent  Receives what passes; may be null.
    BridgedPort(const BridgeSelection& aSelection, Device& aDevice, Network& aNetwork, TrafficLog& aLog,
                RecentTraffic* aRecent = nullptr);
    ~BridgedPort();
    BridgedPort(const BridgedPort&) = delete;
    BridgedPort& operator=(const BridgedPort&) = delete;

    /// Ends it; the device has its settings back then, and the counts are final. Harmless when it has ended.
    void End();

    /// Sends bytes to the device beside the host side's, which is one over TCP. Does not block; any thread until End().
    /// \return False: too many wait already, or the host side is another one; none is sent.
    bool Insert(const std::string& aBytes);

    BridgeCounts GetCounts() const;
    /// Of TCP; nothing for other host sides.
    std::optional<TcpCounts> GetTcpCounts() const;
    /// What has happened to the device since the last call.
    std::vector<DeviceChange> TakeChanges();
    /// What has begun at the host side since the last call; see TcpHost::TakeNews().
    std::vector<std::string> TakeNews();
    /// The line settings that the device port has got, "9600 8N1"; empty when nobody has set any.
    std::string GetLine() const;
    /// The host side as it is reached: a TCP port that was chosen freely has its number.
    std::string GetHost() const;
    /// When bytes passed last, seconds since 1970; 0: never.
    int64_t GetLastTraffic() const { return mLastTraffic; }

private:
    void NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes,
                       uint32_t aCount) override;
    void NotifyDeviceGone() override { AddChange({false, 0}); }
    void NotifyDeviceBack(uint64_t aLost) override { AddChange({true, aLost}); }
    void NotifySettings(const KySerialPortConfiguration& aSettings) override;
    void AddChange(const DeviceChange& aChange);

    void Start(Network& aNetwork);
    void StartClser();
    void StartTcp(Network& aNetwork);
    void StartPty();
    void StartHost(IKySerialBridgeHost& aHost);
    void StartHostPort();
    KySerialPortConfiguration GetLineOfHostPort() const;
    KySerialBridgeOptions GetOptions();
    BridgeLedger GetLedgerToDevice() const;
    BridgeLedger GetLedgerFromDevice(uint64_t& aBytes) const;

    const BridgeSelection mSelection;
    Device& mDevice;
    TrafficLog& mLog;
    RecentTraffic* const mRecent;
    mutable JxUtilsLib::Mutex mLock;
    std::vector<DeviceChange> mChanges JX_GUARDED_BY(mLock); // since the last TakeChanges()
    std::string mLine JX_GUARDED_BY(mLock);
    std::atomic<int64_t> mLastTraffic{0};
    // Destroyed from the last to the first: the link goes, then the bridge ends, then its host side.
    std::optional<PtyHost> mPty{};
    std::optional<TcpHost> mTcp{};
    KySerialBridge mBridge{};
    std::optional<TerminalLink> mLink{};
    bool mEnded = false;
    KySerialBridgeFlow mFinalToDevice{}; // once it has ended, like the next two
    KySerialBridgeFlow mFinalFromDevice{};
    uint32_t mFinalBaudRate = 0;
    std::atomic<bool> mConnected{true};
    std::atomic<uint64_t> mReconnections{0};
};

} // namespace KySerialTool
