#include "Adapters/GigE/GenApi/DeviceDescription.h"

#include "Adapters/GigE/GenApi/EventAddress.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace KyGigE
{

namespace
{

constexpr size_t cLargest = size_t{64} << 20U;

KyResult Failure(const std::string& aText)
{
    return {KyResult::FAILURE, KyString(aText.c_str())};
}

/// Moves a register that lies on an event port into the event space: addresses of a register add up.
void MoveRegister(xmlNode& aElement, const std::map<std::string, uint16_t>& aPorts)
{
    xmlNode* const lReference = ChildOf(aElement, "pPort");
    const auto lPort = lReference != nullptr ? aPorts.find(ContentOf(*lReference)) : aPorts.end();
    if (lPort == aPorts.end())
    {
        return;
    }
    char lAddress[24];
    std::snprintf(lAddress, sizeof(lAddress), "0x%" PRIX64, EventAddress(lPort->second));
    xmlNode* const lNode =
        xmlNewDocNode(aElement.doc, aElement.ns, reinterpret_cast<const xmlChar*>("Address"),
                      reinterpret_cast<const xmlChar*>(lAddress));
    xmlAddPrevSibling(lReference, lNode);
}

void MoveEvents(const xmlNode& aParent, const std::map<std::string, uint16_t>& aPorts)
{
    ForEachChild(aParent,
                 [&](xmlNode& aElement)
                 {
                     if (NameOf(aElement) == "Group")
                     {
                         ForEachChild(aElement, [&](xmlNode& aInner) { MoveRegister(aInner, aPorts); });
                     }
                     MoveRegister(aElement, aPorts);
                 });
}

/// Takes the identifiers off the ports, which are ordinary ones then.
void DropEventIDs(xmlNode& aElement)
{
    ForEachChild(aElement,
                 [](xmlNode& aChild)
                 {
                     if (NameOf(aChild) == "EventID")
                     {
                         xmlUnlinkNode(&aChild);
                         xmlFreeNode(&aChild);
                         return;
                     }
                     if (NameOf(aChild) == "Port" || NameOf(aChild) == "Group")
                     {
                         DropEventIDs(aChild);
                     }
                 });
}

/// Before version 1.1.
bool IsOldSchema(const xmlNode& aRoot)
{
    const std::string lMajor = AttributeOf(aRoot, "SchemaMajorVersion");
    const std::string lMinor = AttributeOf(aRoot, "SchemaMinorVersion");
    return !lMajor.empty() && std::strtoul(lMajor.c_str(), nullptr, 10) < 2 &&
           std::strtoul(lMinor.c_str(), nullptr, 10) == 0;
}

} // namespace

DeviceDescription::DeviceDescription(xmlDoc& aDocument, const xmlNode& aRoot)
    : mGraph(aRoot), mRegistersOnly(IsOldSchema(aRoot))
{
    MoveEvents(aRoot, mGraph.GetEventPorts());
    DropEventIDs(*xmlDocGetRootElement(&aDocument));
    mXml = XmlText(aDocument);
}

KyResult DeviceDescription::Parse(const std::string& aXml, std::unique_ptr<DeviceDescription>& aDescription)
{
    aDescription.reset();
    const XmlDocument lDocument = aXml.size() <= cLargest ? ParseXml(aXml) : nullptr;
    const xmlNode* const lRoot = lDocument != nullptr ? xmlDocGetRootElement(lDocument.get()) : nullptr;
    if (lRoot == nullptr)
    {
        return Failure("The device's description is no XML.");
    }
    if (NameOf(*lRoot) != "RegisterDescription")
    {
        return Failure("The device's XML describes no registers.");
    }
    std::unique_ptr<DeviceDescription> lDescription(new DeviceDescription(*lDocument, *lRoot));
    const std::string lEndless = lDescription->mGraph.FindEndlessReference();
    if (!lEndless.empty())
    {
        return Failure("The device's description cannot be used: " + lEndless);
    }
    aDescription = std::move(lDescription);
    return {};
}

} // namespace KyGigE
