#include "Simulator/Network/DeviceXml.h"

#include "KyGvcp/Protocol.h"
#include "Simulator/Network/BootstrapRegisters.h"
#include "Simulator/Network/XmlTree.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string_view>
#include <utility>

namespace KySimulator
{

namespace
{

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

const char* SpaceOf(FeatureId aId)
{
    // These two are in the standard's list of feature names; the others are the maker's own.
    const bool lStandard = aId == FeatureId::EventSelector || aId == FeatureId::EventNotification;
    return lStandard ? "Standard" : "Custom";
}

size_t BulkOf(const FeatureRegister& aRegister)
{
    // A feature that a selector leads to has no port of its own. Its nodes stand for every port, so any number does.
    return static_cast<size_t>(aRegister.mFeature.mPort.value_or(Port::Bulk0)) - cUartCount;
}

std::string EventPort(size_t aBulk)
{
    return "EventBulk" + std::to_string(aBulk) + "UpstreamDataPort";
}

/// Where a text feature lies among the bootstrap registers; no length: it is no text there.
std::pair<uint32_t, size_t> TextPlace(FeatureId aId)
{
    switch (aId)
    {
    case FeatureId::Vendor:
        return {KyGvcp::cVendorRegister, KyGvcp::cTextSize};
    case FeatureId::Model:
        return {KyGvcp::cModelRegister, KyGvcp::cTextSize};
    case FeatureId::Version:
        return {KyGvcp::cDeviceVersionRegister, KyGvcp::cTextSize};
    case FeatureId::ManufacturerInfo:
        return {KyGvcp::cInformationRegister, KyGvcp::cInformationSize};
    case FeatureId::SerialNumber:
        return {KyGvcp::cSerialNumberRegister, KyGvcp::cShortTextSize};
    case FeatureId::UserID:
        return {KyGvcp::cUserNameRegister, KyGvcp::cShortTextSize};
    default:
        return {};
    }
}

const char* const cTransportCategory = "TransportLayerControl";

const char* CategoryOf(FeatureId aId)
{
    if (TextPlace(aId).second != 0)
    {
        return "DeviceControl";
    }
    switch (aId)
    {
    case FeatureId::MacAddress:
        return cTransportCategory;
    case FeatureId::EventSelector:
    case FeatureId::EventNotification:
    case FeatureId::UpstreamBuffer:
    case FeatureId::UpstreamLength:
        return "EventControl";
    default:
        return "SerialPorts";
    }
}

/// Elements of a node are appended in the order that the schema wants.
class Writer
{
public:
    Writer(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration,
           const NetworkForms& aForms)
        : mFeatures(aFeatures)
        , mConfiguration(aConfiguration)
        , mItemSize(aForms.mLongEventIds ? KyGvcp::cExtendedEventItemSize : KyGvcp::cEventItemSize)
    {
    }

    std::string Write();

private:
    using Node = XmlTree::Node;

    Node& AddNode(const std::string& aKind, const std::string& aName, const std::string& aSpace);
    void Add(Node& aNode, const std::string& aName, const std::string& aText)
    {
        mTree.Append(aNode, aName, aText);
    }
    Node& AddRegister(const std::string& aKind, const std::string& aName, const std::string& aSpace,
                      uint32_t aAddress, size_t aLength, const char* aMode,
                      const std::string& aPort = cDevicePort);
    void AddNumberForm(Node& aRegister);
    void AddHead();
    void AddCategories();
    void AddTransportLayer();
    void AddFeature(const FeatureRegister& aRegister);
    void AddText(const FeatureRegister& aRegister);
    void AddEntry(Node& aEnumeration, const FeatureRegister& aRegister, size_t aValue);
    void AddEnumeration(const FeatureRegister& aRegister);
    void AddModeMask(const FeatureRegister& aRegister);
    void AddUpstreamBuffer(const FeatureRegister& aRegister);
    void AddUpstreamLength(const FeatureRegister& aRegister);
    std::vector<std::string> SelectedBy(FeatureId aSelector) const;

