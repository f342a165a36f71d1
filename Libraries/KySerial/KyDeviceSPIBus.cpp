#include "KySerial/KyDeviceSPIBus.h"

#include "DeviceSPIBus.h"
#include "Shell.h"

using KySerialLib::DeviceSPIBus;
using KySerialLib::Forward;
using KySerialLib::IsOpen;

KyDeviceSPIBus::KyDeviceSPIBus() : mThis(KySerialLib::MakeObject<DeviceSPIBus>())
{
    JX_EXPECT(mThis != NULL);
}

KyDeviceSPIBus::~KyDeviceSPIBus()
{
    JX_EXPECT(mThis != NULL);
    KySerialLib::ReleaseOwner(mThis);
}

KyDeviceSPIBus& KyDeviceSPIBus::operator=(const KyDeviceSPIBus& aOther)
{
    if (this != &aOther)
    {
        KySerialLib::ShareOwner(mThis, aOther.mThis);
    }
    return *this;
}

bool KyDeviceSPIBus::IsOpened()
{
    return IsOpen(mThis);
}

bool KyDeviceSPIBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return KySerialLib::AskWithMemory([&] { return DeviceSPIBus::IsSupported(aDevice, aPort); });
}

KyResult KyDeviceSPIBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return Forward(mThis, &DeviceSPIBus::Open, aDevice, aPort);
}

KyResult KyDeviceSPIBus::Close()
{
    return Forward(mThis, &DeviceSPIBus::Close);
}

KyResult KyDeviceSPIBus::BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead,
                                   uint32_t aTimeout)
{
    return Forward(mThis, &DeviceSPIBus::BurstRead, aBuffer, aBufferSize, aBytesRead, aTimeout);
}

KyResult KyDeviceSPIBus::BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                                           bool aSimultaneous, bool aFinal)
{
    return Forward(mThis, &DeviceSPIBus::BurstWriteAndRead, aBuffer, aWriteSize, aReadSize, aSimultaneous,
                   aFinal);
}
