#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// GigE Vision's control protocol, as both ends of it need it: numbers, packets, sockets.
namespace KyGvcp
{

using Bytes = std::span<const uint8_t>;

constexpr uint16_t cControlPort = 3956; ///< Where devices listen.
constexpr size_t cHeaderSize = 8;
constexpr size_t cMaxPayload = 540; ///< Of a command or acknowledge.
constexpr size_t cMaxPacket = cHeaderSize + cMaxPayload;
constexpr size_t cMaxBlock = 536; ///< Data bytes of one READMEM or WRITEMEM.
constexpr size_t cDiscoverySize = 0xF8;

/// Command codes. The acknowledge of a command has the code one above.
enum Code : uint16_t
{
    cDiscovery = 0x0002,
    cDiscoveryAck = 0x0003,
    cForceAddress = 0x0004,
    cForceAddressAck = 0x0005,
    cReadRegister = 0x0080,
    cReadRegisterAck = 0x0081,
    cWriteRegister = 0x0082,
    cWriteRegisterAck = 0x0083,
    cReadMemory = 0x0084,
    cReadMemoryAck = 0x0085,
    cWriteMemory = 0x0086,
    cWriteMemoryAck = 0x0087,
    cPendingAck = 0x0089,
    cEvent = 0x00C0,
    cEventAck = 0x00C1,
    cEventData = 0x00C2,
    cEventDataAck = 0x00C3
};

// Flags of a command.
constexpr uint8_t cAcknowledgeWanted = 0x01;
constexpr uint8_t cExtendedID = 0x10;           ///< Events: items with 64-bit block ids.
constexpr uint8_t cBroadcastAcknowledge = 0x10; ///< Discovery: the answer may be broadcast.

/// Status of an acknowledge.
enum Status : uint16_t
{
    cSuccess = 0x0000,
    cNotImplemented = 0x8001,
    cInvalidParameter = 0x8002,
    cInvalidAddress = 0x8003,
    cWriteProtect = 0x8004,
    cBadAlignment = 0x8005,
    cAccessDenied = 0x8006,
    cBusy = 0x8007,
    cInvalidHeader = 0x800E,
    cError = 0x8FFF
};

/// A status for people: "access denied", or "status 0x8ABC" for one without a name.
std::string NameOfStatus(uint16_t aStatus);

// Bootstrap registers.
constexpr uint32_t cVersionRegister = 0x0000;
constexpr uint32_t cDeviceModeRegister = 0x0004;
constexpr uint32_t cMacHighRegister = 0x0008;
constexpr uint32_t cMacLowRegister = 0x000C;
constexpr uint32_t cInterfaceCapabilityRegister = 0x0010;
constexpr uint32_t cInterfaceConfigurationRegister = 0x0014;
constexpr uint32_t cAddressRegister = 0x0024;
constexpr uint32_t cSubnetMaskRegister = 0x0034;
constexpr uint32_t cGatewayRegister = 0x0044;
constexpr uint32_t cVendorRegister = 0x0048;
constexpr uint32_t cModelRegister = 0x0068;
constexpr uint32_t cDeviceVersionRegister = 0x0088;
constexpr uint32_t cInformationRegister = 0x00A8;
constexpr uint32_t cSerialNumberRegister = 0x00D8;
constexpr uint32_t cUserNameRegister = 0x00E8;
constexpr uint32_t cFirstUrlRegister = 0x0200;
constexpr uint32_t cSecondUrlRegister = 0x0400;
constexpr uint32_t cInterfaceCountRegister = 0x0600;
constexpr uint32_t cPersistentAddressRegister =
    0x064C; ///< What the device has after power-up, if it is switched on.
constexpr uint32_t cPersistentMaskRegister = 0x065C;
constexpr uint32_t cPersistentGatewayRegister = 0x066C;
constexpr uint32_t cMessageChannelCountRegister = 0x0900;
constexpr uint32_t cStreamChannelCountRegister = 0x0904;
constexpr uint32_t cMessageCapabilityRegister = 0x0930;
constexpr uint32_t cCapabilityRegister = 0x0934;
constexpr uint32_t cHeartbeatRegister = 0x0938; ///< Milliseconds.
constexpr uint32_t cTickFrequencyHighRegister = 0x093C;
constexpr uint32_t cTickFrequencyLowRegister = 0x0940;
constexpr uint32_t cTimestampControlRegister = 0x0944; ///< Bit 1 latches, bit 0 resets.
constexpr uint32_t cTimestampHighRegister = 0x0948;
constexpr uint32_t cTimestampLowRegister = 0x094C;
constexpr uint32_t cConfigurationRegister = 0x0954;  ///< Of the control protocol.
constexpr uint32_t cPendingTimeoutRegister = 0x0958; ///< Milliseconds that a command may take in silence.
constexpr uint32_t cControlPrivilegeRegister = 0x0A00;
constexpr uint32_t cPrimaryPortRegister = 0x0A04;
constexpr uint32_t cPrimaryAddressRegister = 0x0A14;
constexpr uint32_t cMessagePortRegister = 0x0B00;       ///< MCP: the application's port, 0 closes.
constexpr uint32_t cMessageAddressRegister = 0x0B10;    ///< MCDA.
constexpr uint32_t cMessageTimeoutRegister = 0x0B14;    ///< MCTT, milliseconds; 0 wants no acknowledge.
constexpr uint32_t cMessageRetriesRegister = 0x0B18;    ///< MCRC.
constexpr uint32_t cMessageSourcePortRegister = 0x0B1C; ///< MCSP: the device's port.
constexpr uint32_t cManufacturerRegisters = 0xA000;     ///< From here on they are the manufacturer's.

// Sizes of text registers.
constexpr size_t cTextSize = 32; ///< Vendor, model, version.
constexpr size_t cInformationSize = 48;
constexpr size_t cShortTextSize = 16; ///< Serial number, user name.
constexpr size_t cUrlSize = 512;

// Ways to an address (cInterfaceCapabilityRegister, cInterfaceConfigurationRegister).
constexpr uint32_t cPersistentIp = 0x1;
constexpr uint32_t cLinkLocal = 0x4; ///< No device can refuse this one.

constexpr size_t cForceAddressSize = 56; ///< Payload of cForceAddress.

// Control channel privilege.
constexpr uint32_t cExclusiveAccess = 0x1;
constexpr uint32_t cControlAccess = 0x2;

// Capabilities (cCapabilityRegister).
constexpr uint32_t cCanConcatenate = 1U << 0U;
constexpr uint32_t cCanWriteMemory = 1U << 1U;
constexpr uint32_t cCanEvent = 1U << 3U;
constexpr uint32_t cCanEventData = 1U << 4U;
constexpr uint32_t cCanPendingAck = 1U << 5U;
constexpr uint32_t cCanControlSocket = 1U << 27U;
constexpr uint32_t cHasSerialNumber = 1U << 30U;
constexpr uint32_t cHasUserName = 1U << 31U;

// Configuration (cConfigurationRegister).
constexpr uint32_t cHeartbeatDisabled = 1U << 0U;
constexpr uint32_t cPendingAckEnabled = 1U << 1U;

constexpr uint16_t cNoStreamChannel = 0xFFFF;
constexpr uint16_t cBroadcastRequest =
    0xFFFF; ///< Identifies a request outside a connection; any number but 0 will do.
constexpr size_t cEventItemSize = 16;
constexpr size_t cExtendedEventItemSize = 24;

/// A packet being written, big-endian. What does not fit any more is left out and makes it bad.
class Packet
{
public:
    /// A command. \param aRequestID  Not 0.
    static Packet Command(uint16_t aCode, uint8_t aFlags, uint16_t aRequestID);
    /// An acknowledge. \param aCode  Its own code, not the command's.
    static Packet Acknowledge(uint16_t aStatus, uint16_t aCode, uint16_t aRequestID);

