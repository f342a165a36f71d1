#include "KySerialC/I2CBus.h"

#include "KySerial/KyDeviceI2CBus.h"
#include "PortObject.h"

using namespace KySerialCLib;

namespace
{

using Bus = PortObject<KyDeviceI2CBus>;

constexpr uint32_t cMostBytes = 65535; // the count that a read command carries

HandleTable<Bus>& Buses()
{
    return GetTable<HandleKind::I2CBus, Bus>();
}

// The body of a transfer: alone on the bus.
template<typename Transfer>
auto Alone(const Transfer& aTransfer)
{
    return [&](Bus& aObject)
    {
        const auto lScope = aObject.mLock.Alone();
        return aTransfer(*aObject.mProduct);
    };
}

// The body of a read, with its checks.
template<typename Transfer>
auto Reading(const char* aFunction, const uint8_t* aBuffer, uint32_t aSize, const Transfer& aTransfer)
{
    return [=, &aTransfer](Bus& aObject, uint32_t& aRead)
    {
        if ((aBuffer == nullptr && aSize > 0) || aSize > cMostBytes)
        {
            return NoBuffer(aFunction);
        }
        const auto lScope = aObject.mLock.Alone();
        return aTransfer(*aObject.mProduct, aRead);
    };
}

} // namespace

KyCode KyI2CBusCreate(KyI2CBusHandle* aBus)
{
    return Create("KyI2CBusCreate", Buses(), aBus);
}

KyCode KyI2CBusDestroy(KyI2CBusHandle aBus)
{
    return Destroy("KyI2CBusDestroy", Buses(), aBus);
}

KyCode KyI2CBusOpen(KyI2CBusHandle aBus, KyDeviceHandle aDevice, int32_t aSerial)
{
    static constexpr char cFunction[] = "KyI2CBusOpen";
    return RunOn(cFunction, Buses(), aBus,
                 [&](Bus& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Open(cFunction, aObject, aDevice, aSerial);
                 });
}

KyCode KyI2CBusClose(KyI2CBusHandle aBus)
{
    return RunOn("KyI2CBusClose", Buses(), aBus,
                 [](Bus& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Close(aObject);
                 });
}

KyCode KyI2CBusIsOpened(KyI2CBusHandle aBus, int32_t* aIsOpened)
{
    return RunOn("KyI2CBusIsOpened", Buses(), aBus, aIsOpened, 0,
                 [](Bus& aObject, int32_t& aAnswer)
                 {
                     const auto lScope = aObject.mLock.Share();
                     // The product would log the question as a failure before it has been
                     // opened for the first time.
                     aAnswer = aObject.mDevice.Get() != nullptr ? 1 : 0;
                     return KyResult();
                 });
}

KyCode KyI2CBusIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported)
{
    return IsSupported<KyDeviceI2CBus>("KyI2CBusIsSupported", aDevice, aSerial, aIsSupported);
}

KyCode KyI2CBusWrite(KyI2CBusHandle aBus, uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aSize,
                     int32_t aFastMode, int32_t aStop)
{
    const auto lTransfer = [&](KyDeviceI2CBus& aProduct)
    { return aProduct.MasterTransmitter(aSlaveAddress, aBuffer, aSize, aFastMode != 0, aStop != 0); };
    return RunOn("KyI2CBusWrite", Buses(), aBus, Alone(lTransfer));
}

KyCode KyI2CBusRead(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aSize,
                    uint32_t* aRead, int32_t aFastMode, int32_t aStop)
{
    static constexpr char cFunction[] = "KyI2CBusRead";
    const auto lTransfer = [&](KyDeviceI2CBus& aProduct, uint32_t& aCount)
    {
        return aProduct.MasterReceiverAfterFirstByte(aSlaveAddress, aBuffer, aSize, aCount, aFastMode != 0,
                                                     aStop != 0);
    };
    return RunOn(cFunction, Buses(), aBus, aRead, 0U, Reading(cFunction, aBuffer, aSize, lTransfer));
}

KyCode KyI2CBusIndirectWrite(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t aOffset,
                             const uint8_t* aBuffer, uint32_t aSize, int32_t aFastMode)
{
    const auto lTransfer = [&](KyDeviceI2CBus& aProduct)
    { return aProduct.IndirectBurstWrite(aSlaveAddress, aOffset, aBuffer, aSize, aFastMode != 0); };
    return RunOn("KyI2CBusIndirectWrite", Buses(), aBus, Alone(lTransfer));
}

KyCode KyI2CBusIndirectRead(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer,
                            uint32_t aSize, uint32_t* aRead, int32_t aFastMode, int32_t aCombined)
{
    static constexpr char cFunction[] = "KyI2CBusIndirectRead";
    const auto lTransfer = [&](KyDeviceI2CBus& aProduct, uint32_t& aCount)
    {
        return aProduct.IndirectBurstRead(aSlaveAddress, aOffset, aBuffer, aSize, aCount, aFastMode != 0,
                                          aCombined != 0);
    };
    return RunOn(cFunction, Buses(), aBus, aRead, 0U, Reading(cFunction, aBuffer, aSize, lTransfer));
}
