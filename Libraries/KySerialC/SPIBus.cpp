#include "KySerialC/SPIBus.h"

#include "KySerial/KyDeviceSPIBus.h"
#include "PortObject.h"

using namespace KySerialCLib;

namespace
{

using SPIObject = PortObject<KyDeviceSPIBus>;

HandleTable<SPIObject>& SPIBuses()
{
    return GetTable<HandleKind::SPIBus, SPIObject>();
}

} // namespace

KyCode KySPIBusCreate(KySPIBusHandle* aBus)
{
    return Create("KySPIBusCreate", SPIBuses(), aBus);
}

KyCode KySPIBusDestroy(KySPIBusHandle aBus)
{
    return Destroy("KySPIBusDestroy", SPIBuses(), aBus);
}

KyCode KySPIBusOpen(KySPIBusHandle aBus, KyDeviceHandle aDevice, int32_t aSerial)
{
    static constexpr char cFunction[] = "KySPIBusOpen";
    return RunOn(cFunction, SPIBuses(), aBus,
                 [&](SPIObject& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Open(cFunction, aObject, aDevice, aSerial);
                 });
}

KyCode KySPIBusClose(KySPIBusHandle aBus)
{
    return RunOn("KySPIBusClose", SPIBuses(), aBus,
                 [](SPIObject& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Close(aObject);
                 });
}

KyCode KySPIBusIsOpened(KySPIBusHandle aBus, int32_t* aIsOpened)
{
    return RunOn("KySPIBusIsOpened", SPIBuses(), aBus, aIsOpened, 0,
                 [](SPIObject& aObject, int32_t& aAnswer)
                 {
                     const auto lScope = aObject.mLock.Share();
                     // The product would log the question as a failure before it has been
                     // opened for the first time.
                     aAnswer = aObject.mDevice.Get() != nullptr ? 1 : 0;
                     return KyResult();
                 });
}

KyCode KySPIBusIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported)
{
    return IsSupported<KyDeviceSPIBus>("KySPIBusIsSupported", aDevice, aSerial, aIsSupported);
}

KyCode KySPIBusTransfer(KySPIBusHandle aBus, const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                        int32_t aSimultaneous, int32_t aFinal)
{
    return RunOn("KySPIBusTransfer", SPIBuses(), aBus,
                 [&](SPIObject& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return aObject.mProduct->BurstWriteAndRead(aBuffer, aWriteSize, aReadSize,
                                                                aSimultaneous != 0, aFinal != 0);
                 });
}

KyCode KySPIBusRead(KySPIBusHandle aBus, uint8_t* aBuffer, uint32_t aSize, uint32_t* aRead, uint32_t aTimeout)
{
    static constexpr char cFunction[] = "KySPIBusRead";
    return RunOn(cFunction, SPIBuses(), aBus, aRead, 0U,
                 [&](SPIObject& aObject, uint32_t& aCount)
                 {
                     if (aBuffer == nullptr || aSize == 0)
                     {
                         return NoBuffer(cFunction);
                     }
                     const auto lScope = aObject.mLock.Alone();
                     return aObject.mProduct->BurstRead(aBuffer, aSize, aCount, aTimeout);
                 });
}
