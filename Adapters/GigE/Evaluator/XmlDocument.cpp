#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <utility>

namespace KyGigE
{

namespace
{

bool IsBlank(char aChar)
{
    return aChar == ' ' || aChar == '\t' || aChar == '\r' || aChar == '\n';
}

/// Which characters names are made of, as a table: names are most of a description.
constexpr std::array<bool, 256> MakeNameChars()
{
    std::array<bool, 256> lChars{};
    for (size_t lChar = 0; lChar < lChars.size(); ++lChar)
    {
        lChars[lChar] = lChar >= 0x80 || (lChar >= 'a' && lChar <= 'z') || (lChar >= 'A' && lChar <= 'Z') ||
                        (lChar >= '0' && lChar <= '9') || lChar == '_' || lChar == '-' || lChar == '.' ||
                        lChar == ':';
    }
    return lChars;
}

bool IsNameChar(char aChar)
{
    static constexpr std::array<bool, 256> cNameChars = MakeNameChars();
    return cNameChars[static_cast<unsigned char>(aChar)];
}

std::string_view Trimmed(std::string_view aText)
{
    while (!aText.empty() && IsBlank(aText.front()))
    {
        aText.remove_prefix(1);
    }
    while (!aText.empty() && IsBlank(aText.back()))
    {
        aText.remove_suffix(1);
    }
    return aText;
}

/// Writes a code point as UTF-8, which is never longer than the reference that it was written as.
size_t PutCodePoint(uint32_t aCode, char* aTarget)
{
    if (aCode < 0x80)
    {
        aTarget[0] = static_cast<char>(aCode);
        return 1;
    }
    const size_t lMore = aCode < 0x800 ? 1 : aCode < 0x10000 ? 2 : 3;
    constexpr std::array<uint32_t, 4> cLead = {0, 0xC0, 0xE0, 0xF0};
    aTarget[0] = static_cast<char>(cLead[lMore] | aCode >> (6 * lMore));
    for (size_t lByte = 1; lByte <= lMore; ++lByte)
    {
        aTarget[lByte] = static_cast<char>(0x80U | ((aCode >> (6 * (lMore - lByte))) & 0x3FU));
    }
    return lMore + 1;
}

/// \param aName  What stands between '&' and ';'. \return The code point; 0 for none.
uint32_t CodePointOf(std::string_view aName)
{
    constexpr std::array<std::pair<std::string_view, char>, 5> cEntities = {
        {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
    for (const auto& [lName, lChar] : cEntities)
    {
        if (aName == lName)
        {
            return static_cast<unsigned char>(lChar);
        }
    }
    if (aName.size() < 2 || aName[0] != '#')
    {
        return 0;
    }
    const bool lHexadecimal = aName[1] == 'x';
    const char* const lEnd = aName.data() + aName.size();
    uint32_t lCode = 0;
    const auto lResult =
        std::from_chars(aName.data() + (lHexadecimal ? 2 : 1), lEnd, lCode, lHexadecimal ? 16 : 10);
    // Halves of a pair in UTF-16 are no characters.
    const bool lSurrogate = lCode >= 0xD800 && lCode < 0xE000;
    return lResult.ec == std::errc() && lResult.ptr == lEnd && lCode <= 0x10FFFF && !lSurrogate ? lCode : 0;
}

} // namespace

/// One pass over a document's text.
class XmlReader
{
public:
    explicit XmlReader(XmlDocument& aDocument)
        : mDocument(aDocument), mNext(aDocument.mText.data()), mEnd(mNext + aDocument.mText.size())
    {
    }

    /// \return Empty, or what is wrong.
    const char* Read()
    {
        // Windows programs put this mark in front of UTF-8.
        if (StartsWith("\xEF\xBB\xBF"))
        {
            mNext += 3;
        }
        while (mProblem == nullptr && mNext != mEnd && *mNext != '\0')
        {
            if (*mNext != '<')
            {
                ReadText();
            }
            else
            {
                ReadMarkup();
            }
        }
        // Devices fill the rest of their memory with zeros, which end the text. Anything else there is a part of a
        // document.
        const bool lRest = std::any_of(mNext, mEnd, [](char aChar) { return aChar != 0 && !IsBlank(aChar); });
        if (mProblem == nullptr && (mDocument.mElements.empty() || !mOpen.empty() || lRest))
        {
            mProblem = "it ends too early";
        }
        return mProblem;
    }

private:
    using Index = XmlDocument::Index;

    struct OpenElement
    {
        Index mElement;
        Index mLastChild;
        char* mTextBegin; // of its own character data, null before there is any
        char* mTextEnd;
    };

    bool StartsWith(std::string_view aText) const
    {
        return static_cast<size_t>(mEnd - mNext) >= aText.size() &&
               std::memcmp(mNext, aText.data(), aText.size()) == 0;
    }

    void Fail(const char* aProblem) { mProblem = aProblem; }

    /// The next place of a text; null after a failure.
    char* Find(std::string_view aText)
    {
        char* const lFound = std::search(mNext, mEnd, aText.begin(), aText.end());
        if (lFound == mEnd)
        {
            Fail("it ends too early");
            return nullptr;
        }
        return lFound;
    }

    static char* FindOrEnd(char* aBegin, char* aEnd, char aChar)
    {
        void* const lFound =
            aBegin != aEnd ? std::memchr(aBegin, aChar, static_cast<size_t>(aEnd - aBegin)) : nullptr;
        return lFound != nullptr ? static_cast<char*>(lFound) : aEnd;
    }

    void SkipTo(std::string_view aEnd)
    {
        if (char* const lFound = Find(aEnd))
        {
            mNext = lFound + aEnd.size();
        }
    }

    void SkipBlanks()
    {
        while (mNext != mEnd && IsBlank(*mNext))
        {
            ++mNext;
        }
    }

    std::string_view ReadName()
    {
        char* const lBegin = mNext;
        while (mNext != mEnd && IsNameChar(*mNext))
        {
            ++mNext;
        }
        if (lBegin == mNext)
        {
            Fail("a name is missing");
        }
        return {lBegin, static_cast<size_t>(mNext - lBegin)};
    }

    /// Replaces references between aBegin and aEnd. \return The new end.
    char* Decode(char* aBegin, char* aEnd)
    {
        char* lTarget = FindOrEnd(aBegin, aEnd, '&');
        char* lSource = lTarget;
        while (lSource != aEnd)
        {
            if (*lSource != '&')
            {
                *lTarget++ = *lSource++;
                continue;
            }
            // The longest reference, "&#x0010FFFF;", has 12 characters. Without a limit a lone '&' would be searched
            // for to the end each time.
            constexpr ptrdiff_t cLongest = 12;
            char* const lLimit = aEnd - lSource > cLongest ? lSource + cLongest : aEnd;
            char* const lStop = std::find(lSource, lLimit, ';');
            const uint32_t lCode =
                lStop != lLimit ? CodePointOf({lSource + 1, static_cast<size_t>(lStop - lSource - 1)}) : 0;
            if (lCode == 0)
            {
                Fail("an entity is unknown");
                return lTarget;
            }
            // In place: what is written is never longer than the reference that it replaces.
            lTarget += PutCodePoint(lCode, lTarget);
            lSource = lStop + 1;
        }
        return lTarget;
    }

    void AddText(char* aBegin, char* aEnd)
    {
        if (mOpen.empty())
        {
            if (std::any_of(aBegin, aEnd, [](char aChar) { return !IsBlank(aChar); }))
            {
                Fail("there is text outside the root element");
            }
            return;
        }
        OpenElement& lOpen = mOpen.back();
        // An element with children has no value of its own; between them are blanks.
        if (lOpen.mLastChild != XmlDocument::cNone)
        {
            return;
        }
        if (lOpen.mTextBegin == nullptr)
        {
            lOpen.mTextBegin = aBegin;
            lOpen.mTextEnd = aEnd;
            return;
        }
        // Comments or CDATA are between the pieces; nothing there is needed any more.
        const auto lSize = static_cast<size_t>(aEnd - aBegin);
        std::memmove(lOpen.mTextEnd, aBegin, lSize);
        lOpen.mTextEnd += lSize;
    }

    void ReadText()
    {
        char* const lBegin = mNext;
        mNext = FindOrEnd(lBegin, mEnd, '<');
        mNext = FindOrEnd(lBegin, mNext, '\0'); // the text's own end
        AddText(lBegin, Decode(lBegin, mNext));
    }

    void ReadMarkup()
    {
        if (StartsWith("</"))
        {
            ReadEnd();
        }
        else if (StartsWith("<?"))
        {
            SkipTo("?>");
        }
        else if (StartsWith("<!--"))
        {
            mNext += 4;
            SkipTo("-->");
        }
        else if (StartsWith("<![CDATA["))
        {
            mNext += 9;
            char* const lBegin = mNext;
            if (char* const lStop = Find("]]>"))
            {
                mNext = lStop + 3;
                AddText(lBegin, lStop);
            }
        }
        else if (StartsWith("<!"))
        {
            // It may define entities, which multiply a text without end. Descriptions have none.
            Fail("it has a document type");
        }
        else
        {
            ReadBegin();
        }
    }

    void ReadBegin()
    {
        ++mNext;
        XmlDocument::Element lElement;
        lElement.mName = ReadName();
        // The attributes of all elements are one list, an element's in a row: a description has tens of thousands.
        lElement.mFirstAttribute = static_cast<Index>(mDocument.mAttributes.size());
        SkipBlanks();
        while (mProblem == nullptr && mNext != mEnd && *mNext != '>' && *mNext != '/')
        {
            ReadAttribute();
            ++lElement.mAttributeCount;
        }
        const bool lEmpty = StartsWith("/>");
        if (mProblem == nullptr && !lEmpty && !StartsWith(">"))
        {
            Fail("a tag does not end");
        }
        if (mProblem == nullptr)
        {
            mNext += lEmpty ? 2 : 1;
            Open(lElement);
        }
        if (lEmpty && mProblem == nullptr)
        {
            mOpen.pop_back();
        }
    }

    void Open(const XmlDocument::Element& aElement)
    {
        auto& lElements = mDocument.mElements;
        const auto lIndex = static_cast<Index>(lElements.size());
        if (lElements.size() >= XmlDocument::cMostElements || mOpen.size() >= XmlDocument::cDeepest)
        {
            Fail("it has too many elements");
            return;
        }
        if (mOpen.empty() && lIndex != 0)
        {
            Fail("it has two root elements");
            return;
        }
        lElements.push_back(aElement);
        if (!mOpen.empty())
        {
            OpenElement& lParent = mOpen.back();
            CloseText(lParent);
            // Linked at its end, so that children keep their order without a search for the last one.
            (lParent.mLastChild == XmlDocument::cNone ? lElements[lParent.mElement].mFirstChild
                                                      : lElements[lParent.mLastChild].mNext) = lIndex;
            lParent.mLastChild = lIndex;
        }
        mOpen.push_back({lIndex, XmlDocument::cNone, nullptr, nullptr});
    }

    void CloseText(const OpenElement& aOpen)
    {
        if (aOpen.mLastChild == XmlDocument::cNone && aOpen.mTextBegin != nullptr)
        {
            mDocument.mElements[aOpen.mElement].mText =
                Trimmed({aOpen.mTextBegin, static_cast<size_t>(aOpen.mTextEnd - aOpen.mTextBegin)});
        }
    }

    void ReadEnd()
    {
        mNext += 2;
        const std::string_view lName =
            mOpen.empty() ? std::string_view() : mDocument.mElements[mOpen.back().mElement].mName;
        // Compared with the element that is open: ends in the wrong order are no XML.
        const bool lFits = !lName.empty() && StartsWith(lName);
        mNext += lFits ? lName.size() : 0;
        SkipBlanks();
        if (!lFits || !StartsWith(">"))
        {
            Fail("the end of an element is missing");
            return;
        }
        ++mNext;
        CloseText(mOpen.back());
        mOpen.pop_back();
    }

    void ReadAttribute()
    {
        XmlDocument::Attribute lAttribute;
        lAttribute.mName = ReadName();
        SkipBlanks();
        if (mProblem != nullptr || !StartsWith("="))
        {
            Fail("an attribute has no value");
            return;
        }
        ++mNext;
        SkipBlanks();
        const char lQuote = mNext != mEnd ? *mNext : '\0';
        if (lQuote != '"' && lQuote != '\'')
        {
            Fail("an attribute has no value");
            return;
        }
        char* const lBegin = ++mNext;
        char* const lStop = FindOrEnd(lBegin, mEnd, lQuote);
        if (lStop == mEnd)
        {
            Fail("it ends too early");
            return;
        }
        // A quotation mark that is missing would take in the elements that follow.
        if (FindOrEnd(lBegin, lStop, '<') != lStop ||
            mDocument.mAttributes.size() >= XmlDocument::cMostAttributes)
        {
            Fail("an attribute's value does not end");
            return;
        }
        lAttribute.mValue = {lBegin, static_cast<size_t>(Decode(lBegin, lStop) - lBegin)};
        mDocument.mAttributes.push_back(lAttribute);
        mNext = lStop + 1;
        const bool lSeparated = mNext == mEnd || IsBlank(*mNext) || *mNext == '>' || *mNext == '/';
        // Two attributes without a blank between them: a quotation mark is missing, or there is one too many.
        if (!lSeparated)
        {
            Fail("a tag does not end");
        }
        SkipBlanks();
    }

    XmlDocument& mDocument;
    char* mNext;
    char* const mEnd;
    std::vector<OpenElement> mOpen;
    const char* mProblem = nullptr;
};

std::string XmlDocument::Parse(std::string aText)
{
    if (aText.size() > cLargestText)
    {
        return "it is too long";
    }
    mText = std::move(aText); // the views point there; the object never moves
    const auto lMost = static_cast<size_t>(std::count(mText.begin(), mText.end(), '<'));
    mElements.reserve(std::min(lMost, cMostElements)); // no element without one; never moved
    const char* const lProblem = XmlReader(*this).Read();
    if (lProblem == nullptr)
    {
        return {};
    }
    DropElements();
    return lProblem;
}

void XmlDocument::DropElements()
{
    std::vector<Element>().swap(mElements);
    std::vector<Attribute>().swap(mAttributes);
}

std::string_view XmlDocument::GetAttribute(const Element& aElement, std::string_view aName) const
{
    for (uint32_t lOffset = 0; lOffset < aElement.mAttributeCount; ++lOffset)
    {
        const Attribute& lAttribute = mAttributes[aElement.mFirstAttribute + lOffset];
        if (lAttribute.mName == aName)
        {
            return lAttribute.mValue;
        }
    }
    return {};
}

std::string_view XmlDocument::GetChildText(const Element& aElement, std::string_view aName) const
{
    for (Index lChild = aElement.mFirstChild; lChild != cNone; lChild = mElements[lChild].mNext)
    {
        if (mElements[lChild].mName == aName)
        {
            return mElements[lChild].mText;
        }
    }
    return {};
}

} // namespace KyGigE
