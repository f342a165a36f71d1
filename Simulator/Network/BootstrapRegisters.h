#pragma once

#include "KyGvcp/Protocol.h"
#include "Simulator/Camera/CameraModel.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace KySimulator
{

/// What a camera says of its place in the network.
struct NetworkIdentity
{
    uint32_t mAddress = 0x7F000001; ///< IPv4; 127.0.0.1 is 0x7F000001.
    uint32_t mMask = 0xFF000000;
    uint32_t mGateway = 0;
    std::string mFirstUrl;  ///< Where the device description is.
    std::string mSecondUrl; ///< Another place, for clients that cannot use the first.
};

/// The registers that every GigE Vision device has in the same place. They hold what was written; what
/// follows from that is the business of those who look at them.
class BootstrapRegisters
{
public:
    /// Addresses below are these registers'.
    static constexpr uint32_t cEnd = KyGvcp::cManufacturerRegisters;
    /// Message channel: time-out and repetitions at the start.
    static constexpr uint32_t cMessageTimeout = 200;
    static constexpr uint32_t cMessageRetries = 3;
    /// Milliseconds, at the start and at least.
    static constexpr uint32_t cHeartbeat = 3000;
    static constexpr uint32_t cShortestHeartbeat = 500;
    /// Milliseconds that a command may take in silence, unless a fault makes it longer.
    static constexpr uint32_t cPendingTimeout = 200;

    /// \param aCamera  Outlives this object.
    explicit BootstrapRegisters(CameraModel& aCamera);
    /// Fills in what says where the camera is.
    void SetIdentity(const NetworkIdentity& aIdentity);

    /// A register for the device's own use; no check of anything. \param aAddress  A register's.
    uint32_t Get(uint32_t aAddress) const;
    void Set(uint32_t aAddress, uint32_t aValue);

    /// Camera time that timestamps count from.
    Time GetTimestampStart() const { return mTimestampStart; }

    /// Reads a register. \return InvalidAddress.
    Outcome Read(uint32_t aAddress, uint32_t& aValue);
    /// Writes a register. \return InvalidAddress, WriteProtect.
    Outcome Write(uint32_t aAddress, uint32_t aValue);
    /// Reads a part, with zeros where no registers are. \return InvalidAddress.
    Outcome ReadMemory(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData);
    /// Writes the user's name, or the beginning of it. \return InvalidAddress: another text.
    Outcome WriteText(uint32_t aAddress, KyGvcp::Bytes aData);

private:
    static constexpr size_t cSize = 0x0B20;

    void SetText(uint32_t aAddress, size_t aLength, const std::string& aText);
    void Refresh();
    void ControlTimestamp(uint32_t aValue);

    CameraModel& mCamera;
    std::array<uint8_t, cSize> mImage{};
    Time mTimestampStart{0};
};

} // namespace KySimulator
