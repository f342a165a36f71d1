#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KyGigE
{

/// A text of XML as a table of its elements.
///
/// The reader is our own: a description comes from a device and is not trusted, and a reader whose depth has
/// to be bounded beforehand needs a second one that sees comments, quotes and CDATA exactly as it does. This
/// one never calls itself, copies nothing, and stops at its limits.
///
/// It knows elements, attributes, character data, CDATA, comments, processing instructions, the five entities
/// of XML and character references. A document type makes a text unreadable: it may hold entities that grow.
class XmlDocument
{
public:
    using Index = uint32_t;
    static constexpr Index cNone = UINT32_MAX;

    static constexpr size_t cLargestText = size_t{8} << 20U;
    static constexpr size_t cMostElements = 250'000;
    static constexpr size_t cMostAttributes = 250'000;
    static constexpr size_t cDeepest = 100;

    struct Element
    {
        std::string_view mName;
        std::string_view mText; ///< Before the first child, without the blanks at both ends.
        Index mFirstChild = cNone;
        Index mNext = cNone; ///< Of the same parent.
        Index mFirstAttribute = 0;
        uint32_t mAttributeCount = 0;
    };

    XmlDocument() = default;
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    /// Reads a text, once. Zeros and blanks after its end count for nothing: devices store texts in blocks.
    /// \return Empty, or what is wrong. Then there are no elements.
    std::string Parse(std::string aText);

    bool IsEmpty() const { return mElements.empty(); }
    size_t GetCount() const { return mElements.size(); }
    /// The root is element 0.
    const Element& Get(Index aElement) const { return mElements[aElement]; }
    std::string_view GetAttribute(const Element& aElement, std::string_view aName) const;
    /// The text of the first child of a name; empty without one.
    std::string_view GetChildText(const Element& aElement, std::string_view aName) const;
    /// Gives the table's memory back; names and texts that were taken out of it stay good.
    void DropElements();

private:
    friend class XmlReader;

    struct Attribute
    {
        std::string_view mName;
        std::string_view mValue;
    };

    std::string mText; ///< The views point into it.
    std::vector<Element> mElements;
    std::vector<Attribute> mAttributes;
};

} // namespace KyGigE
