#pragma once

#include "HandleTable.h"
#include "JxUtilsLib/Condition.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KyUpstreamReports.h"
#include "KySerialC/Adapter.h"

#include <memory>
#include <thread>
#include <vector>

namespace KySerialCLib
{

/// An application's table of functions as the library's own adapter, and the way of its events to the sinks.
///
/// Threads: any. Reports come one after the other; no lock is held during a call into the application or into
/// a sink.
class DeviceAdapter final : public IKyDeviceAdapter
{
public:
    /// \param aAdapter  Checked by IsComplete(); copied as far as its size says.
    explicit DeviceAdapter(const KyAdapter& aAdapter);
    DeviceAdapter(const DeviceAdapter&) = delete;
    DeviceAdapter& operator=(const DeviceAdapter&) = delete;

    /// Whether the table is large enough and has what it must have.
    static bool IsComplete(const KyAdapter& aAdapter);

    /// Sets the handle that the application's functions receive. Before any call.
    void SetHandle(KyDeviceHandle aHandle) { mHandle = aHandle; }

    /// Keeps the device from being retired. \return False: it has been.
    bool Hold();
    /// Gives one Hold() back.
    void Release();

    /// Ends all calls into the application. Waits for reports of other threads.
    /// \return KY_WRONG_STATE: something holds the device. KY_INVALID_HANDLE: it has been retired already.
    KyCode Retire();

    /// Lets a device that has been retired reach its camera through another device of that camera, for as long as the
    /// object lives. One at a time; the other device is held meanwhile.
    class Loan
    {
    public:
        Loan(DeviceAdapter& aRetired, const DeviceAdapter& aOther);
        ~Loan() { mRetired.mAdapter = {}; }
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;

    private:
        DeviceAdapter& mRetired;
    };

    /// Reports an event to the sinks.
    /// \return KY_WRONG_STATE: from inside a report. KY_INVALID_HANDLE: retired.
    KyCode ReportEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                       const void* aData, uint32_t aDataLength);
    /// Reports a change to the sinks. Results as ReportEvent().
    KyCode ReportChange(const KyString& aName);

    void Reserved0() override {} // GCOVR_EXCL_LINE: a place that nobody calls
    bool IsIntegerFeatureAvailable(const KyString& aName) override;
    bool IsFeatureAvailable(const KyString& aName) override;
    void Reserved3() override {} // GCOVR_EXCL_LINE: a place that nobody calls
    bool IsRegisterFeatureAvailable(const KyString& aName) override;
    bool IsFeatureReadable(const KyString& aName) override;
    bool IsFeatureWritable(const KyString& aName) override;
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override;
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override;
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override;
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override;
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override;
    void Reserved12() override {} // GCOVR_EXCL_LINE: a place that nobody calls
    void Reserved13() override {} // GCOVR_EXCL_LINE: a place that nobody calls
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override;
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override;
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult RegisterFeatureInterest(const KyString& aName) override;
    KyResult UnregisterFeatureInterest(const KyString& aName) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;
    void Reserved23() override {} // GCOVR_EXCL_LINE: a place that nobody calls
    KyResult PostWrite(uint32_t aMilliseconds) override;
    bool IsConnected() override;
    bool IsKorvoVideoInterface() override;
    bool IsGigEVision() override;
    bool IsAlternateTransport() override;
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override;
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override;

private:
    template<typename Call>
    KyCode Report(const Call& aCall);
    bool RemoveSink(IKyDeviceEventSink* aSink);

    KyAdapter mAdapter;
    KyDeviceHandle mHandle = 0;
    KyUpstreamReports mUpstreamReports; // applications have a plain node map
    JxUtilsLib::Mutex mMutex;
    JxUtilsLib::Condition mChanged;
    std::vector<IKyDeviceEventSink*> mSinks JX_GUARDED_BY(mMutex);
    IKyDeviceEventSink* mCurrent JX_GUARDED_BY(mMutex) = nullptr; // being called
    std::thread::id mReporter JX_GUARDED_BY(mMutex);              // the thread that reports, if there is one
    uint32_t mHolds JX_GUARDED_BY(mMutex) = 0;
    bool mRetired JX_GUARDED_BY(mMutex) = false;
};

/// The process's devices. Like every table of handles it is never destroyed: at the process's end nothing is
/// closed, since the application's side of the adapters may be gone by then.
HandleTable<DeviceAdapter>& Devices();

/// Keeps a device for a port, bus or bridge that is open on it, or for the time of a question.
class DeviceReference
{
public:
    /// Holds nothing.
    DeviceReference() = default;
    /// Holds the device of that handle, if there is one.
    explicit DeviceReference(KyDeviceHandle aDevice);
    ~DeviceReference() { Reset(); }
    DeviceReference(DeviceReference&& aOther) noexcept = default;
    DeviceReference& operator=(DeviceReference&& aOther) noexcept;

    /// Null: holds nothing.
    DeviceAdapter* Get() const { return mDevice.get(); }
    const std::shared_ptr<DeviceAdapter>& GetShared() const { return mDevice; }
    void Reset();

private:
    std::shared_ptr<DeviceAdapter> mDevice;
};

} // namespace KySerialCLib
