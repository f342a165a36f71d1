#pragma once

#include "HandleTable.h"
#include "JxUtilsLib/Condition.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerialC/Device.h"

#include <map>
#include <memory>
#include <utility>

namespace KySerialCLib
{

/// Passes an adapter's events on to one device of the C interface.
class EventForwarder final : public IKyDeviceEventSink
{
public:
    explicit EventForwarder(KyDeviceHandle aDevice) : mDevice(aDevice) {}

    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;
    void NotifyFeatureInvalidated(const KyString* aName) override;

private:
    const KyDeviceHandle mDevice;
};

/// A camera that a library of ours offers to C programs as a KyAdapter: an adapter behind a handle. Ended by
/// Stop(), on the thread that ends it: the adapter's own thread may be the last to let the object go, and could
/// not wait for itself.
class AdapterObject
{
public:
    /// \param aAdapter  Not null; nobody else keeps it. Shared only because a shared pointer knows how to delete an
    ///                  object whose interface has no public destructor.
    explicit AdapterObject(std::shared_ptr<IKyDeviceAdapter> aAdapter) : mAdapter(std::move(aAdapter)) {}
    virtual ~AdapterObject() = default;
    AdapterObject(const AdapterObject&) = delete;
    AdapterObject& operator=(const AdapterObject&) = delete;

    /// Only between Enter() and Leave().
    IKyDeviceAdapter& Adapter() { return *mAdapter; }

    /// Reports events to a device too, from now on.
    KyResult ReportTo(KyDeviceHandle aDevice);

    /// Begins a call. \return False: the camera has ended.
    bool Enter();
    void Leave();
    /// Waits for all calls and ends the adapter.
    void Stop();

private:
    JxUtilsLib::Mutex mLock;
    JxUtilsLib::Condition mLeft;
    uint32_t mCalls JX_GUARDED_BY(mLock) = 0;
    bool mStopped JX_GUARDED_BY(mLock) = false;
    std::map<KyDeviceHandle, EventForwarder> mForwarders JX_GUARDED_BY(mLock); // outlive the adapter
    std::shared_ptr<IKyDeviceAdapter> mAdapter;
};

/// Every camera of the library, under handles of its kind; never destroyed. Each library that uses this code
/// defines it.
HandleTable<AdapterObject>& AdapterObjects();

/// A camera for the time of one call.
class AdapterObjectCall
{
public:
    explicit AdapterObjectCall(uint64_t aHandle);
    ~AdapterObjectCall();
    AdapterObjectCall(const AdapterObjectCall&) = delete;
    AdapterObjectCall& operator=(const AdapterObjectCall&) = delete;

    /// Null: no such camera.
    AdapterObject* Get() const { return mObject.get(); }
    /// Whether the calling thread is inside a call of this kind, or reports an event.
    static bool IsRunning();

private:
    std::shared_ptr<AdapterObject> mObject;
};

/// Sets the thread's text to a result's. \return Its code.
KyCode FinishCall(const KyResult& aResult) noexcept;

} // namespace KySerialCLib
