#include "Simulator/Camera/FeatureTable.h"

namespace KySimulator
{

namespace
{

void AddSettings(FeatureTable& aTable, const std::string& aPrefix, std::optional<Port> aPort)
{
    aTable[aPrefix + "BaudRate"] = {FeatureId::BaudRate, FeatureKind::Enumeration, true, true, aPort};
    aTable[aPrefix + "Parity"] = {FeatureId::Parity, FeatureKind::Enumeration, true, true, aPort};
    aTable[aPrefix + "NumOfStopBits"] = {FeatureId::StopBits, FeatureKind::Enumeration, true, true, aPort};
}

void AddBulkPort(FeatureTable& aTable, size_t aBulk, bool aSelector)
{
    const Port lPort = BulkPortOf(aBulk);
    const std::string lName = "Bulk" + std::to_string(aBulk);
    aTable[lName + "DownstreamData"] = {FeatureId::Downstream, FeatureKind::Register, false, true, lPort};
    aTable["Event" + lName + "UpstreamDataBuffer"] = {FeatureId::UpstreamBuffer, FeatureKind::Register, true,
                                                      false, lPort};
    aTable["Event" + lName + "UpstreamDataLength"] = {FeatureId::UpstreamLength, FeatureKind::Integer, true,
                                                      false, lPort};
    if (!aSelector)
    {
        AddSettings(aTable, lName, lPort);
    }
}

void AddIdentity(FeatureTable& aTable, const CameraConfiguration& aConfiguration)
{
    aTable["DeviceVendorName"] = {FeatureId::Vendor, FeatureKind::String, true, false, {}};
    aTable["DeviceModelName"] = {FeatureId::Model, FeatureKind::String, true, false, {}};
    aTable["DeviceSerialNumber"] = {FeatureId::SerialNumber, FeatureKind::String, true, false, {}};
    aTable["DeviceUserID"] = {FeatureId::UserID, FeatureKind::String, true, true, {}};
    if (aConfiguration.mTransport == Transport::GigEVision)
    {
        aTable["GevMACAddress"] = {FeatureId::MacAddress, FeatureKind::Integer, true, false, {}};
    }
}

} // namespace

FeatureTable MakeFeatureTable(const CameraConfiguration& aConfiguration)
{
    FeatureTable lTable;
    AddIdentity(lTable, aConfiguration);
    for (size_t lUart = 0; lUart < aConfiguration.mUartCount; ++lUart)
    {
        AddSettings(lTable, "Uart" + std::to_string(lUart), static_cast<Port>(lUart));
    }
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
    lTable["BulkMode"] = {FeatureId::BulkMode, FeatureKind::Enumeration, true, true, {}};
    lTable["EventSelector"] = {FeatureId::EventSelector, FeatureKind::Enumeration, true, true, {}};
    lTable["EventNotification"] = {FeatureId::EventNotification, FeatureKind::Enumeration, true, true, {}};
    if (aConfiguration.mBulkSelector)
    {
        lTable["BulkSelector"] = {FeatureId::BulkSelector, FeatureKind::Enumeration, true, true, {}};
        AddSettings(lTable, "Bulk", {});
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
