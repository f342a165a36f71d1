#pragma once

#include <libxml/tree.h>

#include <functional>
#include <memory>
#include <string>

namespace KyGigE
{

/// Frees a document.
struct XmlDocumentEnd
{
    void operator()(xmlDoc* aDocument) const { xmlFreeDoc(aDocument); }
};
using XmlDocument = std::unique_ptr<xmlDoc, XmlDocumentEnd>;

/// Parses a text that is not trusted: no entities of its own, no network, no other files. Null when it is no
/// XML.
XmlDocument ParseXml(const std::string& aText);

/// The document as text.
std::string XmlText(xmlDoc& aDocument);

/// An element's name without its namespace.
std::string NameOf(const xmlNode& aElement);
/// An attribute's value; empty without the attribute.
std::string AttributeOf(const xmlNode& aElement, const char* aName);
/// The text inside an element, without blanks round it.
std::string ContentOf(const xmlNode& aElement);
/// The first child element of that name; null without one.
xmlNode* ChildOf(const xmlNode& aElement, const char* aName);
/// Calls aDo for each child element; it may remove the element that it gets.
void ForEachChild(const xmlNode& aElement, const std::function<void(xmlNode&)>& aDo);

} // namespace KyGigE
