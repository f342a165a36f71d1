#pragma once

#include <rapidxml/rapidxml.hpp>
#include <string>

namespace KySimulator
{

/// An XML document that is being made. The library under it escapes what texts and attributes may not hold.
class XmlTree
{
public:
    using Node = rapidxml::xml_node<>; ///< Belongs to the tree.

    /// \param aRoot  Name of the outermost element.
    explicit XmlTree(const std::string& aRoot) { mRoot = &Append(mDocument, aRoot, {}); }

    Node& GetRoot() { return *mRoot; }
    /// Appends an element to another one.
    Node& Append(Node& aParent, const std::string& aName, const std::string& aText);
    void SetAttribute(Node& aNode, const std::string& aName, const std::string& aValue);

    /// All of it, as UTF-8, with the declaration that begins a document.
    std::string Print() const;

private:
    const char* Keep(const std::string& aText)
    {
        return mDocument.allocate_string(aText.c_str(), aText.size() + 1);
    }

    rapidxml::xml_document<> mDocument; // owns every text too
    Node* mRoot = nullptr;
};

} // namespace KySimulator