    Packet& Add16(uint16_t aValue);
    Packet& Add32(uint32_t aValue);
    Packet& Add64(uint64_t aValue);
    Packet& Add(Bytes aData);
    /// Gives a command another identifier. \param aRequestID  Not 0.
    void SetRequestID(uint16_t aRequestID);

    /// Whether everything has fitted.
    bool IsGood() const { return mGood; }
    /// Bytes that fit besides.
    size_t GetRoom() const { return mData.size() - mSize; }
    /// A command's flags.
    uint8_t GetFlags() const { return mData[1]; }
    /// Header with the right length, and payload; valid while the packet is.
    Bytes GetBytes() const { return {mData.data(), mSize}; }

private:
    Packet(uint16_t aFirst, uint16_t aSecond, uint16_t aRequestID);
    void SetLength();

    std::array<uint8_t, cMaxPacket> mData;
    size_t mSize = 0;
    bool mGood = true;
};

/// Commands as applications send them, an acknowledge wanted.
Packet MakeDiscovery(uint16_t aRequestID, bool aBroadcastAcknowledge);
Packet MakeReadRegister(uint16_t aRequestID, uint32_t aAddress);
Packet MakeWriteRegister(uint16_t aRequestID, uint32_t aAddress, uint32_t aValue);
/// \param aCount  Bytes; devices take multiples of 4 up to cMaxBlock.
Packet MakeReadMemory(uint16_t aRequestID, uint32_t aAddress, uint16_t aCount);
/// \param aData  cMaxBlock bytes at most. Exactly these are written, without padding.
Packet MakeWriteMemory(uint16_t aRequestID, uint32_t aAddress, Bytes aData);

/// Takes big-endian values out of received bytes. Behind the end everything is zero or empty, and it is bad.
class Reader
{
public:
    explicit Reader(Bytes aBytes) : mRest(aBytes) {}

