#include "Simulator/Network/DeviceXml.h"

#include "KyGvcp/Protocol.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string_view>

namespace KySimulator
{

namespace
{

using Elements = std::vector<std::pair<std::string, std::string>>; // names and texts

const char* const cDevicePort = "Device";

std::string Hex(uint32_t aValue)
{
    std::array<char, 11> lText{};
    std::snprintf(lText.data(), lText.size(), "0x%X", static_cast<unsigned>(aValue));
    return lText.data();
}

/// A text as a name that C would take, which is what the description's own attributes want.
std::string Identifier(const std::string& aText)
{
    std::string lName = aText;
    std::replace_if(
        lName.begin(), lName.end(),
        [](char aChar) { return std::isalnum(static_cast<unsigned char>(aChar)) == 0; }, '_');
    return lName.empty() || std::isdigit(static_cast<unsigned char>(lName[0])) != 0 ? 'C' + lName : lName;
}

std::string Element(const std::string& aName, const std::string& aText)
{
    return '<' + aName + '>' + aText + "</" + aName + '>';
}

std::string Node(const std::string& aKind, const std::string& aName, const std::string& aSpace,
                 const Elements& aElements)
{
    std::string lText = "  <" + aKind + " Name=\"" + aName + "\" NameSpace=\"" + aSpace + "\">\n";
    for (const auto& [lName, lValue] : aElements)
    {
        lText += "    " + (lName.empty() ? lValue : Element(lName, lValue)) + '\n';
    }
    return lText + "  </" + aKind + ">\n";
}

/// The elements of a register, in the order that the schema wants.
Elements Register(const std::string& aAddress, const std::string& aLength, const char* aMode,
                  const std::string& aPort = cDevicePort)
{
    return {{"Address", aAddress},
            {"Length", aLength},
            {"AccessMode", aMode},
            {"pPort", aPort},
            {"Cachable", "NoCache"}};
}

Elements Number(Elements aRegister)
{
    aRegister.emplace_back("Sign", "Unsigned");
    aRegister.emplace_back("Endianess", "BigEndian");
    return aRegister;
}

std::string TextRegister(const std::string& aName, uint32_t aAddress, size_t aLength, const char* aMode)
{
    return Node("StringReg", aName, "Standard", Register(Hex(aAddress), std::to_string(aLength), aMode));
}

const char* SpaceOf(FeatureId aId)
{
    const bool lStandard = aId == FeatureId::EventSelector || aId == FeatureId::EventNotification;
    return lStandard ? "Standard" : "Custom";
}

size_t BulkOf(const FeatureRegister& aRegister)
{
    return static_cast<size_t>(aRegister.mFeature.mPort.value_or(Port::Bulk0)) - cUartCount;
}

std::string EventPort(size_t aBulk)
{
    return "EventBulk" + std::to_string(aBulk) + "UpstreamDataPort";
}

class Writer
{
public:
    Writer(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration)
        : mFeatures(aFeatures), mConfiguration(aConfiguration)
    {
    }

    std::string Write();

private:
    std::string Head() const;
    std::string Categories() const;
    std::string FeatureNodes(const FeatureRegister& aRegister) const;
    std::string EnumerationNodes(const FeatureRegister& aRegister) const;
    std::string Entry(const FeatureRegister& aRegister, size_t aValue) const;
    static std::string ModeMaskNodes(const FeatureRegister& aRegister);
    std::string UpstreamBufferNodes(const FeatureRegister& aRegister) const;
    static std::string UpstreamLengthNodes(const FeatureRegister& aRegister);
    std::vector<std::string> SelectedBy(FeatureId aSelector) const;

