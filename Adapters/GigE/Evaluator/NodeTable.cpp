#include "Adapters/GigE/Evaluator/NodeTable.h"

#include <KyBase/KyPermanent.h>

#include <algorithm>

namespace KyGigE
{

namespace
{

using Index = XmlDocument::Index;

// Never destroyed: an adapter that is a static object may connect again while the program ends.
template<typename Meaning>
using Words = std::unordered_map<std::string_view, Meaning>;

const Words<ElementKind>& Kinds()
{
    static KyPermanent<Words<ElementKind>> sKinds(
        std::initializer_list<Words<ElementKind>::value_type>{{"Category", ElementKind::Category},
                                                              {"Integer", ElementKind::Integer},
                                                              {"IntReg", ElementKind::IntReg},
                                                              {"MaskedIntReg", ElementKind::MaskedIntReg},
                                                              {"StructEntry", ElementKind::StructEntry},
                                                              {"Float", ElementKind::Float},
                                                              {"FloatReg", ElementKind::FloatReg},
                                                              {"Boolean", ElementKind::Boolean},
                                                              {"Enumeration", ElementKind::Enumeration},
                                                              {"Command", ElementKind::Command},
                                                              {"String", ElementKind::String},
                                                              {"StringReg", ElementKind::StringReg},
                                                              {"Register", ElementKind::Register},
                                                              {"SwissKnife", ElementKind::SwissKnife},
                                                              {"IntSwissKnife", ElementKind::IntSwissKnife},
                                                              {"Converter", ElementKind::Converter},
                                                              {"IntConverter", ElementKind::IntConverter},
                                                              {"Port", ElementKind::Port}});
    return sKinds.Get();
}

const Words<PropertyId>& Properties()
{
    static KyPermanent<Words<PropertyId>> sProperties(std::initializer_list<Words<PropertyId>::value_type>{
        {"Visibility", PropertyId::Visibility},
        {"ToolTip", PropertyId::ToolTip},
        {"AccessMode", PropertyId::AccessMode},
        {"ImposedAccessMode", PropertyId::ImposedAccessMode},
        {"Cachable", PropertyId::Cachable},
        {"PollingTime", PropertyId::PollingTime},
        {"Value", PropertyId::Value},
        {"Min", PropertyId::Min},
        {"Max", PropertyId::Max},
        {"Inc", PropertyId::Inc},
        {"ValidValueSet", PropertyId::ValidValueSet},
        {"Representation", PropertyId::Representation},
        {"Address", PropertyId::Address},
        {"Length", PropertyId::Length},
        {"Sign", PropertyId::Sign},
        {"Endianess", PropertyId::Endianess},
        {"Bit", PropertyId::Bit},
        {"LSB", PropertyId::Lsb},
        {"MSB", PropertyId::Msb},
        {"OnValue", PropertyId::OnValue},
        {"OffValue", PropertyId::OffValue},
        {"CommandValue", PropertyId::CommandValue},
        {"Symbolic", PropertyId::Symbolic},
        {"NumericValue", PropertyId::NumericValue},
        {"ValueDefault", PropertyId::ValueDefault},
        {"ValueIndexed", PropertyId::ValueIndexed},
        {"Formula", PropertyId::Formula},
        {"FormulaTo", PropertyId::FormulaTo},
        {"FormulaFrom", PropertyId::FormulaFrom},
        {"Slope", PropertyId::Slope},
        {"Constant", PropertyId::Constant},
        {"Expression", PropertyId::Expression},
        {"EventID", PropertyId::EventId},
        {"ChunkID", PropertyId::ChunkId},
        {"pFeature", PropertyId::Feature},
        {"pSelected", PropertyId::Selected},
        {"pInvalidator", PropertyId::Invalidator},
        {"pIsImplemented", PropertyId::IsImplemented},
        {"pIsAvailable", PropertyId::IsAvailable},
        {"pIsLocked", PropertyId::IsLocked},
        {"pValue", PropertyId::PValue},
        {"pValueCopy", PropertyId::PValueCopy},
        {"pMin", PropertyId::PMin},
        {"pMax", PropertyId::PMax},
        {"pInc", PropertyId::PInc},
        {"pAddress", PropertyId::PAddress},
        {"pLength", PropertyId::PLength},
        {"pPort", PropertyId::PPort},
        {"pIndex", PropertyId::Index},
        {"pValueIndexed", PropertyId::PValueIndexed},
        {"pValueDefault", PropertyId::PValueDefault},
        {"pCommandValue", PropertyId::PCommandValue},
        {"pVariable", PropertyId::Variable},
        {"pChunkID", PropertyId::PChunkId},
        {"pBlockPolling", PropertyId::OtherReference}});
    return sProperties.Get();
}

bool IsReference(PropertyId aId)
{
    return aId > PropertyId::Entry;
}

ElementKind KindOf(std::string_view aElement)
{
    const auto lFound = Kinds().find(aElement);
    return lFound != Kinds().end() ? lFound->second : ElementKind::Other;
}

} // namespace

std::string NodeTable::Build(XmlDocument& aDocument)
{
    Collect(aDocument, 0);
    aDocument.DropElements();
    if (IsFull())
    {
        return "it has too many nodes";
    }
    Resolve();
    return {};
}

// Entries of a structure share its elements, so there may be more than the document has.
bool NodeTable::IsFull() const
{
    return mNodes.size() > cMostNodes || mProperties.size() > cMostProperties;
}

void NodeTable::Collect(const XmlDocument& aDocument, Index aParent)
{
    for (Index lChild = aDocument.Get(aParent).mFirstChild; lChild != XmlDocument::cNone && !IsFull();
         lChild = aDocument.Get(lChild).mNext)
    {
        const XmlDocument::Element& lElement = aDocument.Get(lChild);
        if (lElement.mName == "Group")
        {
            Collect(aDocument, lChild); // the document's depth is bounded
        }
        else if (lElement.mName == "StructReg")
        {
            AddStructure(aDocument, lElement);
        }
        else
        {
            AddNode(aDocument, lChild, KindOf(lElement.mName), nullptr);
        }
    }
}

void NodeTable::AddStructure(const XmlDocument& aDocument, const XmlDocument::Element& aStructure)
{
    for (Index lChild = aStructure.mFirstChild; lChild != XmlDocument::cNone && !IsFull();
         lChild = aDocument.Get(lChild).mNext)
    {
        if (aDocument.Get(lChild).mName == "StructEntry")
        {
            AddNode(aDocument, lChild, ElementKind::StructEntry, &aStructure);
        }
    }
}

// \param aOwner  The structure that an entry is in: the entry lies where it lies, and its elements count
// after the entry's own.
NodeId NodeTable::AddNode(const XmlDocument& aDocument, Index aElement, ElementKind aKind,
                          const XmlDocument::Element* aOwner)
{
    const auto lId = static_cast<NodeId>(mNodes.size());
    const XmlDocument::Element& lElement = aDocument.Get(aElement);
    mNodes.push_back({{}, aKind, 0, 0});
    std::vector<Property> lProperties;
    for (const XmlDocument::Element* lSource : {&lElement, aOwner})
    {
        for (Index lChild = lSource != nullptr ? lSource->mFirstChild : XmlDocument::cNone;
             lChild != XmlDocument::cNone; lChild = aDocument.Get(lChild).mNext)
        {
            AddProperty(aDocument, lChild, lProperties);
        }
    }
    Node& lNode = mNodes[lId];
    lNode.mName = aDocument.GetAttribute(lElement, "Name");
    lNode.mFirst = static_cast<uint32_t>(mProperties.size());
    lNode.mCount = static_cast<uint32_t>(lProperties.size());
    mProperties.insert(mProperties.end(), lProperties.begin(), lProperties.end());
    if (aKind != ElementKind::EnumEntry && !lNode.mName.empty())
    {
        mNames.try_emplace(lNode.mName, lId); // of two nodes with one name the first counts
    }
    return lId;
}

void NodeTable::AddProperty(const XmlDocument& aDocument, Index aChild, std::vector<Property>& aProperties)
{
    const XmlDocument::Element& lChild = aDocument.Get(aChild);
    // A node inside another one, which holds no further ones.
    if (lChild.mName == "EnumEntry" || lChild.mName == "IntSwissKnife")
    {
        const bool lEntry = lChild.mName == "EnumEntry";
        const NodeId lNode =
            AddNode(aDocument, aChild, lEntry ? ElementKind::EnumEntry : ElementKind::IntSwissKnife, nullptr);
        aProperties.push_back({lEntry ? PropertyId::Entry : PropertyId::PAddress, lNode, {}, {}});
        return;
    }
    const auto lFound = Properties().find(lChild.mName);
    if (lFound == Properties().end())
    {
        return;
    }
    const bool lIndexed =
        lFound->second == PropertyId::ValueIndexed || lFound->second == PropertyId::PValueIndexed;
    aProperties.push_back({lFound->second, cNoNode, lChild.mText,
                           lChild.mAttributeCount == 0
                               ? std::string_view()
                               : aDocument.GetAttribute(lChild, lIndexed ? "Index" : "Name")});
    if (lFound->second == PropertyId::Index)
    {
        for (const auto& [lName, lId] :
             {std::pair{"Offset", PropertyId::IndexOffset}, std::pair{"pOffset", PropertyId::PIndexOffset}})
        {
            const std::string_view lText = aDocument.GetAttribute(lChild, lName);
            if (!lText.empty())
            {
                aProperties.push_back({lId, cNoNode, lText, {}});
            }
        }
    }
}

void NodeTable::Resolve()
{
    for (Property& lProperty : mProperties)
    {
        if (IsReference(lProperty.mId) && lProperty.mNode == cNoNode)
        {
            lProperty.mNode = FindNode(lProperty.mText);
        }
    }
}

const Property* NodeTable::Find(NodeId aNode, PropertyId aId) const
{
    for (const Property& lProperty : GetProperties(aNode))
    {
        if (lProperty.mId == aId)
        {
            return &lProperty;
        }
    }
    return nullptr;
}

std::string_view NodeTable::GetText(NodeId aNode, PropertyId aId) const
{
    const Property* const lProperty = Find(aNode, aId);
    return lProperty != nullptr ? lProperty->mText : std::string_view();
}

NodeId NodeTable::FindNode(std::string_view aName) const
{
    const auto lFound = mNames.find(aName);
    return lFound != mNames.end() ? lFound->second : cNoNode;
}

} // namespace KyGigE
