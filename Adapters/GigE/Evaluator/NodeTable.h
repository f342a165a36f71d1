#pragma once

#include "Adapters/GigE/Evaluator/NameIndex.h"
#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KyGigE
{

/// What a node of a description is.
enum class ElementKind : uint8_t
{
    Other, ///< Tolerated, and no feature: Node, ConfRom, SmartFeature and the like.
    Category,
    Integer,
    IntReg,
    MaskedIntReg,
    StructEntry,
    Float,
    FloatReg,
    Boolean,
    Enumeration,
    EnumEntry, ///< No feature; has no name in the table.
    Command,
    String,
    StringReg,
    Register,
    SwissKnife,
    IntSwissKnife,
    Converter,
    IntConverter,
    Port
};

/// What one element inside a node says.
enum class PropertyId : uint8_t
{
    None, ///< Nothing that matters here.
    // Texts.
    Visibility,
    ToolTip,
    AccessMode,
    ImposedAccessMode,
    Cachable,
    PollingTime,
    Value,
    Min,
    Max,
    Inc,
    ValidValueSet,
    Representation,
    Address,
    Length,
    Sign,
    Endianess,
    Bit,
    Lsb,
    Msb,
    OnValue,
    OffValue,
    CommandValue,
    Symbolic,
    NumericValue,
    ValueDefault,
    ValueIndexed,
    Formula,
    FormulaTo,
    FormulaFrom,
    Slope,
    Constant,
    Expression,
    EventId,
    ChunkId,
    IndexOffset, ///< Attribute of the Index before it.
    // References.
    Entry, ///< An EnumEntry that is a node inside the enumeration.
    Feature,
    Selected,
    Invalidator,
    IsImplemented,
    IsAvailable,
    IsLocked,
    PValue,
    PValueCopy,
    PMin,
    PMax,
    PInc,
    PAddress,
    PLength,
    PPort,
    Index,
    PIndexOffset, ///< Attribute of the Index before it.
    PValueIndexed,
    PValueDefault,
    PCommandValue,
    Variable,
    PChunkId,
    OtherReference ///< What it refers to takes part in a way that only a change notice needs.
};

struct Property
{
    PropertyId mId = PropertyId::None;
    NodeId mNode = cNoNode;      ///< What a reference leads to; cNoNode when there is no such node.
    std::string_view mText;      ///< The element's text.
    std::string_view mAttribute; ///< Its Name or Index.
};

struct Node
{
    std::string_view mName; ///< Empty for entries and formulas inside other nodes.
    ElementKind mKind = ElementKind::Other;
    uint32_t mFirst = 0; ///< Properties.
    uint32_t mCount = 0;
};

/// The nodes of a description and what they say, names resolved. Constant once made.
class NodeTable
{
public:
    static constexpr size_t cMostNodes = 100'000;
    static constexpr size_t cMostProperties = 400'000;

    /// Takes a document over. \return Empty, or what is wrong with it.
    std::string Build(XmlDocument& aDocument);

    size_t GetCount() const { return mNodes.size(); }
    const Node& Get(NodeId aNode) const { return mNodes[aNode]; }
    std::span<const Property> GetProperties(NodeId aNode) const
    {
        const Node& lNode = mNodes[aNode];
        return {mProperties.data() + lNode.mFirst, lNode.mCount};
    }
    /// The first one of a kind; null without one.
    const Property* Find(NodeId aNode, PropertyId aId) const;
    /// The text of the first one of a kind; empty without one.
    std::string_view GetText(NodeId aNode, PropertyId aId) const;
    /// The node of a name; cNoNode for none.
    NodeId FindNode(std::string_view aName) const;

private:
    bool IsFull() const;
    void Collect(const XmlDocument& aDocument, XmlDocument::Index aParent);
    NodeId AddNode(const XmlDocument& aDocument, XmlDocument::Index aElement, ElementKind aKind,
                   const std::vector<Property>& aShared);
    std::vector<Property> TakeProperties(const XmlDocument& aDocument, const XmlDocument::Element& aElement);
    void AddStructure(const XmlDocument& aDocument, const XmlDocument::Element& aStructure);
    void AddProperty(const XmlDocument& aDocument, XmlDocument::Index aChild);
    bool IndexNames();
    void Resolve();

    std::vector<Node> mNodes;
    std::vector<Property> mProperties;
    std::vector<Property> mOpen; ///< Of the nodes that are being added: one may be inside another.
    NameIndex mNames;
};

} // namespace KyGigE
