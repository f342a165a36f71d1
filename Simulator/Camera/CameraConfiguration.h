#pragma once

#include "Simulator/Ports/Port.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace KySimulator
{

/// How the camera is reached. Decides the byte order of message headers and which identity features exist.
enum class Transport
{
    GigEVision, ///< Register space, "GevMACAddress", big-endian headers.
    Alternate,  ///< The other transport: features only, little-endian headers.
    None        ///< Neither: features only, little-endian headers.
};

/// One bulk port.
struct BulkPortConfiguration
{
    bool mFeatures = true; ///< The port's GenICam features exist.
    bool mUart = true;     ///< Protocols that the port offers, as entries of "BulkMode".
    bool mUsrt = true;
    bool mI2C = true;
    bool mSpi = true;
    Protocol mMode = Protocol::Uart; ///< Protocol at the start; need not be one that is offered.

    /// Whether the port offers aProtocol.
    bool Offers(Protocol aProtocol) const;
};

/// What a simulated camera is. The default has everything: GigE Vision, maker's video interface, two UARTs,
/// bulk port 0 through registers and features, bulk ports 1 to 7 through features, every protocol on each of
/// them.
struct CameraConfiguration
{
    std::string mVendor = "Korvo";
    std::string mModel = "Simulated Camera";
    std::string mVersion = "1";
    std::string mManufacturerInfo = "Simulated camera with serial ports";
    /// Empty gives "SIM" and eight digits, different for each camera of the process.
    std::string mSerialNumber;
    std::string mUserID;
    /// 48 bits. 0 gives a locally administered address, different for each camera of the process.
    uint64_t mMacAddress = 0;

    Transport mTransport = Transport::GigEVision;
    /// The maker's video interface. Without it there are no serial registers.
    bool mVideoInterface = true;

    /// 0 to 2; more counts as 2.
    uint32_t mUartCount = 2;
    /// The registers 0xB8FC and 0xB95C answer.
    bool mCapabilityRegisters = true;
    /// Value of 0xB8FC; without one it follows from mUartCount, with the implemented bit set.
    std::optional<uint32_t> mFunctionCapabilities;
    /// Value of 0xB95C; without one it follows from bulk port 0's protocols.
    std::optional<uint32_t> mBulkCapabilities;

    /// Bulk port 0 is there for registers (0xB898, 0xB954 and the transmit window). The capability register
    /// has no bit for it: it reads as present when there is a UART. So a camera whose bulk port 0 is to be
    /// driven through features has mUartCount 0, or mCapabilityRegisters false.
    bool mBulk0Registers = true;
    std::array<BulkPortConfiguration, cBulkCount> mBulk;
    /// "BulkSelector" exists and the settings are "BulkBaudRate" and so on. Without it they are one set for
    /// each port ("Bulk3BaudRate"), and "BulkMode" belongs to the lowest port that exists.
    bool mBulkSelector = true;
    /// Interrupt event of bulk port 0: 0x9001 or 0x9000. The UARTs' is always 0x9000.
    uint16_t mBulkInterruptEvent = KyDeviceProtocol::cBulkInterruptEvent;

    /// Length in bytes of "Bulk%iDownstreamData".
    uint32_t mDownstreamLength = 520;
    /// Length in bytes of "EventBulk%iUpstreamDataBuffer", 1 at least; longer data comes in several events.
    uint32_t mUpstreamLength = 512;
    /// Bytes that a bulk port takes through its downstream feature ahead of the line; a message that does not
    /// fit is refused with Status::Busy.
    uint32_t mDownstreamQueue = 65536;
    /// Bytes that wait in a UART while its receive interrupt is off; 1 at least.
    uint32_t mUartReceiveFifo = 16;
    /// The same for a bulk port.
    uint32_t mBulkReceiveFifo = 256;
    /// Bytes of each line that GetWire() remembers, the newest; 0 remembers none.
    uint32_t mWireLimit = 1U << 20U;

    /// Lines take no time. Busy times of devices on a bus stay.
    bool mUnlimitedLineRate = false;
    /// Steps in which the camera's time goes on. Bytes that came out of a line since the last step are one event, as of a
    /// device that collects them; 0: each byte is an event of its own, when it is out.
    std::chrono::milliseconds mCollects{0};
    /// A write for an I2C device that does not acknowledge fails with Status::NoAcknowledge. Without it the
    /// write succeeds and nothing comes back.
    bool mReportNack = true;

    /// Bulk index of the lowest port that has features; cBulkCount when none has.
    size_t FirstFeaturePort() const;
    /// Whether the serial registers can be reached at all.
    bool HasSerialRegisters() const { return mTransport == Transport::GigEVision && mVideoInterface; }
};

/// The configuration with everything filled in that was left open, and limits kept.
CameraConfiguration Completed(CameraConfiguration aConfiguration);

} // namespace KySimulator
