#include "Adapters/GigE/Evaluator/DeviceDescription.h"

#include "Adapters/GigE/Evaluator/Number.h"

#include <utility>

namespace KyGigE
{

namespace
{

KyResult Failure(const std::string& aText)
{
    return {KyResult::FAILURE, KyString(aText.c_str())};
}

/// Before version 1.1.
bool IsOldSchema(const XmlDocument& aDocument)
{
    const XmlDocument::Element& lRoot = aDocument.Get(0);
    const std::string_view lMajor = aDocument.GetAttribute(lRoot, "SchemaMajorVersion");
    return !lMajor.empty() && ParseInteger(lMajor).value_or(0) < 2 &&
           ParseInteger(aDocument.GetAttribute(lRoot, "SchemaMinorVersion")).value_or(0) == 0;
}

} // namespace

KyResult DeviceDescription::Parse(std::string aXml, std::unique_ptr<DeviceDescription>& aDescription)
{
    aDescription.reset();
    std::unique_ptr<DeviceDescription> lDescription(new DeviceDescription);
    XmlDocument& lDocument = lDescription->mDocument;
    const std::string lNoXml = lDocument.Parse(std::move(aXml));
    if (!lNoXml.empty())
    {
        return Failure("The device's description cannot be read: " + lNoXml + ".");
    }
    if (lDocument.Get(0).mName != "RegisterDescription")
    {
        return Failure("The device's XML describes no registers.");
    }
    lDescription->mRegistersOnly = IsOldSchema(lDocument);
    const std::string lUnfit = lDescription->mNodes.Build(lDocument);
    if (!lUnfit.empty())
    {
        return Failure("The device's description cannot be used: " + lUnfit + ".");
    }
    lDescription->mGraph = std::make_unique<const Dependencies>(lDescription->mNodes);
    aDescription = std::move(lDescription);
    return {};
}

} // namespace KyGigE
