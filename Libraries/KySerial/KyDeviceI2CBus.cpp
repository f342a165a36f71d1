#include "KySerial/KyDeviceI2CBus.h"

#include "DeviceI2CBus.h"
#include "JxUtilsLib/Assert.h"
#include "OutOfMemory.h"

using KySerialLib::CatchOutOfMemory;
using KySerialLib::OutOfMemory;

KyDeviceI2CBus::KyDeviceI2CBus() : mThis(nullptr)
{
    try
    {
        mThis = new KySerialLib::DeviceI2CBus;
    }
    catch (...) // NOLINT(bugprone-empty-catch): no memory, which every operation reports
    {
    }
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
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr && mThis->IsOpened();
}

bool KyDeviceI2CBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return KySerialLib::AskWithMemory([&] { return KySerialLib::DeviceI2CBus::IsSupported(aDevice, aPort); });
}

KyResult KyDeviceI2CBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory([&] { return mThis->Open(aDevice, aPort); }) : OutOfMemory();
}

KyResult KyDeviceI2CBus::Close()
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory([&] { return mThis->Close(); }) : OutOfMemory();
}

KyResult KyDeviceI2CBus::MasterTransmitter(uint8_t aSlaveAddress, const uint8_t* aBuffer,
                                           uint32_t aBufferSize, bool aFastMode, bool aStop)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory(
                                  [&] {
                                      return mThis->MasterTransmitter(aSlaveAddress, aBuffer, aBufferSize,
                                                                      aFastMode, aStop);
                                  })
                            : OutOfMemory();
}

KyResult KyDeviceI2CBus::MasterReceiverAfterFirstByte(uint8_t aSlaveAddress, uint8_t* aBuffer,
                                                      uint32_t aBufferSize, uint32_t& aBytesRead,
                                                      bool aFastMode, bool aStop)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory(
                                  [&]
                                  {
                                      return mThis->MasterReceiverAfterFirstByte(
                                          aSlaveAddress, aBuffer, aBufferSize, aBytesRead, aFastMode, aStop);
                                  })
                            : OutOfMemory();
}

KyResult KyDeviceI2CBus::BurstWrite(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                                    bool aFastMode)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr
               ? CatchOutOfMemory(
                     [&] { return mThis->BurstWrite(aSlaveAddress, aBuffer, aBufferSize, aFastMode); })
               : OutOfMemory();
}

KyResult KyDeviceI2CBus::BurstRead(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize,
                                   uint32_t& aBytesRead, bool aFastMode)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr
               ? CatchOutOfMemory(
                     [&]
                     { return mThis->BurstRead(aSlaveAddress, aBuffer, aBufferSize, aBytesRead, aFastMode); })
               : OutOfMemory();
}

KyResult KyDeviceI2CBus::IndirectBurstWrite(uint8_t aSlaveAddress, uint8_t aOffset, const uint8_t* aBuffer,
                                            uint32_t aBufferSize, bool aFastMode)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory(
                                  [&] {
                                      return mThis->IndirectBurstWrite(aSlaveAddress, aOffset, aBuffer,
                                                                       aBufferSize, aFastMode);
                                  })
                            : OutOfMemory();
}

KyResult KyDeviceI2CBus::IndirectBurstRead(uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer,
                                           uint32_t aBufferSize, uint32_t& aBytesRead, bool aFastMode,
                                           bool aUseCombinedFormat)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr
               ? CatchOutOfMemory(
                     [&]
                     {
                         return mThis->IndirectBurstRead(aSlaveAddress, aOffset, aBuffer, aBufferSize,
                                                         aBytesRead, aFastMode, aUseCombinedFormat);
                     })
               : OutOfMemory();
}
