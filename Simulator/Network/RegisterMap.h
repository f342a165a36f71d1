#pragma once

#include "Simulator/Network/BootstrapRegisters.h"
#include "Simulator/Network/FeatureRegisters.h"
#include "Simulator/Network/NetworkForms.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KySimulator
{

/// Everything that a camera has under an address: bootstrap registers, its description, features, serial
/// registers and the transmit window. Does not check whether an application may write.
class RegisterMap
{
public:
    static constexpr uint32_t cDescription = 0x00100000;

    /// \param aCamera  Outlives this object.
    explicit RegisterMap(CameraModel& aCamera, const NetworkForms& aForms = {});

    BootstrapRegisters& GetBootstrap() { return mBootstrap; }
    const BootstrapRegisters& GetBootstrap() const { return mBootstrap; }
    /// Says where the camera is. \param aAddress  IPv4.
    void SetPlace(uint32_t aAddress, uint32_t aMask, uint32_t aGateway = 0);

    /// Reads a register. \return BadAlignment, InvalidAddress, AccessDenied; the camera's.
    Outcome ReadRegister(uint32_t aAddress, uint32_t& aValue);
    /// Writes a register. \return BadAlignment, InvalidAddress, WriteProtect; the camera's.
    Outcome WriteRegister(uint32_t aAddress, uint32_t aValue);
    /// Reads bytes, a multiple of 4. aData is empty on a failure.
    /// \return BadAlignment; InvalidParameter: another count, or more than fits a packet; as ReadRegister().
    Outcome ReadMemory(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData);
    /// Whether bytes of any number can be written in one piece to aAddress.
    bool IsBlock(uint32_t aAddress) const;
    /// Writes bytes in one piece. \return InvalidParameter: none; the camera's; InvalidAddress.
    Outcome WriteBlock(uint32_t aAddress, KyGvcp::Bytes aData);

private:
    Outcome ReadDescription(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData) const;
    Outcome ReadWords(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData);

    CameraModel& mCamera;
    const NetworkForms mForms;
    BootstrapRegisters mBootstrap;
    FeatureRegisters mFeatures;
    std::string mDescription; // with zeros at its end, up to a multiple of 4
    size_t mDescriptionSize;
};

} // namespace KySimulator
