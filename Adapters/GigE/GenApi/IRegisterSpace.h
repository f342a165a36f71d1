#pragma once

#include <KyBase/KyResult.h>

#include <cstdint>

namespace KyGigE
{

/// What the registers of a node map lie in: the device's address space, and above it one for the payloads of
/// its events (EventAddress.h).
///
/// Threads: any, at the same time. Results: OK, or why the device did not do it; then nothing of a read
/// counts.
class IRegisterSpace
{
public:
    /// Reads aSize bytes. \param aBuffer  Not null unless aSize is 0.
    virtual KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) = 0;
    /// Writes exactly aSize bytes. \param aBuffer  Not null unless aSize is 0.
    virtual KyResult WriteMemory(uint64_t aAddress, const uint8_t* aBuffer, uint64_t aSize) = 0;
    /// Reads a 32-bit register; devices with old descriptions have registers that are no memory.
    virtual KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) = 0;
    /// Writes a 32-bit register.
    virtual KyResult WriteRegister(uint64_t aAddress, uint32_t aValue) = 0;
    /// Counts what was written by others than the node map: it keeps no value from before.
    virtual uint64_t GetForeignWrites() const { return 0; }

protected:
    IRegisterSpace() = default;
    IRegisterSpace(const IRegisterSpace&) = default;
    IRegisterSpace& operator=(const IRegisterSpace&) = default;
    ~IRegisterSpace() = default; // node maps never own their space
};

} // namespace KyGigE
