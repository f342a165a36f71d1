#include "KySerial/KyDeviceI2CBus.h"

#include "DeviceI2CBus.h"
#include "Shell.h"

using KySerialLib::DeviceI2CBus;
using KySerialLib::Forward;
using KySerialLib::IsOpen;

KyDeviceI2CBus::KyDeviceI2CBus() : mThis(KySerialLib::MakeObject<DeviceI2CBus>())
{
    JX_EXPECT(mThis != NULL);
}

KyDeviceI2CBus::~KyDeviceI2CBus()
{
    JX_EXPECT(mThis != NULL);
    KySerialLib::ReleaseOwner(mThis);
}

KyDeviceI2CBus& KyDeviceI2CBus::operator=(const KyDeviceI2CBus& aOther)
{
    if (this != &aOther)
    {
        KySerialLib::ShareOwner(mThis, aOther.mThis);
    }
    return *this;
}

bool KyDeviceI2CBus::IsOpened()
{
    return IsOpen(mThis);
}

bool KyDeviceI2CBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return KySerialLib::AskWithMemory([&] { return DeviceI2CBus::IsSupported(aDevice, aPort); });
}

KyResult KyDeviceI2CBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return Forward(mThis, &DeviceI2CBus::Open, aDevice, aPort);
}

KyResult KyDeviceI2CBus::Close()
{
    return Forward(mThis, &DeviceI2CBus::Close);
}

KyResult KyDeviceI2CBus::MasterTransmitter(uint8_t aSlaveAddress, const uint8_t* aBuffer,
                                           uint32_t aBufferSize, bool aFastMode, bool aStop)
{
    return Forward(mThis, &DeviceI2CBus::MasterTransmitter, aSlaveAddress, aBuffer, aBufferSize, aFastMode,
                   aStop);
}

KyResult KyDeviceI2CBus::MasterReceiverAfterFirstByte(uint8_t aSlaveAddress, uint8_t* aBuffer,
                                                      uint32_t aBufferSize, uint32_t& aBytesRead,
                                                      bool aFastMode, bool aStop)
{
    return Forward(mThis, &DeviceI2CBus::MasterReceiverAfterFirstByte, aSlaveAddress, aBuffer, aBufferSize,
                   aBytesRead, aFastMode, aStop);
}

KyResult KyDeviceI2CBus::BurstWrite(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                                    bool aFastMode)
{
    return Forward(mThis, &DeviceI2CBus::BurstWrite, aSlaveAddress, aBuffer, aBufferSize, aFastMode);
}

KyResult KyDeviceI2CBus::BurstRead(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize,
                                   uint32_t& aBytesRead, bool aFastMode)
{
    return Forward(mThis, &DeviceI2CBus::BurstRead, aSlaveAddress, aBuffer, aBufferSize, aBytesRead,
                   aFastMode);
}

KyResult KyDeviceI2CBus::IndirectBurstWrite(uint8_t aSlaveAddress, uint8_t aOffset, const uint8_t* aBuffer,
                                            uint32_t aBufferSize, bool aFastMode)
{
    return Forward(mThis, &DeviceI2CBus::IndirectBurstWrite, aSlaveAddress, aOffset, aBuffer, aBufferSize,
                   aFastMode);
}

KyResult KyDeviceI2CBus::IndirectBurstRead(uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer,
                                           uint32_t aBufferSize, uint32_t& aBytesRead, bool aFastMode,
                                           bool aUseCombinedFormat)
{
    return Forward(mThis, &DeviceI2CBus::IndirectBurstRead, aSlaveAddress, aOffset, aBuffer, aBufferSize,
                   aBytesRead, aFastMode, aUseCombinedFormat);
}
