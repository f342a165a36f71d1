#include "Adapters/GigE/Evaluator/NodeTable.h"

#include "Adapters/GigE/Evaluator/WordTable.h"

#include <algorithm>

namespace KyGigE
{

namespace
{

using Index = XmlDocument::Index;

constexpr auto cKinds = MakeWordTable<ElementKind>({{"Category", ElementKind::Category},
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

constexpr auto cProperties = MakeWordTable<PropertyId>({{"Visibility", PropertyId::Visibility},
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
                                                        // So the standard spells it.
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

bool IsReference(PropertyId aId)
{
    return aId > PropertyId::Entry;
}

ElementKind KindOf(std::string_view aElement)
{
    return cKinds.Find(aElement).value_or(ElementKind::Other);
}

} // namespace

std::string NodeTable::Build(XmlDocument& aDocument)
{
    mProperties.reserve(std::min(aDocument.GetCount(), cMostProperties)); // about one for each element
    Collect(aDocument, 0);
    // The nodes have views of the text from here on; the elements would only take memory.
    aDocument.DropElements();
    std::vector<Property>().swap(mOpen);
    if (IsFull())
    {
        return "it has too many nodes";
    }
    if (!IndexNames())
    {
        return "the names of its nodes are too much alike";
    }
    // After all names are known: a description may refer to nodes that come later.
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
            AddNode(aDocument, lChild, KindOf(lElement.mName), {});
        }
    }
}

void NodeTable::AddStructure(const XmlDocument& aDocument, const XmlDocument::Element& aStructure)
{
    const std::vector<Property> lShared =
        TakeProperties(aDocument, aStructure); // once: there may be very many entries
    for (Index lChild = aStructure.mFirstChild; lChild != XmlDocument::cNone && !IsFull();
         lChild = aDocument.Get(lChild).mNext)
    {
        if (aDocument.Get(lChild).mName == "StructEntry")
        {
            AddNode(aDocument, lChild, ElementKind::StructEntry, lShared);
        }
    }
}

/// What an element's children say, as properties.
std::vector<Property> NodeTable::TakeProperties(const XmlDocument& aDocument,
                                                const XmlDocument::Element& aElement)
{
    const auto lFirst = static_cast<ptrdiff_t>(mOpen.size());
    for (Index lChild = aElement.mFirstChild; lChild != XmlDocument::cNone;
         lChild = aDocument.Get(lChild).mNext)
    {
        AddProperty(aDocument, lChild);
    }
    std::vector<Property> lProperties(mOpen.begin() + lFirst, mOpen.end());
    mOpen.erase(mOpen.begin() + lFirst, mOpen.end());
    return lProperties;
}

// \param aShared  Of the structure that an entry is in: the entry lies where it lies, and its elements count
// after the entry's own.
NodeId NodeTable::AddNode(const XmlDocument& aDocument, Index aElement, ElementKind aKind,
                          const std::vector<Property>& aShared)
{
    const auto lId = static_cast<NodeId>(mNodes.size());
    const XmlDocument::Element& lElement = aDocument.Get(aElement);
    // The node's number is taken before its children are read: nodes inside it get higher ones.
    mNodes.push_back({aDocument.GetAttribute(lElement, "Name"), aKind, 0, 0});
    const auto lFirst = static_cast<ptrdiff_t>(mOpen.size());
    for (Index lChild = lElement.mFirstChild; lChild != XmlDocument::cNone;
         lChild = aDocument.Get(lChild).mNext)
    {
        AddProperty(aDocument, lChild);
    }
    const auto lPlace = static_cast<uint32_t>(mProperties.size());
    mProperties.insert(mProperties.end(), mOpen.begin() + lFirst, mOpen.end());
    mProperties.insert(mProperties.end(), aShared.begin(), aShared.end());
    mOpen.erase(mOpen.begin() + lFirst, mOpen.end());
    mNodes[lId].mFirst = lPlace;
    mNodes[lId].mCount = static_cast<uint32_t>(mProperties.size()) - lPlace;
    return lId;
}

void NodeTable::AddProperty(const XmlDocument& aDocument, Index aChild)
{
    const XmlDocument::Element& lChild = aDocument.Get(aChild);
    // A node inside another one, which holds no further ones. A formula inside a register is a part of its address.
    if (lChild.mName == "EnumEntry" || lChild.mName == "IntSwissKnife")
    {
        const bool lEntry = lChild.mName == "EnumEntry";
        const NodeId lNode =
            AddNode(aDocument, aChild, lEntry ? ElementKind::EnumEntry : ElementKind::IntSwissKnife, {});
        mOpen.push_back({lEntry ? PropertyId::Entry : PropertyId::PAddress, lNode, {}, {}});
        return;
    }
    const std::optional<PropertyId> lId = cProperties.Find(lChild.mName);
    // Elements that this adapter has no use for, of makers and of later versions of the standard.
    if (!lId)
    {
        return;
    }
    const bool lIndexed = *lId == PropertyId::ValueIndexed || *lId == PropertyId::PValueIndexed;
    mOpen.push_back({*lId, cNoNode, lChild.mText,
                     lChild.mAttributeCount == 0
                         ? std::string_view()
                         : aDocument.GetAttribute(lChild, lIndexed ? "Index" : "Name")});
    // The offset is an attribute. It becomes a property of its own right after its index, where the address looks for
    // it.
    if (*lId == PropertyId::Index)
    {
        for (const auto& [lName, lOffset] :
             {std::pair{"Offset", PropertyId::IndexOffset}, std::pair{"pOffset", PropertyId::PIndexOffset}})
        {
            const std::string_view lText = aDocument.GetAttribute(lChild, lName);
            if (!lText.empty())
            {
                mOpen.push_back({lOffset, cNoNode, lText, {}});
            }
        }
    }
}

// \return False: a device has chosen names that make looking one up slow.
bool NodeTable::IndexNames()
{
    mNames.Reserve(mNodes.size());
    for (NodeId lNode = 0; lNode < mNodes.size(); ++lNode)
    {
        const bool lHasName = mNodes[lNode].mKind != ElementKind::EnumEntry && !mNodes[lNode].mName.empty();
        // Of two nodes with one name the first counts.
        if (lHasName && !mNames.Add(lNode, [this](NodeId aNode) { return mNodes[aNode].mName; }))
        {
            return false;
        }
    }
    return true;
}

void NodeTable::Resolve()
{
    for (Property& lProperty : mProperties)
    {
        // A reference to a node that does not exist stays empty. It fails where it is used, and the rest of the
        // description works.
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
    return mNames.Find(aName, [this](NodeId aNode) { return mNodes[aNode].mName; });
}

} // namespace KyGigE
