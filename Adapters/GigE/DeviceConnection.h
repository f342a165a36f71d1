#pragma once

#include "Adapters/GigE/Client/GvcpClient.h"
#include "Adapters/GigE/Evaluator/DeviceDescription.h"
#include "Adapters/GigE/EventSinks.h"
#include "Adapters/GigE/EventStore.h"
#include "Adapters/GigE/GenApi/INodeMap.h"
#include "Adapters/GigE/RegisterSpace.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KyGigE
{

/// What a connected device can be asked by name.
struct DeviceFeatures
{
    std::unique_ptr<RegisterSpace> mSpace; ///< Never null; of the connection that the features belong to.
    std::unique_ptr<DeviceDescription> mDescription;   ///< Null: it cannot be used.
    std::string mProblem;                              ///< Why it cannot; a sentence.
    std::unique_ptr<INodeMap> mMap;                    ///< Never null; without features then.
    std::map<uint16_t, std::vector<std::string>> mFed; ///< By event: the features that it feeds.
    /// "GevMACAddress" once it has been read; before, negative. It stays while the device is connected, and ports ask for it
    /// under a lock of the process: a device that does not answer would hold up the ports of all others.
    mutable std::atomic<int64_t> mMacAddress{-1};
};

/// The parts of an adapter put together: client, features, events.
///
/// Locks: that of the control channel is held during a command, that of the node map during an access to a
/// feature, which may take the channel's; all others are leaves. None is held while a sink is called, and the
/// way of an event takes neither of the two.
class DeviceConnection final
{
public:
    DeviceConnection(const DeviceAddress& aAddress, const ConnectionOptions& aOptions);
    ~DeviceConnection();
    DeviceConnection(const DeviceConnection&) = delete;
    DeviceConnection& operator=(const DeviceConnection&) = delete;

    /// Connects. \return As GvcpClient::Open().
    KyResult Open();

    GvcpClient& GetClient() { return mClient; }
    EventSinks& GetSinks() { return mSinks; }
    /// The features; never null after Open() has worked. A new connection makes new ones.
    std::shared_ptr<const DeviceFeatures> GetFeatures();

    /// Reports a feature that was written, and those that depend on it, on the event thread.
    void ReportWritten(const std::string& aName);
    /// To be called after a write that did not go through the features: they may have other values now.
    void NoteForeignWrite() { mForeignWrites.fetch_add(1, std::memory_order_relaxed); }
    /// Lets time pass for features that the device changes by itself: those that are due are read, and
    /// reported when they have changed.
    void PollFeatures(uint32_t aMilliseconds);
    /// Whether an address is that of the event which is being delivered on the calling thread.
    bool IsDelivering(uint64_t aAddress);

    /// Waits until the event thread has done everything that it has now.
    void WaitForEvents();

private:
    struct Polled
    {
        uint64_t mElapsed = 0;
        bool mKnown = false;
        std::string mValue;
    };

    KyResult LoadFeatures();
    KyResult Evaluate(std::string aFile, DeviceFeatures& aFeatures);
    void HandleEvent(const KyGvcp::EventView& aEvent);
    void Report(std::vector<std::string> aNames);
    void NotifyInvalidated(const std::string& aName);
    bool HasChanged(const DeviceFeatures& aFeatures, const std::string& aName, uint32_t aMilliseconds);

    std::atomic<uint64_t> mForeignWrites{0};
    EventStore mStore;
    EventSinks mSinks;
    JxUtilsLib::Mutex mFeaturesLock;
    std::shared_ptr<const DeviceFeatures> mFeatures JX_GUARDED_BY(mFeaturesLock);
    JxUtilsLib::Mutex mPollLock;
    std::map<std::string, Polled> mPolled JX_GUARDED_BY(mPollLock);
    GvcpClient mClient; // last: its threads use the others
};

} // namespace KyGigE
