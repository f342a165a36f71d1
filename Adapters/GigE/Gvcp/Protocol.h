#pragma once

#include <cstddef>
#include <cstdint>

namespace KyGvcp
{

// GigE Vision's control protocol on UDP. All numbers are big-endian.

constexpr uint16_t cPort = 3956;
constexpr size_t cHeaderSize = 8;
/// The most that follows a header.
constexpr size_t cMaxPayload = 540;
constexpr size_t cMaxPacket = cHeaderSize + cMaxPayload;
/// Bytes of data in one READMEM or WRITEMEM.
constexpr size_t cMaxData = 536;

constexpr uint8_t cCommandKey = 0x42;
constexpr uint8_t cFlagAcknowledge = 0x01;
/// Events: block identifiers of 64 bits. Discovery: the acknowledge may be a broadcast.
constexpr uint8_t cFlagExtended = 0x10;

enum Command : uint16_t
{
    cDiscovery = 0x0002,
    cReadRegister = 0x0080,
    cWriteRegister = 0x0082,
    cReadMemory = 0x0084,
    cWriteMemory = 0x0086,
    cPendingAcknowledge = 0x0089,
    cEvent = 0x00C0,
    cEventData = 0x00C2
};

/// The acknowledge of a command has its code and one more.
constexpr uint16_t AcknowledgeOf(uint16_t aCommand)
{
    return static_cast<uint16_t>(aCommand + 1U);
}

enum Status : uint16_t
{
    cOk = 0,
    cNotImplemented = 0x8001,
    cInvalidParameter = 0x8002,
    cInvalidAddress = 0x8003,
    cWriteProtect = 0x8004,
    cBadAlignment = 0x8005,
    cAccessDenied = 0x8006,
    cBusy = 0x8007,
    cInvalidHeader = 0x800E
};

// Bootstrap registers.
constexpr uint32_t cRegisterVersion = 0x0000;
constexpr uint32_t cRegisterMacHigh = 0x0008;
constexpr uint32_t cRegisterMacLow = 0x000C;
constexpr uint32_t cRegisterAddress = 0x0024;
constexpr uint32_t cRegisterMask = 0x0034;
constexpr uint32_t cRegisterGateway = 0x0044;
constexpr uint32_t cRegisterVendor = 0x0048;        // 32 bytes
constexpr uint32_t cRegisterModel = 0x0068;         // 32 bytes
constexpr uint32_t cRegisterDeviceVersion = 0x0088; // 32 bytes
constexpr uint32_t cRegisterInformation = 0x00A8;   // 48 bytes
constexpr uint32_t cRegisterSerial = 0x00D8;        // 16 bytes
constexpr uint32_t cRegisterUserName = 0x00E8;      // 16 bytes
constexpr size_t cDiscoverySize = 0x00F8;
constexpr uint32_t cRegisterFirstUrl = 0x0200;
constexpr uint32_t cRegisterSecondUrl = 0x0400;
constexpr size_t cUrlSize = 512;
constexpr uint32_t cRegisterMessageChannels = 0x0900;
constexpr uint32_t cRegisterMessageCapability = 0x0930;
constexpr uint32_t cRegisterHeartbeat = 0x0938;
constexpr uint32_t cRegisterPrimaryPort = 0x0A04;
constexpr uint32_t cRegisterPrimaryAddress = 0x0A14;
constexpr uint32_t cRegisterControl = 0x0A00;
constexpr uint32_t cControlExclusive = 0x1;
constexpr uint32_t cControl = 0x2;
constexpr uint32_t cRegisterMessagePort = 0x0B00;
constexpr uint32_t cRegisterMessageAddress = 0x0B10;
constexpr uint32_t cRegisterMessageTimeout = 0x0B14;
constexpr uint32_t cRegisterMessageRetries = 0x0B18;
constexpr uint32_t cRegisterMessageSource = 0x0B1C;
constexpr uint32_t cMessageSourceImplemented = 0x80000000U;

/// Event item without its data.
constexpr size_t cEventItemSize = 16;
constexpr size_t cExtendedEventItemSize = 24;

inline void Put16(uint8_t* aTo, uint16_t aValue)
{
    aTo[0] = static_cast<uint8_t>(aValue >> 8U);
    aTo[1] = static_cast<uint8_t>(aValue);
}

inline void Put32(uint8_t* aTo, uint32_t aValue)
{
    Put16(aTo, static_cast<uint16_t>(aValue >> 16U));
    Put16(aTo + 2, static_cast<uint16_t>(aValue));
}

inline uint16_t Get16(const uint8_t* aFrom)
{
    return static_cast<uint16_t>(aFrom[0] << 8U | aFrom[1]);
}

inline uint32_t Get32(const uint8_t* aFrom)
{
    return static_cast<uint32_t>(Get16(aFrom)) << 16U | Get16(aFrom + 2);
}

inline uint64_t Get64(const uint8_t* aFrom)
{
    return static_cast<uint64_t>(Get32(aFrom)) << 32U | Get32(aFrom + 4);
}

} // namespace KyGvcp
