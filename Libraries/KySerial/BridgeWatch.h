#pragma once

#include "BridgeAccount.h"
#include "JxUtilsLib/Mutex.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/IKySerialBridgeObserver.h"
#include "SerialPort.h"

#include <atomic>
#include <cstdint>

namespace KySerialLib
{

/// Whether a bridge's device is there, and the bridge's reports to the observer.
///
/// The device is away from the moment when it is found absent, or connected anew, until it has been set up
/// again. Each setup has a number: an absence that a thread has found during one setup does not count for
/// the next.
///
/// Threads: Begin() before all others; the rest by any.
class BridgeWatch final : public SerialPort::WriteMonitor
{
public:
    /// \param aDevice  Null: no device yet, which counts as there.
    void Begin(const KySerialBridgeOptions& aOptions, IKyDeviceAdapter* aDevice);

    /// Whether somebody wants to know of the device's absences.
    bool IsOn() const { return mOptions.mObserver != nullptr || mOptions.mReconnect; }
    bool HasObserver() const { return mOptions.mObserver != nullptr; }
    bool IsReconnecting() const { return mOptions.mReconnect; }

    /// The number of the device's connection; 0 when nobody numbers them.
    uint64_t GetGeneration() const;
    bool IsThere() const { return mDevice == nullptr || mDevice->IsConnected(); }

    /// The number of the present setup.
    uint64_t GetSetup() const { return mSetup; }
    /// Looks at the device. \return Whether it is away.
    bool LookForDevice();
    /// Whether the last look, or a write that failed, has found it away.
    bool IsAway() const { return mAway; }
    /// Whether bytes to the device are to be dropped: it is away, and the bridge waits for it.
    bool IsDropping() const;
    /// The same after a transfer has failed that began during aSetup: looks at the device.
    bool HasLost(uint64_t aSetup);
    /// The port has been set up in the connection of this number.
    void SetUp(uint64_t aGeneration);

    // Writes of the device port.
    bool MaySend() noexcept override { return !IsDropping(); }
    void Sent(const uint8_t* aBytes, uint32_t aCount) noexcept override;

    // Reports; each does nothing without an observer.
    void ReportTraffic(BridgeWay aWay, const uint8_t* aBytes, uint32_t aCount) noexcept;
    void ReportLoss(BridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes) noexcept;
    void ReportGone() noexcept;
    void ReportBack(uint64_t aLost) noexcept;
    void ReportSettings(const KySerialPortConfiguration& aSettings) noexcept;

private:
    template<typename Call>
    void Report(const Call& aCall) noexcept;
    bool IsSame(uint64_t aGeneration) const { return IsThere() && GetGeneration() == aGeneration; }

    KySerialBridgeOptions mOptions;
    IKyDeviceAdapter* mDevice = nullptr;  // not owned
    std::atomic<uint64_t> mGeneration{0}; // that the port is set up in
    std::atomic<bool> mAway{false};
    std::atomic<uint64_t> mSetup{0};
    JxUtilsLib::Mutex mMutex; // of changes
};

} // namespace KySerialLib
