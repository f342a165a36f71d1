#include "Simulator/Camera/FeatureTable.h"

#include <KySerial/DeviceProtocol.h>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

void AddSettings(FeatureTable& aTable, const std::string& aPrefix, std::optional<Port> aPort)
{
    aTable[aPrefix + cBaudRateSuffix] = {FeatureId::BaudRate, FeatureKind::Enumeration, true, true, aPort};
    aTable[aPrefix + cParitySuffix] = {FeatureId::Parity, FeatureKind::Enumeration, true, true, aPort};
    aTable[aPrefix + cStopBitsSuffix] = {FeatureId::StopBits, FeatureKind::Enumeration, true, true, aPort};
}

void AddBulkPort(FeatureTable& aTable, size_t aBulk, bool aSelector)
{
    const Port lPort = BulkPortOf(aBulk);
    aTable[DownstreamFeature(aBulk)] = {FeatureId::Downstream, FeatureKind::Register, false, true, lPort};
    aTable[UpstreamBufferFeature(aBulk)] = {FeatureId::UpstreamBuffer, FeatureKind::Register, true, false,
                                            lPort};
    aTable[UpstreamLengthFeature(aBulk)] = {FeatureId::UpstreamLength, FeatureKind::Integer, true, false,
                                            lPort};
    // A camera has the line settings either once, moved by the selector, or once for each port by its name.
    if (!aSelector)
    {
        AddSettings(aTable, BulkName(aBulk), lPort);
    }
}

void AddIdentity(FeatureTable& aTable, const CameraConfiguration& aConfiguration)
{
    aTable[cVendorFeature] = {FeatureId::Vendor, FeatureKind::String, true, false, {}};
    aTable["DeviceVersion"] = {FeatureId::Version, FeatureKind::String, true, false, {}};
    aTable["DeviceManufacturerInfo"] = {FeatureId::ManufacturerInfo, FeatureKind::String, true, false, {}};
    aTable["DeviceModelName"] = {FeatureId::Model, FeatureKind::String, true, false, {}};
    aTable[cSerialNumberFeature] = {FeatureId::SerialNumber, FeatureKind::String, true, false, {}};
    aTable["DeviceUserID"] = {FeatureId::UserID, FeatureKind::String, true, true, {}};
    // Only GigE Vision devices have a MAC address. The library identifies the others by vendor and serial number.
    if (aConfiguration.mTransport == Transport::GigEVision)
    {
        aTable[cMacAddressFeature] = {FeatureId::MacAddress, FeatureKind::Integer, true, false, {}};
    }
}

} // namespace

FeatureTable MakeFeatureTable(const CameraConfiguration& aConfiguration)
{
    FeatureTable lTable;
    AddIdentity(lTable, aConfiguration);
    for (size_t lUart = 0; lUart < aConfiguration.mUartCount; ++lUart)
    {
        AddSettings(lTable, UartName(lUart), static_cast<Port>(lUart));
    }
    // Without a port that has features there is nothing for a selector to select.
    if (aConfiguration.FirstFeaturePort() == cBulkCount)
    {
        return lTable;
    }
    for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
    {
        if (aConfiguration.mBulk[lBulk].mFeatures)
        {
            AddBulkPort(lTable, lBulk, aConfiguration.mBulkSelector);
        }
    }
    // There is one mode feature in either form: without a selector it belongs to the lowest port.
    lTable[cBulkModeFeature] = {FeatureId::BulkMode, FeatureKind::Enumeration, true, true, {}};
    lTable[cEventSelectorFeature] = {FeatureId::EventSelector, FeatureKind::Enumeration, true, true, {}};
    lTable[cEventNotificationFeature] = {
        FeatureId::EventNotification, FeatureKind::Enumeration, true, true, {}};
    if (aConfiguration.mBulkSelector)
    {
        lTable[cBulkSelectorFeature] = {FeatureId::BulkSelector, FeatureKind::Enumeration, true, true, {}};
        AddSettings(lTable, cBulkPrefix, {});
    }
    return lTable;
}

const char* NameOf(Protocol aProtocol)
{
    switch (aProtocol)
    {
    case Protocol::Usrt:
        return "USRT";
    case Protocol::Uart:
        return "UART";
    case Protocol::I2C:
        return "I2C";
    case Protocol::Spi:
        return "SPI";
    }
    return "";
}

} // namespace KySimulator
