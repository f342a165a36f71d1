#include "Adapters/GigE/RegisterSpace.h"

#include "Adapters/GigE/GenApi/EventAddress.h"

namespace KyGigE
{

namespace
{

bool IsOutside(uint64_t aAddress, uint64_t aSize)
{
    constexpr uint64_t cSpace = uint64_t{1} << 32U;
    // Written without a sum, which could wrap: address and size come from the device's description.
    return aAddress >= cSpace || aSize > cSpace - aAddress;
}

KyResult OutsideResult()
{
    return {KyGvcp::cInvalidAddress, "The address lies outside the device's registers."};
}

} // namespace

KyResult RegisterSpace::ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize)
{
    // The bytes of events have come by themselves and are not in the device's registers.
    if (IsEventAddress(aAddress))
    {
        mStore.Read(EventOf(aAddress), EventOffset(aAddress), aBuffer, aSize);
        return {};
    }
    return IsOutside(aAddress, aSize)
               ? OutsideResult()
               : mClient.ReadMemory(mConnection, static_cast<uint32_t>(aAddress), aBuffer, aSize);
}

KyResult RegisterSpace::WriteMemory(uint64_t aAddress, const uint8_t* aBuffer, uint64_t aSize)
{
    if (IsEventAddress(aAddress))
    {
        return {KyGvcp::cWriteProtect, "What an event brought can only be read."};
    }
    return IsOutside(aAddress, aSize)
               ? OutsideResult()
               : mClient.WriteMemory(mConnection, static_cast<uint32_t>(aAddress), aBuffer, aSize);
}

KyResult RegisterSpace::ReadRegister(uint64_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    return IsOutside(aAddress, 4)
               ? OutsideResult()
               : mClient.ReadRegister(mConnection, static_cast<uint32_t>(aAddress), aValue);
}

KyResult RegisterSpace::WriteRegister(uint64_t aAddress, uint32_t aValue)
{
    return IsOutside(aAddress, 4)
               ? OutsideResult()
               : mClient.WriteRegister(mConnection, static_cast<uint32_t>(aAddress), aValue);
}

} // namespace KyGigE