    uint16_t Take16();
    uint32_t Take32();
    uint64_t Take64();
    Bytes Take(size_t aCount);

    /// Whether everything taken was there.
    bool IsGood() const { return mGood; }
    Bytes GetRest() const { return mRest; }

private:
    uint64_t TakeNumber(size_t aSize);

    Bytes mRest;
    bool mGood = true;
};

/// A received command. Views point into the received bytes.
struct CommandView
{
    uint8_t mFlags = 0;
    uint16_t mCode = 0;
    uint16_t mRequestID = 0;
    bool mLengthFits = false; ///< The header's length is that of the payload.
    Bytes mPayload;           ///< Empty when it is not.
};

/// A packet as long as its header says, without what was sent after that; one that is shorter stays as it is.
Bytes WithoutPadding(Bytes aPacket);

/// \return Nothing when this is no command: shorter than a header, or another key.
std::optional<CommandView> ParseCommand(Bytes aPacket);

/// A received acknowledge.
struct AcknowledgeView
{
    uint16_t mStatus = 0;
    uint16_t mCode = 0;
    uint16_t mRequestID = 0;
    Bytes mPayload;
};

/// \return Nothing when this is no acknowledge, or when its length is not the header's. What lies behind the
/// payload of a packet that was padded is not looked at.
std::optional<AcknowledgeView> ParseAcknowledge(Bytes aPacket);

/// One event of an EVENT or EVENTDATA command.
struct EventView
{
    uint16_t mID = 0;
    uint16_t mStreamChannel = 0;
    uint64_t mBlockID = 0;
    uint64_t mTimestamp = 0; ///< Ticks of the device.
    Bytes mItem; ///< All of it, as event ports address it: data begins at 16, or 24 with long ids.
    Bytes mData; ///< What comes with it; empty for EVENT.
};

/// The events of a command. Less than an item's header after the last event is padding.
/// \return None at all when a part of the payload makes no sense.
std::vector<EventView> ParseEvents(const CommandView& aCommand);

/// Adds an event item with its size, its ids and its data to an EVENT or EVENTDATA command. The block id is 64 bits long when the
/// command's flags say so (cExtendedID), else 16.
/// \param aData  So many bytes as fit a packet; with more the packet is bad.
void AddEvent(Packet& aCommand, uint16_t aID, uint64_t aBlockID, uint64_t aTimestamp, Bytes aData);

} // namespace KyGvcp
