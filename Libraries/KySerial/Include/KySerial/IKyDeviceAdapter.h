#pragma once

#include <KyBase/KyResult.h>
#include <KyBase/KyString.h>
#include <KyBase/KyStringList.h>
#include <KySerial/IKyDeviceEventSink.h>

#include <cstdint>

/// The way to one connected device. The application implements it, or takes an implementation from its camera
/// software, and hands it to the library's Open() and Start() operations. Docs/writing-an-adapter.md and
/// Examples/OwnAdapter.cpp show how.
///
/// Owner: the application. It must outlive every port, bus and bridge that was given it; the library never
/// deletes it.
///
/// Binary interface: 31 virtual functions in this order, no destructor among them. The five reserved ones are
/// never called by this library.
///
/// Results: OK, or any other code; the library passes a failure on with its code and description. Nothing may
/// throw. On a failure the out-parameter may hold anything.
///
/// Threads: register, memory and feature functions may be called from any thread, also from inside a sink's
/// functions on the event thread, and also at the same time. The library holds no receive lock during a call;
/// identifying a device ("GevMACAddress", "DeviceVendorName", "DeviceSerialNumber") happens under the lock of
/// its table of ports in use.
class IKyDeviceAdapter
{
public:
    /// Never called.
    virtual void Reserved0() = 0;
    /// Whether aName is an integer feature and available now.
    virtual bool IsIntegerFeatureAvailable(const KyString& aName) = 0;
    /// Whether the device's node map has a feature aName, of any kind, available now.
    virtual bool IsFeatureAvailable(const KyString& aName) = 0;
    /// Never called.
    virtual void Reserved3() = 0;
    /// Whether aName is a register feature (a block of bytes) and available now.
    virtual bool IsRegisterFeatureAvailable(const KyString& aName) = 0;
    /// Whether the feature's value can be read now.
    virtual bool IsFeatureReadable(const KyString& aName) = 0;
    /// Whether the feature's value can be written now.
    virtual bool IsFeatureWritable(const KyString& aName) = 0;
    /// Whether the enumeration aName exists and offers aEntry now.
    virtual bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) = 0;
    /// Reads an integer feature.
    virtual KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) = 0;
    /// Puts the names of an enumeration's entries, in the device's order, into aEntries.
    virtual KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) = 0;
    /// Reads any feature's value as text: decimal integers, entry names.
    virtual KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) = 0;
    /// Writes any feature's value from text.
    virtual KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) = 0;
    /// Never called.
    virtual void Reserved12() = 0;
    /// Never called.
    virtual void Reserved13() = 0;
    /// Reads a string feature.
    virtual KyResult GetStringValue(const KyString& aName, KyString& aValue) = 0;
    /// Length in bytes of a register feature.
    virtual KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) = 0;
    /// Reads the first aLength bytes of a register feature.
    virtual KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) = 0;
    /// Writes exactly aLength bytes, no padding, to the start of a register feature.
    virtual KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) = 0;
    /// Asks for NotifyFeatureInvalidated() calls when the feature changes. Counted per name.
    virtual KyResult RegisterFeatureInterest(const KyString& aName) = 0;
    /// Withdraws one RegisterFeatureInterest().
    virtual KyResult UnregisterFeatureInterest(const KyString& aName) = 0;
    /// Writes a 32-bit register of the device's GigE Vision register space.
    virtual KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) = 0;
    /// Reads a 32-bit register of the device's GigE Vision register space.
    virtual KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) = 0;
    /// Writes exactly aLength bytes, no padding, at an address of the register space.
    virtual KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) = 0;
    /// Never called.
    virtual void Reserved23() = 0;
    /// Called with 1000 after each message that was written with SetRegisterData(): time for whatever the
    /// adapter has to do then, polling features for example. The result is ignored.
    virtual KyResult PostWrite(uint32_t aMilliseconds) = 0;
    /// Whether the device can be reached now. Asked before every operation.
    virtual bool IsConnected() = 0;
    /// Whether the device is one of the maker's video-interface engines; only they have serial registers.
    virtual bool IsKorvoVideoInterface() = 0;
    /// Whether the device is reached over GigE Vision. Decides the byte order of message headers and which
    /// features identify the device.
    virtual bool IsGigEVision() = 0;
    /// Whether the device is reached over the adapter's other transport.
    virtual bool IsAlternateTransport() = 0;
    /// Adds a sink to those that device events and feature changes are reported to.
    virtual KyResult RegisterEventSink(IKyDeviceEventSink* aSink) = 0;
    /// Removes a sink. When it returns, no call into the sink is running any more, except the one from inside
    /// which it was called.
    virtual KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) = 0;

protected:
    IKyDeviceAdapter() = default;
    IKyDeviceAdapter(const IKyDeviceAdapter&) = default;
    IKyDeviceAdapter& operator=(const IKyDeviceAdapter&) = default;
    ~IKyDeviceAdapter() = default; // the library never deletes an adapter
};
