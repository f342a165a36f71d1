#pragma once

#include <KyGigE/ConnectionOptions.h>
#include <KyGigE/DeviceAddress.h>
#include <KyGigE/DeviceInformation.h>
#include <KyGigE/Export.h>
#include <KySerial/IKyDeviceAdapter.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KyGigE
{

class DeviceConnection;
class INodeMap;
enum class NodeKind;

/// A feature as a list for users shows it.
struct FeatureEntry
{
    std::string mName;
    std::string mCategory;
    std::string mKind; ///< "Integer", "Float", "Boolean", "Enumeration", "String", "Register", "Command".
    std::string mVisibility; ///< "Beginner", "Expert", "Guru" or "Invisible".
    std::string mToolTip;
    bool mAvailable = false;
    bool mReadable = false;
    bool mWritable = false;
};

/// A feature with what it is now.
struct FeatureReading
{
    FeatureEntry mFeature;
    std::string mValue;                ///< As text; empty if it cannot be read now, and for a register.
    std::vector<std::string> mEntries; ///< What an enumeration can be set to now.
};

/// What passed through a connection.
struct ConnectionFigures
{
    uint64_t mLosses = 0;           ///< How often the connection was lost.
    uint64_t mRepeatedCommands = 0; ///< Packets that had to be sent again.
    uint64_t mRepeatedEvents = 0;   ///< Events that came again and were left out.
    uint64_t mForeignEvents = 0;    ///< Packets for the event channel that were not the device's.
};

/// A GigE Vision device on the network, as the serial library wants it.
///
/// Register and memory access and events go over a client of its own, GenICam features are evaluated by
/// an evaluator of its own. The application owns the object, gives it to ports, buses and bridges, and closes those before it
/// destroys the object.
///
/// Connection: the object takes control of the device when it is made and gives it back at its end. A device
/// that falls silent is noticed within two seconds: IsConnected() is false then and every operation returns
/// KyResult::NO_CONNECTION at once. When the device is back, the object connects again by itself (or at
/// Reconnect(), if that was switched off), and events flow again. What the application had written to the
/// device is not written again: ports that were open have to be closed and opened. A connection may be lost
/// and back between two looks at IsConnected(): compare GetGeneration().
///
/// Events come on a thread of the object's own, one call at a time, without any lock held. An event first
/// calls NotifyEvent() of each sink, then NotifyFeatureInvalidated() for each feature that it feeds and that
/// somebody has registered interest in. While these run, the event thread reads the features of this event as
/// it has them, and those of other events as empty; other threads read the last event of each kind. A feature
/// that is written is reported, and those that depend on it, whether or not the value changed.
///
/// Nothing throws: without memory for it an operation returns FAILURE, a question is answered with no, a list is empty, and
/// an event is left out. What the operation had written to the device by then stays written.
///
/// Threads: as IKyDeviceAdapter says; the destructor not from inside a sink.
///
/// Results: OK; NO_CONNECTION; statuses of GigE Vision (0x8001 and above) as the device sent them, and those
/// for features: 0x8001 no such feature, 0x8002 another kind or a value that does not fit, 0x8004 can only be
/// read, 0x8006 can only be written, or not now.
class KYGIGE_API GigEDeviceAdapter final : public IKyDeviceAdapter
{
public:
    /// Connects a device.
    /// \param aAdapter  Null on a failure.
    /// \return NO_CONNECTION: no device answers there, the system has not found the host of that name within 5 s, or
    ///         ConnectionOptions::mCancel has ended it. TIMED_OUT:
    ///         not within ConnectionOptions::mConnectLimit. 0x8006: another application controls it. FAILURE:
    ///         this computer has no such interface, or several devices have that address. Others: passed on
    ///         from the device, which is given back at once. Blocks: about a second when nobody answers.
    /// A device whose description cannot be used is connected, with a warning in the log: its registers and
    /// the ports that need no features work, and it has no features.
    static KyResult Connect(const DeviceAddress& aAddress, std::unique_ptr<GigEDeviceAdapter>& aAdapter);
    /// The same with other times than the usual ones.
    static KyResult Connect(const DeviceAddress& aAddress, const ConnectionOptions& aOptions,
                            std::unique_ptr<GigEDeviceAdapter>& aAdapter);
    /// Gives the device back. Blocks until a sink that is being called returns.
    virtual ~GigEDeviceAdapter();
    GigEDeviceAdapter(const GigEDeviceAdapter&) = delete;
    GigEDeviceAdapter& operator=(const GigEDeviceAdapter&) = delete;

    /// Connects again now, if the connection is lost.
    /// \return OK, also when it is not lost. As Connect() otherwise; also NO_CONNECTION: another device
    ///         answers there. Blocks as Connect() does.
    KyResult Reconnect();
    /// The number of the connection: 1 for the first, one more each time that the device is connected again,
    /// however quickly. Stays while the connection is lost. A caller that has set something up in the device takes
    /// the number down before, and sets it up again when it is another one: the device has lost it. Any
    /// thread, without blocking.
    uint64_t GetGeneration() const;
    /// What the device said about itself when it was connected; stays when the connection is lost.
    const DeviceInformation& GetInformation() const;
    /// Since the object was made. Any thread, without blocking.
    ConnectionFigures GetFigures() const;
    /// Why the device's description cannot be used, as a sentence; empty when it can. Stays when the connection is lost.
    /// Any thread, without blocking.
    std::string GetDescriptionProblem();
    /// The features for users, in the device's order, with what can be done with them now; nothing while the
    /// connection is lost. A feature that cannot be evaluated counts as not available. Blocks for the
    /// registers that decide about access.
    std::vector<FeatureEntry> ListFeatures();
    /// The same with values. Each register that a feature depends on is read once, where asking for access, value and
    /// entries one by one would read it for each. Blocks while the device is read; any thread.
    /// \return Empty: nothing is connected, or there is not enough memory.
    std::vector<FeatureReading> ReadFeatures();
    /// One of the device's features, also one that is not for users. Blocks as ListFeatures().
    /// \param aEntry  Receives it; without category, visibility and tool tip for one that is not listed.
    ///        Untouched on a failure.
    /// \return False: there is no such feature, or the connection is lost.
    bool FindFeature(const std::string& aName, FeatureEntry& aEntry);
    /// Blocks until every event that has come so far has been delivered, as long as the sinks take. Not from
    /// inside a sink: it would wait for itself.
    void WaitForEvents();

    void Reserved0() override;
    bool IsIntegerFeatureAvailable(const KyString& aName) override;
    bool IsFeatureAvailable(const KyString& aName) override;
    void Reserved3() override;
    bool IsRegisterFeatureAvailable(const KyString& aName) override;
    bool IsFeatureReadable(const KyString& aName) override;
    bool IsFeatureWritable(const KyString& aName) override;
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override;
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override;
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override;
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override;
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override;
    void Reserved12() override;
    void Reserved13() override;
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override;
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override;
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult RegisterFeatureInterest(const KyString& aName) override;
    KyResult UnregisterFeatureInterest(const KyString& aName) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;
    void Reserved23() override;
    KyResult PostWrite(uint32_t aMilliseconds) override;
    bool IsConnected() override;
    bool IsKorvoVideoInterface() override;
    bool IsGigEVision() override;
    bool IsAlternateTransport() override;
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override;
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override;

private:
    explicit GigEDeviceAdapter(std::unique_ptr<DeviceConnection> aConnection);
    bool IsAvailable(const std::string& aName, NodeKind aKind);
    template<class Reserve, class Add>
    bool SurveyFeatures(bool aWithValues, const Reserve& aReserve, const Add& aAdd);

    const std::unique_ptr<DeviceConnection> mThis;
};

} // namespace KyGigE