    const FeatureRegisters& mFeatures;
    const CameraConfiguration& mConfiguration;
};

std::string Writer::Head() const
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<RegisterDescription ModelName=\"" +
           Identifier(mConfiguration.mModel) + "\" VendorName=\"" + Identifier(mConfiguration.mVendor) +
           "\"\n"
           "    StandardNameSpace=\"GEV\"\n"
           "    SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\"\n"
           "    MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\"\n"
           "    ProductGuid=\"6D1B6C0E-6C3B-4B8C-9C7E-3F5A0E6B1D21\"\n"
           "    VersionGuid=\"0B9E3A54-12CE-4E0B-8B61-7C1D6B0F4A93\"\n"
           "    xmlns=\"http://www.genicam.org/GenApi/Version_1_1\"\n"
           "    xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"\n"
           "    xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 "
           "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\">\n";
}

const char* CategoryOf(FeatureId aId)
{
    switch (aId)
    {
    case FeatureId::Vendor:
    case FeatureId::Model:
    case FeatureId::SerialNumber:
    case FeatureId::UserID:
        return "DeviceControl";
    case FeatureId::MacAddress:
        return "TransportLayerControl";
    case FeatureId::EventSelector:
    case FeatureId::EventNotification:
    case FeatureId::UpstreamBuffer:
    case FeatureId::UpstreamLength:
        return "EventControl";
    default:
        return "SerialPorts";
    }
}

std::string Writer::Categories() const
{
    Elements lRoot;
    std::string lText;
    for (const char* const lCategory :
         {"DeviceControl", "TransportLayerControl", "SerialPorts", "EventControl"})
    {
        Elements lFeatures;
        for (const FeatureRegister& lRegister : mFeatures.GetList())
        {
            if (std::string_view(CategoryOf(lRegister.mFeature.mId)) == lCategory)
            {
                lFeatures.emplace_back("pFeature", lRegister.mName);
            }
        }
        if (!lFeatures.empty())
        {
            lRoot.emplace_back("pFeature", lCategory);
            const bool lCustom = std::string_view(lCategory) == "SerialPorts";
            lText += Node("Category", lCategory, lCustom ? "Custom" : "Standard", lFeatures);
        }
    }
    return Node("Category", "Root", "Standard", lRoot) + lText;
}

std::vector<std::string> Writer::SelectedBy(FeatureId aSelector) const
{
    std::vector<std::string> lNames;
    for (const FeatureRegister& lRegister : mFeatures.GetList())
    {
        const FeatureId lId = lRegister.mFeature.mId;
        const bool lOfPort = lId == FeatureId::BulkMode || lId == FeatureId::BaudRate ||
                             lId == FeatureId::Parity || lId == FeatureId::StopBits;
        const bool lSelected =
            aSelector == FeatureId::BulkSelector
                ? lOfPort && !lRegister.mFeature.mPort.has_value()
                : aSelector == FeatureId::EventSelector && lId == FeatureId::EventNotification;
        if (lSelected)
        {
            lNames.push_back(lRegister.mName);
        }
    }
    return lNames;
}

std::string Writer::Entry(const FeatureRegister& aRegister, size_t aValue) const
{
    const std::string& lEntry = aRegister.mEntries[aValue];
    std::string lText =
        "<EnumEntry Name=\"" + lEntry + "\" NameSpace=\"" + SpaceOf(aRegister.mFeature.mId) + "\">";
    if (aRegister.mFeature.mId == FeatureId::BulkMode)
    {
        lText += Element("pIsAvailable", aRegister.mName + lEntry + "Available");
    }
    return lText + Element("Value", std::to_string(aValue)) + "</EnumEntry>";
}

std::string Writer::ModeMaskNodes(const FeatureRegister& aRegister)
{
    std::string lText;
    for (size_t lValue = 0; lValue < aRegister.mEntries.size(); ++lValue)
    {
        // Bits of big-endian registers are counted from the upper end.
        Elements lMask = Register(Hex(FeatureRegisters::GetModeMaskAddress()), "4", "RO");
        lMask.emplace_back("Bit", std::to_string(31 - lValue));
        lText += Node("MaskedIntReg", aRegister.mName + aRegister.mEntries[lValue] + "Available", "Custom",
                      Number(lMask));
    }
    return lText;
}

std::string Writer::EnumerationNodes(const FeatureRegister& aRegister) const
{
    Elements lElements;
    for (size_t lValue = 0; lValue < aRegister.mEntries.size(); ++lValue)
    {
        lElements.emplace_back("", Entry(aRegister, lValue));
    }
    lElements.emplace_back("pValue", aRegister.mName + "Reg");
    for (const std::string& lSelected : SelectedBy(aRegister.mFeature.mId))
    {
        lElements.emplace_back("pSelected", lSelected);
    }
    const bool lMode = aRegister.mFeature.mId == FeatureId::BulkMode;
    return Node("Enumeration", aRegister.mName, SpaceOf(aRegister.mFeature.mId), lElements) +
           Node("IntReg", aRegister.mName + "Reg", "Custom",
                Number(Register(Hex(aRegister.mAddress), "4", "RW"))) +
           (lMode ? ModeMaskNodes(aRegister) : "");
}

std::string Writer::UpstreamBufferNodes(const FeatureRegister& aRegister) const
{
    const size_t lBulk = BulkOf(aRegister);
    std::string lID = Hex(static_cast<uint32_t>(cUpstreamEvent + lBulk)).substr(2);
    return Node("Register", aRegister.mName, "Custom",
                Register(Hex(KyGvcp::cEventItemSize), std::to_string(mConfiguration.mUpstreamLength), "RO",
                         EventPort(lBulk))) +
           Node("Port", EventPort(lBulk), "Custom", {{"EventID", lID}});
}

std::string Writer::UpstreamLengthNodes(const FeatureRegister& aRegister)
{
    const std::string lData = aRegister.mName + "OfData";
    const std::string lItem = aRegister.mName + "OfItem";
    const std::string lHeader = std::to_string(KyGvcp::cEventItemSize);
    return Node("Integer", aRegister.mName, "Custom", {{"pValue", lData}}) +
           Node("IntSwissKnife", lData, "Custom",
                {{"", "<pVariable Name=\"SIZE\">" + lItem + "</pVariable>"},
                 {"Formula", "SIZE - " + lHeader}}) +
           Node("IntReg", lItem, "Custom", Number(Register("0x0", "2", "RO", EventPort(BulkOf(aRegister)))));
}

std::string Writer::FeatureNodes(const FeatureRegister& aRegister) const
{
    switch (aRegister.mFeature.mId)
    {
    case FeatureId::Vendor:
        return TextRegister(aRegister.mName, KyGvcp::cVendorRegister, KyGvcp::cTextSize, "RO");
    case FeatureId::Model:
        return TextRegister(aRegister.mName, KyGvcp::cModelRegister, KyGvcp::cTextSize, "RO");
    case FeatureId::SerialNumber:
        return TextRegister(aRegister.mName, KyGvcp::cSerialNumberRegister, KyGvcp::cShortTextSize, "RO");
    case FeatureId::UserID:
        return TextRegister(aRegister.mName, KyGvcp::cUserNameRegister, KyGvcp::cShortTextSize, "RW");
    case FeatureId::MacAddress:
        return Node("Integer", aRegister.mName, "Standard", {{"pValue", aRegister.mName + "Reg"}}) +
               Node("IntReg", aRegister.mName + "Reg", "Custom",
                    Number(Register(Hex(KyGvcp::cMacHighRegister), "8", "RO")));
    case FeatureId::Downstream:
        return Node("Register", aRegister.mName, "Custom",
                    Register(Hex(aRegister.mAddress), std::to_string(aRegister.mLength), "WO"));
    case FeatureId::UpstreamBuffer:
        return UpstreamBufferNodes(aRegister);
    case FeatureId::UpstreamLength:
        return UpstreamLengthNodes(aRegister);
    default:
        return EnumerationNodes(aRegister);
    }
}

std::string Writer::Write()
{
    std::string lText = Head() + Categories();
    for (const FeatureRegister& lRegister : mFeatures.GetList())
    {
        lText += FeatureNodes(lRegister);
    }
    return lText + Node("Port", cDevicePort, "Standard", {}) + "</RegisterDescription>\n";
}

} // namespace

std::string MakeDeviceXml(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration)
{
    return Writer(aFeatures, aConfiguration).Write();
}

} // namespace KySimulator
