#include "Simulator/Camera/CameraState.h"

#include <KySerial/DeviceProtocol.h>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

Outcome NoSuchRegister()
{
    return {Status::InvalidAddress, "There is no such register."};
}

} // namespace

bool CameraState::HasBulkRegisters() const
{
    return mConfiguration.HasSerialRegisters() && mConfiguration.mBulk0Registers;
}

uint32_t CameraState::FunctionCapabilities() const
{
    // A test may set the whole word, also to values that a sound device does not report.
    return mConfiguration.mFunctionCapabilities.value_or(cImplemented | mConfiguration.mUartCount);
}

uint32_t CameraState::BulkCapabilities() const
{
    // The register speaks of bulk port 0 alone, since that is the only one with registers.
    const bool lI2C = HasBulkRegisters() && mConfiguration.mBulk[0].mI2C;
    return mConfiguration.mBulkCapabilities.value_or(lI2C ? cBulkI2C : 0U);
}

UartPort* CameraState::FindUartRegister(uint32_t aAddress)
{
    // Null for a UART that the camera does not have, so its address is that of no register.
    return aAddress == cUart0Data ? mUarts[0].get() : aAddress == cUart1Data ? mUarts[1].get() : nullptr;
}

Outcome CameraState::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    // Alignment is checked before the address: a misaligned address gets this answer wherever it points.
    if (aAddress % 4 != 0)
    {
        return {Status::BadAlignment, "Registers are at multiples of 4."};
    }
    if (!mConfiguration.HasSerialRegisters())
    {
        return NoSuchRegister();
    }
    if (aAddress == cInterruptEnable)
    {
        aValue = mInterruptEnable;
        return {};
    }
    if (UartPort* const lUart = FindUartRegister(aAddress))
    {
        // A read takes the byte out of the port. Even a register dump does that.
        aValue = lUart->ReadData();
        return {};
    }
    if (mConfiguration.mCapabilityRegisters &&
        (aAddress == cFunctionCapabilities || aAddress == cBulkCapabilities))
    {
        aValue = aAddress == cFunctionCapabilities ? FunctionCapabilities() : BulkCapabilities();
        return {};
    }
    if (HasBulkRegisters() && (aAddress == cBulk0Configuration || aAddress == cBulk0Rate))
    {
        aValue = aAddress == cBulk0Configuration ? mBulks[0]->GetConfiguration() : mBulks[0]->GetRate();
        return {};
    }
    return NoSuchRegister();
}

Outcome CameraState::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    if (aAddress % 4 != 0)
    {
        return {Status::BadAlignment, "Registers are at multiples of 4."};
    }
    if (!mConfiguration.HasSerialRegisters())
    {
        return NoSuchRegister();
    }
    if (aAddress == cInterruptEnable)
    {
        mInterruptEnable = aValue; // what waits is raised by the step that follows every access
        return {};
    }
    if (UartPort* const lUart = FindUartRegister(aAddress))
    {
        lUart->WriteData(aValue);
        return {};
    }
    if (mConfiguration.mCapabilityRegisters &&
        (aAddress == cFunctionCapabilities || aAddress == cBulkCapabilities))
    {
        // They exist, so the answer differs from that for an address without a register.
        return {Status::WriteProtect, "Capabilities cannot be written."};
    }
    if (HasBulkRegisters() && aAddress == cBulk0Configuration)
    {
        WriteBulkConfiguration(aValue);
        return {};
    }
    if (HasBulkRegisters() && aAddress == cBulk0Rate)
    {
        mBulks[0]->SetRate(aValue);
        return {};
    }
    return NoSuchRegister();
}

void CameraState::WriteBulkConfiguration(uint32_t aValue)
{
    // Features show these settings too: an application that keeps their values has to hear of the change.
    BulkPort& lBulk = *mBulks[0];
    const Protocol lProtocol = lBulk.GetProtocol();
    const uint32_t lSpeed = lBulk.GetSpeedIndex();
    lBulk.SetConfiguration(aValue);
    if (lBulk.GetProtocol() != lProtocol)
    {
        SayChanged(FeatureId::BulkMode, Port::Bulk0);
    }
    if (lBulk.GetSpeedIndex() != lSpeed)
    {
        SayChanged(FeatureId::BaudRate, Port::Bulk0);
    }
}

Outcome CameraState::WriteMemory(uint32_t aAddress, const uint8_t* aData, size_t aSize)
{
    // The flags of an I2C transfer are part of the address; a UART takes the same addresses and ignores them.
    constexpr uint32_t cFlags = cWindowFast | cWindowStop | cWindowThird | cWindowTransfer;
    if (!HasBulkRegisters() || (aAddress & ~cFlags) != cTransmitWindow)
    {
        return {Status::InvalidAddress, "There is no memory to write at this address."};
    }
    if (aData == nullptr || aSize == 0)
    {
        return {Status::InvalidParameter, "There is nothing to write."};
    }
    I2CFlags lFlags;
    lFlags.mFast = (aAddress & cWindowFast) != 0;
    lFlags.mStop = (aAddress & cWindowStop) != 0;
    lFlags.mThird = (aAddress & cWindowThird) != 0;
    lFlags.mTransfer = (aAddress & cWindowTransfer) != 0;
    return mBulks[0]->WriteWindow(aData, aSize, lFlags);
}

} // namespace KySimulator
