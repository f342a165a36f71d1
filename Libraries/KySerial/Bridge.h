#pragma once

#include "BridgeAccount.h"
#include "BridgeWatch.h"
#include "JxUtilsLib/Logger.h"
#include "JxUtilsLib/Mutex.h"
#include "KyPlatform/StopEvent.h"
#include "KyPlatform/WorkerThread.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "KySerial/KySerialPortConfiguration.h"
#include "SharedLock.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace KySerialLib
{

class FeatureSelectorScope;

/// What both kinds of bridges have in common: the device port, its settings in the device's features, and the
/// threads. Two threads relay bytes; a bridge with options has a third one, which watches for the device.
///
/// Order of calls: construct, SetOptions() if there are any, OpenDevicePort(), what the flavour opens, Start(), destroy. The flavours'
/// destructors call StopThreads() first, because the threads use the flavour's members; this one's restores
/// the device's settings.
///
/// Threads: one caller; GetBaudRate(), the statistics and Recover() also while the threads run, from
/// anywhere. The adapter must outlive the bridge.
class Bridge : public IKyDeviceEventSink
{
public:
    Bridge();
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    /// Do nothing: the device port has a sink of its own.
    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;
    void NotifyFeatureInvalidated(const KyString* aName) override;

    /// Restores the device's settings, closes the device port and lets go of the adapter. The threads must
    /// have ended.
    virtual ~Bridge();

    /// The rate last written to the device; the flavours give their own while there is none.
    virtual uint32_t GetBaudRate() const;
    /// Whether the flavour can use a rate that the device offers.
    virtual bool IsBaudRateSupported(uint32_t aBaudRate) const = 0;
    /// What the threads run; their argument is the Bridge.
    virtual KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const = 0;
    virtual KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const = 0;

    /// \param aOptions  Copied; see there. Before OpenDevicePort().
    void SetOptions(const KySerialBridgeOptions& aOptions) { mOptions = aOptions; }

    /// Opens the device port, finds its features and saves what they say.
    /// \return OK. UNSUPPORTED: the device does not offer the port. Others: as KyDeviceSerialPort::Open().
    KyResult OpenDevicePort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Starts the threads. \return OK; FAILURE: what was made already stays, the destructor undoes it.
    KyResult Start();

    /// Ends the threads. Harmless when none run. Blocks until they have ended: waits for the device port and
    /// a host port end at once, a write to the device ends early, waits for a FIFO end within 50 ms. Only a
    /// call of the adapter that does not return takes longer. Bytes that are cut off are counted.
    void StopThreads();

    /// Closes the device port and opens it again, for a device that was away.
    /// \return OK, whatever came of it; NOT_OPEN before OpenDevicePort().
    /// Blocks until the threads have left the device port.
    KyResult Recover();

    /// Finds the names of the port's features.
    void GetParameters();

    /// Save and restore the port's settings. Features that the device lacks, and single failures, are passed
    /// over. \return OK; UNSUPPORTED: the selector cannot be set.
    KyResult BackupPortConfig();
    KyResult RestorePortConfig();

    /// Finds out which rates the device offers and the flavour supports.
    /// \return OK. UNSUPPORTED: the selector cannot be set. NOT_READABLE: the device does not say.
    KyResult RefreshSupportedBaudRates();

    /// Writes the configuration to the device; single settings that fail are logged and passed over.
    /// \return OK. BAD_PARAMETER: the configuration is not valid. UNSUPPORTED: the selector cannot be set.
    KyResult ConfigurePort();

    /// Write one setting each, if the device has it and it differs.
    /// \param aForce  Asks the device even if the rate is the one written last.
    /// \return OK; UNSUPPORTED: the device refused, or there is no such setting.
    KyResult SyncBaudRate(bool aForce);
    KyResult SyncBulkMode();
    KyResult SyncParity();
    KyResult SyncStopBits();

    uint64_t GetBytesSentToDevice() const { return mStatistics.mBytesSentToDevice; }
    /// With bytes that the host has refused; without those that a stop has cut off.
    uint64_t GetBytesReceivedFromDevice() const { return mStatistics.mBytesReceivedFromDevice; }
    /// Transfers that a stop has cut off, and, in the flavour that counts them, transfers that failed.
    uint64_t GetTransferErrors() const { return mStatistics.mTransferErrors; }
    void ResetStatistics();

    /// What became of every byte of one way. Waits while Recover() runs.
    KySerialBridgeFlow GetFlow(BridgeWay aWay);

    /// Where Release() stores the final account; null: nowhere. The two must live until then.
    void SetFinalFlows(KySerialBridgeFlow* aToDevice, KySerialBridgeFlow* aFromDevice);

    /// Null before OpenDevicePort().
    KyDeviceSerialPort* GetPort() const { return mDevicePort.get(); }
    KyDeviceSerial GetDevicePortID() const { return mDevicePortID; }
    KySerialPortConfiguration GetConfiguration() const;
    uint32_t GetSupportedBaudRateCount() const { return static_cast<uint32_t>(mSupportedBaudRates.size()); }
    /// Past the end it is a broken assertion, and 0.
    uint32_t GetSupportedBaudRate(uint32_t aIndex) const;

protected:
    /// Restores the device's settings, lets go of the adapter, closes the device port and completes the
    /// account; what the stop has cut off is logged. The last step of each flavour's destructor: the adapter
    /// may call the object until then, and must not meet one that is half gone.
    void Release() noexcept;

    /// Everything that is counted, in bytes and transfers.
    struct Statistics
    {
        std::atomic<uint64_t> mBytesSentToDevice{0};
        std::atomic<uint64_t> mBytesReceivedFromDevice{0};
        std::atomic<uint64_t> mTransferErrors{0};
    };

    void SetConfiguration(const KySerialPortConfiguration& aConfiguration);

    /// The line settings that the device's features show; rate 0, parity -1 and stop bits 0 where they do not.
    KySerialPortConfiguration ReadDeviceSettings();

    /// The options that the bridge was given.
    const KySerialBridgeOptions& GetOptions() const { return mOptions; }

    /// Has the device's features speak of this port for the life of aScope.
    /// \return OK; UNSUPPORTED: the selector cannot be set.
    KyResult SetSelector(FeatureSelectorScope& aScope, const char* aFunction);

    /// Drops the bytes that wait in the device port; they count as cleared.
    void ClearReceived();

    /// The flavour ends the transfers of a host side that does not look at mStopEvent.
    virtual void EndHostTransfers() noexcept {}

    IKyDeviceAdapter* GetDevice() const { return mDevice; }

    /// From now on OpenDevicePort() points the device's bulk selector to the port first. Those flavours whose
    /// accesses device set-ups rely on leave that to the application.
    void SelectPortFirst() { mSelectsPort = true; }

    /// Reads from the device port for at most aTimeout milliseconds.
    /// \return Whether bytes came.
    bool ReadFromDevice(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, uint32_t aTimeout);

    /// Writes a block of the host to the device port, in one piece, and enters its bytes into the account.
    /// \return True: all were written, the threads are to stop, or the bridge waits for a device that is away.
    bool WriteToDevice(const uint8_t* aData, uint32_t aSize);

    /// Enters a block into the account that the device port gave and of which the host has taken aDelivered
    /// bytes.
    /// \return Bytes of it that a stop has cut off.
    uint32_t CountDelivery(uint32_t aSize, uint32_t aDelivered);

    /// Enters bytes of a block into the account that a stop has cut off; none is fine.
    void CutOff(BridgeWay aWay, uint32_t aLost);

    bool HasDevicePort() const { return mDevicePort != nullptr; }

    /// Whether bytes to the device are dropped because the bridge waits for it.
    bool IsDropping() const { return mWatch.IsDropping(); }

    /// Reports the settings that the device port has now.
    void ReportSettings();

    KyPlatform::WorkerThread mUpThread;
    KyPlatform::WorkerThread mDownThread;
    BridgeWatch mWatch;
    KyPlatform::WorkerThread mWatchThread;
    KyPlatform::StopEvent mStopEvent;
    std::atomic<bool> mStop{false};
    Statistics mStatistics;
    BridgeAccount mAccount;
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;

private:
    KyResult SelectPort(FeatureSelectorScope& aScope, KyDeviceSerial aPort);
    void Backup(const KyString& aFeature, KyString& aSaved);
    void Restore(const KyString& aFeature, KyString& aSaved);
    /// Selects the port, and hands each of its four features with the text that is saved of it to aDo.
    /// \return OK; or that the port could not be selected, and nothing was done.
    KyResult ForEachSaved(const char* aFunction, void (Bridge::*aDo)(const KyString&, KyString&));
    KyString FindFeature(const char* aPrefix, const char* aSuffix);
    void RegisterInterest(const KyString& aFeature);
    KyResult SyncSetting(const KyString& aFeature, const char* aEntry, const char* aFunction,
                         const char* aUnexpected);
    KyResult SetDeviceBaudRate(uint32_t aBaudRate, bool aForce);
    uint32_t SyncAll(uint32_t aBaudRate, bool aForce);
    bool ReopenDevicePort();
    void UseWriteMonitor();
    void UseLargeBuffer();
    void EndDeviceTransfers(bool aEnd);
    static uint32_t WatchThread(void* aBridge);
    void Watch();
    void TryToReconnect(uint64_t& aNextTry);
    KyResult Reconnect();
    void Lose(BridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes);
    uint64_t GetLostToDevice() const;
    void CountReceived(bool aIsEnd);
    void CloseAndSettle() noexcept;

    std::unique_ptr<KyDeviceSerialPort> mDevicePort;
    IKyDeviceAdapter* mDevice = nullptr; // not owned
    KyDeviceSerial mDevicePortID = KyDeviceSerialInvalid;
    mutable JxUtilsLib::Mutex mConfigurationMutex;
    KySerialPortConfiguration mConfiguration JX_GUARDED_BY(mConfigurationMutex);
    std::vector<uint32_t> mSupportedBaudRates;
    std::atomic<uint32_t> mDeviceBaudRate{0}; // as last written; 0: never
    std::atomic<uint32_t> mRefusedSettings{
        0}; // settings that the device refused when it was set up last, a bit for each
    KySerialBridgeOptions mOptions;
    SharedLock mGate;
    bool mReleased = false;
    bool mSelectsPort = false;
    KySerialBridgeFlow* mFinalToDevice = nullptr; // not owned; null: not wanted
    KySerialBridgeFlow* mFinalFromDevice = nullptr;

    // Names of features; empty: the device has none.
    KyString mBaudRateFeature;
    KyString mParityFeature;
    KyString mStopBitsFeature;
    KyString mBulkModeFeature;
    KyString mSelectorValue; // the entry that selects this port
    KyString mSelectorFeature;

    // What the features said before the bridge changed them.
    KyString mSavedBaudRate;
    KyString mSavedParity;
    KyString mSavedStopBits;
    KyString mSavedBulkMode;
};

} // namespace KySerialLib
