#include "KySerial/KyDeviceSPIBus.h"

#include "DeviceSPIBus.h"
#include "JxUtilsLib/Assert.h"
#include "OutOfMemory.h"

using KySerialLib::CatchOutOfMemory;
using KySerialLib::OutOfMemory;

KyDeviceSPIBus::KyDeviceSPIBus() : mThis(nullptr)
{
    try
    {
        mThis = new KySerialLib::DeviceSPIBus;
    }
    catch (...) // NOLINT(bugprone-empty-catch): no memory, which every operation reports
    {
    }
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
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr && mThis->IsOpened();
}

bool KyDeviceSPIBus::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    return KySerialLib::AskWithMemory([&] { return KySerialLib::DeviceSPIBus::IsSupported(aDevice, aPort); });
}

KyResult KyDeviceSPIBus::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory([&] { return mThis->Open(aDevice, aPort); }) : OutOfMemory();
}

KyResult KyDeviceSPIBus::Close()
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory([&] { return mThis->Close(); }) : OutOfMemory();
}

KyResult KyDeviceSPIBus::BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead,
                                   uint32_t aTimeout)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr
               ? CatchOutOfMemory([&]
                                  { return mThis->BurstRead(aBuffer, aBufferSize, aBytesRead, aTimeout); })
               : OutOfMemory();
}

KyResult KyDeviceSPIBus::BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                                           bool aSimultaneous, bool aFinal)
{
    JX_EXPECT(mThis != NULL);
    return mThis != nullptr ? CatchOutOfMemory(
                                  [&] {
                                      return mThis->BurstWriteAndRead(aBuffer, aWriteSize, aReadSize,
                                                                      aSimultaneous, aFinal);
                                  })
                            : OutOfMemory();
}