    const FeatureRegisters& mFeatures;
    const CameraConfiguration& mConfiguration;
    const size_t mItemSize;
    XmlTree mTree{"RegisterDescription"};
};

Writer::Node& Writer::AddNode(const std::string& aKind, const std::string& aName, const std::string& aSpace)
{
    Node& lNode = mTree.Append(mTree.GetRoot(), aKind, {});
    mTree.SetAttribute(lNode, "Name", aName);
    mTree.SetAttribute(lNode, "NameSpace", aSpace);
    return lNode;
}

Writer::Node& Writer::AddRegister(const std::string& aKind, const std::string& aName,
                                  const std::string& aSpace, uint32_t aAddress, size_t aLength,
                                  const char* aMode, const std::string& aPort)
{
    Node& lNode = AddNode(aKind, aName, aSpace);
    Add(lNode, "Address", Hex(aAddress));
    Add(lNode, "Length", std::to_string(aLength));
    Add(lNode, "AccessMode", aMode);
    Add(lNode, "pPort", aPort);
    // Every register may change without a write: by another application, a selector or the device itself.
    Add(lNode, "Cachable", "NoCache");
    return lNode;
}

void Writer::AddNumberForm(Node& aRegister)
{
    Add(aRegister, "Sign", "Unsigned");
    Add(aRegister, "Endianess", "BigEndian");
}

void Writer::AddHead()
{
    const std::array<std::pair<const char*, std::string>, 15> lAttributes = {
        {{"ModelName", Identifier(mConfiguration.mModel)},
         {"VendorName", Identifier(mConfiguration.mVendor)},
         {"ToolTip", mConfiguration.mVendor + ' ' + mConfiguration.mModel},
         {"StandardNameSpace", "GEV"},
         {"SchemaMajorVersion", "1"},
         {"SchemaMinorVersion", "1"},
         {"SchemaSubMinorVersion", "0"},
         {"MajorVersion", "1"},
         {"MinorVersion", "0"},
         {"SubMinorVersion", "0"},
         {"ProductGuid", "6D1B6C0E-6C3B-4B8C-9C7E-3F5A0E6B1D21"},
         {"VersionGuid", "0B9E3A54-12CE-4E0B-8B61-7C1D6B0F4A93"},
         {"xmlns", "http://www.genicam.org/GenApi/Version_1_1"},
         {"xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance"},
         {"xsi:schemaLocation", "http://www.genicam.org/GenApi/Version_1_1 "
                                "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd"}}};
    for (const auto& [lName, lValue] : lAttributes)
    {
        mTree.SetAttribute(mTree.GetRoot(), lName, lValue);
    }
}

void Writer::AddCategories()
{
    Node& lRoot = AddNode("Category", "Root", "Standard");
    for (const char* const lCategory : {"DeviceControl", cTransportCategory, "SerialPorts", "EventControl"})
    {
        std::vector<std::string> lFeatures;
        for (const FeatureRegister& lRegister : mFeatures.GetList())
        {
            if (std::string_view(CategoryOf(lRegister.mFeature.mId)) == lCategory)
            {
                lFeatures.push_back(lRegister.mName);
            }
        }
        if (lCategory == cTransportCategory)
        {
            lFeatures.insert(lFeatures.end(), cTransportFeatures.begin(), cTransportFeatures.end());
        }
        // The schema wants no empty category.
        if (lFeatures.empty())
        {
            continue;
        }
        Add(lRoot, "pFeature", lCategory);
        const bool lCustom = std::string_view(lCategory) == "SerialPorts";
        Node& lNode = AddNode("Category", lCategory, lCustom ? "Custom" : "Standard");
        for (const std::string& lFeature : lFeatures)
        {
            Add(lNode, "pFeature", lFeature);
        }
    }
}

// What belongs to the way to the camera, not to the camera: applications expect these three of every device.
void Writer::AddTransportLayer()
{
    Node& lHeartbeat = AddNode("Integer", "GevHeartbeatTimeout", "Standard");
    // The feature is a node of its own over the register: a limit and a unit belong to the feature.
    Add(lHeartbeat, "pValue", "GevHeartbeatTimeoutReg");
    Add(lHeartbeat, "Min", std::to_string(BootstrapRegisters::cShortestHeartbeat));
    Add(lHeartbeat, "Unit", "ms");
    AddNumberForm(
        AddRegister("IntReg", "GevHeartbeatTimeoutReg", "Custom", KyGvcp::cHeartbeatRegister, 4, "RW"));
    Node& lPrivilege = AddNode("Enumeration", "GevCCP", "Standard");
    const std::array<std::pair<const char*, uint32_t>, 3> lEntries = {
        {{"OpenAccess", 0},
         {"ExclusiveAccess", KyGvcp::cExclusiveAccess},
         {"ControlAccess", KyGvcp::cControlAccess}}};
    for (const auto& [lName, lValue] : lEntries)
    {
        Node& lEntry = mTree.Append(lPrivilege, "EnumEntry", {});
        mTree.SetAttribute(lEntry, "Name", lName);
        mTree.SetAttribute(lEntry, "NameSpace", "Standard");
        Add(lEntry, "Value", std::to_string(lValue));
    }
    Add(lPrivilege, "pValue", "GevCCPReg");
    AddNumberForm(AddRegister("IntReg", "GevCCPReg", "Custom", KyGvcp::cControlPrivilegeRegister, 4, "RW"));
    Node& lLocked = AddNode("Integer", "TLParamsLocked", "Standard"); // kept by the application
    Add(lLocked, "Value", "0");
    Add(lLocked, "Min", "0");
    Add(lLocked, "Max", "1");
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
                // A feature with a port of its own, such as a UART's rate, follows no selector.
                ? lOfPort && !lRegister.mFeature.mPort.has_value()
                : aSelector == FeatureId::EventSelector && lId == FeatureId::EventNotification;
        if (lSelected)
        {
            lNames.push_back(lRegister.mName);
        }
    }
    return lNames;
}

void Writer::AddEntry(Node& aEnumeration, const FeatureRegister& aRegister, size_t aValue)
{
    const std::string& lName = aRegister.mEntries[aValue];
    Node& lEntry = mTree.Append(aEnumeration, "EnumEntry", {});
    mTree.SetAttribute(lEntry, "Name", lName);
    mTree.SetAttribute(lEntry, "NameSpace", SpaceOf(aRegister.mFeature.mId));
    if (aRegister.mFeature.mId == FeatureId::BulkMode)
    {
        // Which modes a port offers depends on the port that is selected, so the device is asked each time.
        Add(lEntry, "pIsAvailable", aRegister.mName + lName + "Available");
    }
    Add(lEntry, "Value", std::to_string(aValue));
}

void Writer::AddModeMask(const FeatureRegister& aRegister)
{
    for (size_t lValue = 0; lValue < aRegister.mEntries.size(); ++lValue)
    {
        Node& lMask = AddRegister("MaskedIntReg", aRegister.mName + aRegister.mEntries[lValue] + "Available",
                                  "Custom", FeatureRegisters::GetModeMaskAddress(), 4, "RO");
        Add(lMask, "Bit",
            std::to_string(31 - lValue)); // bits of big-endian registers are counted from the upper end
        AddNumberForm(lMask);
    }
}

void Writer::AddEnumeration(const FeatureRegister& aRegister)
{
    Node& lNode = AddNode("Enumeration", aRegister.mName, SpaceOf(aRegister.mFeature.mId));
    for (size_t lValue = 0; lValue < aRegister.mEntries.size(); ++lValue)
    {
        AddEntry(lNode, aRegister, lValue);
    }
    Add(lNode, "pValue", aRegister.mName + "Reg");
    for (const std::string& lSelected : SelectedBy(aRegister.mFeature.mId))
    {
        Add(lNode, "pSelected", lSelected);
    }
    // The enumeration itself has no address: its number is that of a register node.
    AddNumberForm(AddRegister("IntReg", aRegister.mName + "Reg", "Custom", aRegister.mAddress, 4, "RW"));
    if (aRegister.mFeature.mId == FeatureId::BulkMode)
    {
        AddModeMask(aRegister);
    }
}

void Writer::AddUpstreamBuffer(const FeatureRegister& aRegister)
{
    const size_t lBulk = BulkOf(aRegister);
    AddRegister("Register", aRegister.mName, "Custom", static_cast<uint32_t>(mItemSize),
                mConfiguration.mUpstreamLength, "RO", EventPort(lBulk));
    // A port with an event identifier has no memory in the device: its bytes are those of the event's last message.
    Add(AddNode("Port", EventPort(lBulk), "Custom"), "EventID",
        Hex(static_cast<uint32_t>(cUpstreamEvent + lBulk)).substr(2));
}

void Writer::AddUpstreamLength(const FeatureRegister& aRegister)
{
    const std::string lData = aRegister.mName + "OfData";
    const std::string lItem = aRegister.mName + "OfItem";
    Add(AddNode("Integer", aRegister.mName, "Custom"), "pValue", lData);
    Node& lKnife = AddNode("IntSwissKnife", lData, "Custom");
    mTree.SetAttribute(mTree.Append(lKnife, "pVariable", lItem), "Name", "SIZE");
    // The event's first field is the size of the whole item, its header included.
    const std::string lHeader = std::to_string(mItemSize);
    // Applications that have seen no event yet may show one without bytes, whose size is that of a short header.
    Add(lKnife, "Formula", "SIZE > " + lHeader + " ? SIZE - " + lHeader + " : 0");
    AddNumberForm(AddRegister("IntReg", lItem, "Custom", 0, 2, "RO", EventPort(BulkOf(aRegister))));
}

void Writer::AddText(const FeatureRegister& aRegister)
{
    // Texts lie among the bootstrap registers, where discovery has them too.
    const auto [lAddress, lLength] = TextPlace(aRegister.mFeature.mId);
    AddRegister("StringReg", aRegister.mName, "Standard", lAddress, lLength,
                aRegister.mFeature.mWritable ? "RW" : "RO");
}

void Writer::AddFeature(const FeatureRegister& aRegister)
{
    if (TextPlace(aRegister.mFeature.mId).second != 0)
    {
        AddText(aRegister);
        return;
    }
    switch (aRegister.mFeature.mId)
    {
    case FeatureId::MacAddress:
        Add(AddNode("Integer", aRegister.mName, "Standard"), "pValue", aRegister.mName + "Reg");
        // The upper and the lower half of the address are two registers in a row, so they read as one number of 8
        // bytes.
        AddNumberForm(
            AddRegister("IntReg", aRegister.mName + "Reg", "Custom", KyGvcp::cMacHighRegister, 8, "RO"));
        return;
    case FeatureId::Downstream:
        AddRegister("Register", aRegister.mName, "Custom", aRegister.mAddress, aRegister.mLength, "WO");
        return;
    case FeatureId::UpstreamBuffer:
        AddUpstreamBuffer(aRegister);
        return;
    case FeatureId::UpstreamLength:
        AddUpstreamLength(aRegister);
        return;
    default:
        AddEnumeration(aRegister);
    }
}

std::string Writer::Write()
{
    AddHead();
    AddCategories();
    for (const FeatureRegister& lRegister : mFeatures.GetList())
    {
        AddFeature(lRegister);
    }
    AddTransportLayer();
    AddNode("Port", cDevicePort, "Standard");
    return mTree.Print();
}

} // namespace

std::string MakeDeviceXml(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration,
                          const NetworkForms& aForms)
{
    return Writer(aFeatures, aConfiguration, aForms).Write();
}

} // namespace KySimulator
