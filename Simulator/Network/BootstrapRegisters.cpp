#include "Simulator/Network/BootstrapRegisters.h"

#include <algorithm>

namespace KySimulator
{

namespace
{

using namespace KyGvcp;

// Registers that can be read one by one. All memory between them can be read as a block, and holds zeros.
constexpr std::array<uint32_t, 32> cReadable = {cVersionRegister,
                                                cDeviceModeRegister,
                                                cMacHighRegister,
                                                cMacLowRegister,
                                                cInterfaceCapabilityRegister,
                                                cInterfaceConfigurationRegister,
                                                cAddressRegister,
                                                cSubnetMaskRegister,
                                                cGatewayRegister,
                                                cInterfaceCountRegister,
                                                cPersistentAddressRegister,
                                                cPersistentMaskRegister,
                                                cPersistentGatewayRegister,
                                                cMessageChannelCountRegister,
                                                cStreamChannelCountRegister,
                                                cMessageCapabilityRegister,
                                                cCapabilityRegister,
                                                cHeartbeatRegister,
                                                cTickFrequencyHighRegister,
                                                cTickFrequencyLowRegister,
                                                cTimestampHighRegister,
                                                cTimestampLowRegister,
                                                cConfigurationRegister,
                                                cPendingTimeoutRegister,
                                                cControlPrivilegeRegister,
                                                cPrimaryPortRegister,
                                                cPrimaryAddressRegister,
                                                cMessagePortRegister,
                                                cMessageAddressRegister,
                                                cMessageTimeoutRegister,
                                                cMessageRetriesRegister,
                                                cMessageSourcePortRegister};

constexpr std::array<uint32_t, 11> cWritable = {cInterfaceConfigurationRegister,
                                                cPersistentAddressRegister,
                                                cPersistentMaskRegister,
                                                cPersistentGatewayRegister,
                                                cHeartbeatRegister,
                                                cConfigurationRegister,
                                                cMessagePortRegister,
                                                cMessageAddressRegister,
                                                cMessageTimeoutRegister,
                                                cMessageRetriesRegister,
                                                cControlPrivilegeRegister};

template<size_t Count>
bool IsIn(const std::array<uint32_t, Count>& aList, uint32_t aAddress)
{
    return std::find(aList.begin(), aList.end(), aAddress) != aList.end();
}

bool IsText(uint32_t aAddress)
{
    return (aAddress >= cVendorRegister && aAddress < cDiscoverySize) ||
           (aAddress >= cFirstUrlRegister && aAddress < cSecondUrlRegister + cUrlSize);
}

Outcome NoSuchRegister()
{
    return {Status::InvalidAddress, "There is no such register."};
}

} // namespace

BootstrapRegisters::BootstrapRegisters(CameraModel& aCamera) : mCamera(aCamera)
{
    const CameraConfiguration& lCamera = aCamera.GetConfiguration();
    Set(cVersionRegister, 0x00020000);
    Set(cDeviceModeRegister, 0x80000001); // big-endian, UTF-8
    Set(cMacHighRegister, static_cast<uint32_t>(lCamera.mMacAddress >> 32U));
    Set(cMacLowRegister, static_cast<uint32_t>(lCamera.mMacAddress & 0xFFFFFFFFU));
    Set(cInterfaceCapabilityRegister, cLinkLocal | cPersistentIp);
    Set(cInterfaceConfigurationRegister, cLinkLocal);
    SetText(cVendorRegister, cTextSize, lCamera.mVendor);
    SetText(cModelRegister, cTextSize, lCamera.mModel);
    SetText(cDeviceVersionRegister, cTextSize, lCamera.mVersion);
    SetText(cInformationRegister, cInformationSize, lCamera.mManufacturerInfo);
    SetText(cSerialNumberRegister, cShortTextSize, lCamera.mSerialNumber);
    Set(cInterfaceCountRegister, 1);
    Set(cMessageChannelCountRegister, 1);
    Set(cMessageCapabilityRegister, 0x80000000); // has the source port register
    Set(cCapabilityRegister, cCanConcatenate | cCanWriteMemory | cCanEvent | cCanEventData | cCanPendingAck |
                                 cCanControlSocket | cHasSerialNumber | cHasUserName);
    Set(cHeartbeatRegister, cHeartbeat);
    Set(cPendingTimeoutRegister, cPendingTimeout);
    // One tick is a nanosecond, the unit of the camera's own clock.
    Set(cTickFrequencyLowRegister, 1000000000);
    Set(cMessageTimeoutRegister, cMessageTimeout);
    Set(cMessageRetriesRegister, cMessageRetries);
}

void BootstrapRegisters::SetIdentity(const NetworkIdentity& aIdentity)
{
    Set(cAddressRegister, aIdentity.mAddress);
    Set(cSubnetMaskRegister, aIdentity.mMask);
    Set(cGatewayRegister, aIdentity.mGateway);
    SetText(cFirstUrlRegister, cUrlSize, aIdentity.mFirstUrl);
    SetText(cSecondUrlRegister, cUrlSize, aIdentity.mSecondUrl);
}

uint32_t BootstrapRegisters::Get(uint32_t aAddress) const
{
    // Clients choose the address, so it is checked here for everybody.
    return aAddress <= cSize - 4 ? Reader(Bytes(mImage).subspan(aAddress, 4)).Take32() : 0;
}

void BootstrapRegisters::Set(uint32_t aAddress, uint32_t aValue)
{
    for (uint32_t lByte = 0; lByte < 4 && aAddress <= cSize - 4; ++lByte)
    {
        mImage[aAddress + lByte] = static_cast<uint8_t>((aValue >> (24U - 8U * lByte)) & 0xFFU);
    }
}

void BootstrapRegisters::SetText(uint32_t aAddress, size_t aLength, const std::string& aText)
{
    const auto lField = mImage.begin() + static_cast<ptrdiff_t>(aAddress);
    // Cleared first: the end of a longer text before would stay and be read as part of this one.
    std::fill_n(lField, aLength, static_cast<uint8_t>(0));
    std::copy_n(aText.begin(), std::min(aText.size(), aLength), lField);
}

void BootstrapRegisters::Refresh()
{
    std::string lName;
    static_cast<void>(mCamera.GetText("DeviceUserID", lName)); // ignored: every camera has it
    // The name can also be changed as a feature, so it is fetched anew for each read.
    SetText(cUserNameRegister, cShortTextSize, lName);
}

Outcome BootstrapRegisters::Read(uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    // A register between two others that this device lacks is refused, although a block over it reads as zeros.
    if (!IsIn(cReadable, aAddress) && !IsText(aAddress))
    {
        return NoSuchRegister();
    }
    Refresh();
    aValue = Get(aAddress);
    return {};
}

Outcome BootstrapRegisters::Write(uint32_t aAddress, uint32_t aValue)
{
    // Can be written and not read, so it is in neither list.
    if (aAddress == cTimestampControlRegister)
    {
        ControlTimestamp(aValue);
        return {};
    }
    if (!IsIn(cWritable, aAddress))
    {
        return IsIn(cReadable, aAddress) || IsText(aAddress)
                   ? Outcome(Status::WriteProtect, "The register can only be read.")
                   : NoSuchRegister();
    }
    if (aAddress == cInterfaceConfigurationRegister)
    {
        // A link-local address cannot be switched off: the standard wants it of each device.
        Set(aAddress, cLinkLocal | (aValue & cPersistentIp));
        return {};
    }
    if (aAddress == cConfigurationRegister)
    {
        Set(aAddress, aValue & cPendingAckEnabled); // the one choice that this device leaves
        return {};
    }
    // A shorter heartbeat than this would drop the controller between two of its own commands.
    Set(aAddress, aAddress == cHeartbeatRegister ? std::max(aValue, cShortestHeartbeat) : aValue);
    return {};
}

void BootstrapRegisters::ControlTimestamp(uint32_t aValue)
{
    constexpr uint32_t cReset = 0x1;
    constexpr uint32_t cLatch = 0x2;
    const Time lNow = mCamera.GetScheduler().Now();
    // Both bits at once latch the time that has passed, and then start again at zero.
    if ((aValue & cLatch) != 0)
    {
        const auto lTicks = static_cast<uint64_t>((lNow - mTimestampStart).count());
        Set(cTimestampHighRegister, static_cast<uint32_t>(lTicks >> 32U));
        Set(cTimestampLowRegister, static_cast<uint32_t>(lTicks & 0xFFFFFFFFU));
    }
    if ((aValue & cReset) != 0)
    {
        mTimestampStart = lNow;
    }
}

Outcome BootstrapRegisters::ReadMemory(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData)
{
    aData.clear();
    // In this order: a sum of the two could overflow.
    if (aAddress > cSize || aCount > cSize - aAddress)
    {
        return NoSuchRegister();
    }
    Refresh();
    const auto lBegin = mImage.begin() + static_cast<ptrdiff_t>(aAddress);
    aData.assign(lBegin, lBegin + static_cast<ptrdiff_t>(aCount));
    return {};
}

Outcome BootstrapRegisters::WriteText(uint32_t aAddress, Bytes aData)
{
    if (aAddress != cUserNameRegister || aData.size() > cShortTextSize)
    {
        return NoSuchRegister();
    }
    // Clients write the whole field or only the text: what counts ends at the first zero byte.
    const std::string lText(aData.begin(), std::find(aData.begin(), aData.end(), uint8_t{0}));
    return mCamera.SetText("DeviceUserID", lText);
}

} // namespace KySimulator
