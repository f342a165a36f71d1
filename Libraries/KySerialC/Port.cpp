#include "KySerialC/Port.h"

#include "KySerial/KyDeviceSerialPort.h"
#include "PortObject.h"

using namespace KySerialCLib;

namespace
{

using Port = PortObject<KyDeviceSerialPort>;

HandleTable<Port>& Ports()
{
    return GetTable<HandleKind::Port, Port>();
}

} // namespace

KyCode KyPortCreate(KyPortHandle* aPort)
{
    return Create("KyPortCreate", Ports(), aPort);
}

KyCode KyPortDestroy(KyPortHandle aPort)
{
    return Destroy("KyPortDestroy", Ports(), aPort);
}

KyCode KyPortOpen(KyPortHandle aPort, KyDeviceHandle aDevice, int32_t aSerial)
{
    static constexpr char cFunction[] = "KyPortOpen";
    return RunOn(cFunction, Ports(), aPort,
                 [&](Port& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Open(cFunction, aObject, aDevice, aSerial);
                 });
}

KyCode KyPortClose(KyPortHandle aPort)
{
    return RunOn("KyPortClose", Ports(), aPort,
                 [](Port& aObject)
                 {
                     const auto lScope = aObject.mLock.Alone();
                     return Close(aObject);
                 });
}

KyCode KyPortIsOpened(KyPortHandle aPort, int32_t* aIsOpened)
{
    return RunOn("KyPortIsOpened", Ports(), aPort, aIsOpened, 0,
                 [](Port& aObject, int32_t& aAnswer)
                 {
                     const auto lScope = aObject.mLock.Share();
                     aAnswer = aObject.mProduct->IsOpened() ? 1 : 0;
                     return KyResult();
                 });
}

KyCode KyPortWrite(KyPortHandle aPort, const uint8_t* aBuffer, uint32_t aSize, uint32_t* aWritten)
{
    static constexpr char cFunction[] = "KyPortWrite";
    return RunOn(cFunction, Ports(), aPort, aWritten, 0U,
                 [&](Port& aObject, uint32_t& aCount)
                 {
                     if (aBuffer == nullptr && aSize > 0)
                     {
                         return NoBuffer(cFunction);
                     }
                     // A read and a write run at the same time, two writes one after the
                     // other: each block stays whole.
                     const auto lScope = aObject.mLock.Share();
                     const JxUtilsLib::LockScope lTurn(aObject.mWriteTurn);
                     return aObject.mProduct->Write(aBuffer, aSize, aCount);
                 });
}

KyCode KyPortRead(KyPortHandle aPort, uint8_t* aBuffer, uint32_t aSize, uint32_t* aRead, uint32_t aTimeout)
{
    static constexpr char cFunction[] = "KyPortRead";
    return RunOn(cFunction, Ports(), aPort, aRead, 0U,
                 [&](Port& aObject, uint32_t& aCount)
                 {
                     // Size 0 is refused here, because the library takes a byte for it.
                     if (aBuffer == nullptr || aSize == 0)
                     {
                         return NoBuffer(cFunction);
                     }
                     const auto lScope = aObject.mLock.Share();
                     const JxUtilsLib::LockScope lTurn(aObject.mReadTurn);
                     return aObject.mProduct->Read(aBuffer, aSize, aCount, aTimeout);
                 });
}

KyCode KyPortFlushRxBuffer(KyPortHandle aPort)
{
    return RunOn("KyPortFlushRxBuffer", Ports(), aPort,
                 [](Port& aObject)
                 {
                     const auto lScope = aObject.mLock.Share();
                     return aObject.mProduct->FlushRxBuffer();
                 });
}

KyCode KyPortGetRxBytesReady(KyPortHandle aPort, uint32_t* aBytes)
{
    return RunOn("KyPortGetRxBytesReady", Ports(), aPort, aBytes, 0U,
                 [](Port& aObject, uint32_t& aCount)
                 {
                     const auto lScope = aObject.mLock.Share();
                     return aObject.mProduct->GetRxBytesReady(aCount);
                 });
}

KyCode KyPortGetRxBufferSize(KyPortHandle aPort, uint32_t* aSize)
{
    return RunOn("KyPortGetRxBufferSize", Ports(), aPort, aSize, 0U,
                 [](Port& aObject, uint32_t& aCells)
                 {
                     const auto lScope = aObject.mLock.Share();
                     return aObject.mProduct->GetRxBufferSize(aCells);
                 });
}

KyCode KyPortSetRxBufferSize(KyPortHandle aPort, uint32_t aSize)
{
    return RunOn("KyPortSetRxBufferSize", Ports(), aPort,
                 [&](Port& aObject)
                 {
                     // The port is needed alone: no read may be inside the buffer that is replaced.
                     const auto lScope = aObject.mLock.Alone();
                     return aObject.mProduct->SetRxBufferSize(aSize);
                 });
}

KyCode KyPortIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported)
{
    return IsSupported<KyDeviceSerialPort>("KyPortIsSupported", aDevice, aSerial, aIsSupported);
}
