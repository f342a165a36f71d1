#include "Simulator/Network/XmlTree.h"

#include <iterator>
#include <rapidxml/rapidxml_print.hpp>

namespace KySimulator
{

XmlTree::Node& XmlTree::Append(Node& aParent, const std::string& aName, const std::string& aText)
{
    // The library keeps pointers, not texts; Keep() lets the texts live as long as the document.
    Node* const lNode =
        mDocument.allocate_node(rapidxml::node_element, Keep(aName), Keep(aText), aName.size(), aText.size());
    aParent.append_node(lNode);
    return *lNode;
}

void XmlTree::SetAttribute(Node& aNode, const std::string& aName, const std::string& aValue)
{
    aNode.append_attribute(
        mDocument.allocate_attribute(Keep(aName), Keep(aValue), aName.size(), aValue.size()));
}

std::string XmlTree::Print() const
{
    std::string lText = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    rapidxml::print(std::back_inserter(lText), static_cast<const Node&>(mDocument));
    return lText;
}

} // namespace KySimulator
