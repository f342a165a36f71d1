#include "Adapters/GigE/GenApi/XmlDocument.h"

#include <libxml/parser.h>

#include <climits>
#include <utility>

namespace KyGigE
{

namespace
{

const xmlChar* Chars(const char* aText)
{
    return reinterpret_cast<const xmlChar*>(aText);
}

/// Takes over a text of the parser's library.
std::string Taken(xmlChar* aText)
{
    if (aText == nullptr)
    {
        return {};
    }
    std::string lText(reinterpret_cast<const char*>(aText));
    xmlFree(aText);
    return lText;
}

std::string Trimmed(const std::string& aText)
{
    const char* const cBlanks = " \t\r\n";
    const size_t lFirst = aText.find_first_not_of(cBlanks);
    return lFirst == std::string::npos ? std::string()
                                       : aText.substr(lFirst, aText.find_last_not_of(cBlanks) - lFirst + 1);
}

} // namespace

XmlDocument ParseXml(const std::string& aText)
{
    if (aText.empty() || aText.size() > INT_MAX)
    {
        return nullptr;
    }
    XmlDocument lDocument(
        xmlReadMemory(aText.data(), static_cast<int>(aText.size()), "device.xml", nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA));
    // Descriptions have no document type; one that has may hold entities that grow without end.
    return lDocument != nullptr && lDocument->intSubset == nullptr ? std::move(lDocument) : nullptr;
}

std::string XmlText(xmlDoc& aDocument)
{
    xmlChar* lText = nullptr;
    int lSize = 0;
    xmlDocDumpMemoryEnc(&aDocument, &lText, &lSize, "UTF-8");
    return Taken(lText);
}

std::string NameOf(const xmlNode& aElement)
{
    return reinterpret_cast<const char*>(aElement.name);
}

std::string AttributeOf(const xmlNode& aElement, const char* aName)
{
    return Taken(xmlGetNoNsProp(&aElement, Chars(aName)));
}

std::string ContentOf(const xmlNode& aElement)
{
    return Trimmed(Taken(xmlNodeGetContent(&aElement)));
}

xmlNode* ChildOf(const xmlNode& aElement, const char* aName)
{
    xmlNode* lChild = aElement.children;
    while (lChild != nullptr && (lChild->type != XML_ELEMENT_NODE || NameOf(*lChild) != aName))
    {
        lChild = lChild->next;
    }
    return lChild;
}

void ForEachChild(const xmlNode& aElement, const std::function<void(xmlNode&)>& aDo)
{
    xmlNode* lChild = aElement.children;
    while (lChild != nullptr)
    {
        xmlNode* const lNext = lChild->next;
        if (lChild->type == XML_ELEMENT_NODE)
        {
            aDo(*lChild);
        }
        lChild = lNext;
    }
}

} // namespace KyGigE
