// What the reader takes from a text, and which texts it refuses.

#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <gmock/gmock.h>

using KyGigE::XmlDocument;

namespace
{

std::string ProblemOf(const std::string& aText)
{
    XmlDocument lDocument;
    std::string lProblem = lDocument.Parse(aText);
    EXPECT_EQ(lProblem.empty(), !lDocument.IsEmpty());
    return lProblem;
}

/// Elements in brackets: "[a x=1 text[b]]".
std::string Shape(const XmlDocument& aDocument, XmlDocument::Index aElement)
{
    const XmlDocument::Element& lElement = aDocument.Get(aElement);
    std::string lText = "[" + std::string(lElement.mName);
    if (const std::string_view lName = aDocument.GetAttribute(lElement, "Name"); !lName.empty())
    {
        lText += " " + std::string(lName);
    }
    lText += lElement.mText.empty() ? "" : "|" + std::string(lElement.mText) + "|";
    for (XmlDocument::Index lChild = lElement.mFirstChild; lChild != XmlDocument::cNone;
         lChild = aDocument.Get(lChild).mNext)
    {
        lText += Shape(aDocument, lChild);
    }
    return lText + "]";
}

std::string Read(const std::string& aText)
{
    XmlDocument lDocument;
    const std::string lProblem = lDocument.Parse(aText);
    return lProblem.empty() ? Shape(lDocument, 0) : lProblem;
}

TEST(XmlDocumentTest, ReadsElementsTextsAndAttributes)
{
    const struct
    {
        const char* mText;
        const char* mShape;
    } lCases[] = {
        {"<a/>", "[a]"},
        {"<a></a>", "[a]"},
        {"<a ></a >", "[a]"},
        {"<?xml version=\"1.0\"?>\n<a/>\n", "[a]"},
        {"\xEF\xBB\xBF<a/>", "[a]"},
        {"<!-- <b> --><a/><!-- -->", "[a]"},
        {"<a>text</a>", "[a|text|]"},
        {"<a>  two words\r\n</a>", "[a|two words|]"},
        {"<a><b/><c>1</c></a>", "[a[b][c|1|]]"},
        {"<a><b><c/></b><b/></a>", "[a[b[c]][b]]"},
        {"<a>&lt;&gt;&amp;&quot;&apos;</a>", "[a|<>&\"'|]"},
        {"<a>&#65;&#x42;&#xE9;&#x20AC;&#x1F600;</a>", "[a|AB\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80|]"},
        {"<a>&amp;lt;</a>", "[a|&lt;|]"},
        {"<a><![CDATA[1<2&&3]]></a>", "[a|1<2&&3|]"},
        {"<a>1<![CDATA[<]]>2</a>", "[a|1<2|]"},
        {"<a>1<!-- no -->2<?x y?>3</a>", "[a|123|]"},
        {"<a>before<b>in</b>after</a>", "[a|before|[b|in|]]"},
        {"<a Name=\"n\"/>", "[a n]"},
        {"<a x='1' Name='n&amp;m' y = \"2\" ></a>", "[a n&m]"},
        {"<a Name='\">'>t</a>", "[a \">|t|]"},
        {"<ns:a xmlns:ns='x'/>", "[ns:a]"},
        {"<a/>  ", "[a]"},
    };
    for (const auto& lCase : lCases)
    {
        EXPECT_EQ(Read(lCase.mText), lCase.mShape) << lCase.mText;
    }
}

TEST(XmlDocumentTest, ZerosAfterTheEndCountForNothing)
{
    EXPECT_EQ(Read(std::string("<a/>\0\0\0\0", 8)), "[a]");
    EXPECT_EQ(Read(std::string("<a/>\n\0\0", 7)), "[a]");
    EXPECT_NE(ProblemOf(std::string("<a>\0</a>", 8)), "");
    EXPECT_NE(ProblemOf(std::string("<a/>\0<b/>", 9)), "");
}

TEST(XmlDocumentTest, RefusesWhatIsNoXml)
{
    for (const char* const lText : {"",
                                    " ",
                                    "a",
                                    "<",
                                    "<a",
                                    "<a>",
                                    "<a/",
                                    "</a>",
                                    "<a></b>",
                                    "<a><b></a></b>",
                                    "<a/><b/>",
                                    "<a/>x",
                                    "x<a/>",
                                    "<a b/>",
                                    "<a b=/>",
                                    "<a b=1/>",
                                    "<a b='1/>",
                                    "<a b='1'c='2'/>",
                                    "<a b='<'/>",
                                    "< a/>",
                                    "<a>&b;</a>",
                                    "<a>&</a>",
                                    "<a>&#0;</a>",
                                    "<a>&#xD800;</a>",
                                    "<a>&#x110000;</a>",
                                    "<a>&#;</a>",
                                    "<a>&#12",
                                    "<!-- <a/>",
                                    "<a><![CDATA[",
                                    "<a><![CDATA[]]",
                                    "<?xml",
                                    "<!DOCTYPE a><a/>",
                                    "<!DOCTYPE a [<!ENTITY b \"bbbb\"><!ENTITY c \"&b;&b;\">]><a>&c;</a>",
                                    "<a><!ELEMENT b></a>",
                                    "<1/>x",
                                    "<a //>",
                                    "<a / >"})
    {
        EXPECT_NE(ProblemOf(lText), "") << lText;
    }
}

TEST(XmlDocumentTest, EveryBeginningOfATextIsRefused)
{
    const std::string lText = "<?xml version='1.0'?><a Name='x'><!-- c --><b>&lt;<![CDATA[t]]></b></a>";
    ASSERT_EQ(ProblemOf(lText), "");
    for (size_t lSize = 0; lSize < lText.size(); ++lSize)
    {
        EXPECT_NE(ProblemOf(lText.substr(0, lSize)), "") << lSize;
    }
}

TEST(XmlDocumentTest, SizeDepthAndNumbersHaveLimits)
{
    const auto lNested = [](size_t aDepth)
    {
        std::string lText;
        for (size_t lLevel = 0; lLevel < aDepth; ++lLevel)
        {
            lText += "<a>";
        }
        for (size_t lLevel = 0; lLevel < aDepth; ++lLevel)
        {
            lText += "</a>";
        }
        return lText;
    };
    std::string lMany = "<r>";
    while (lMany.size() + 8 < XmlDocument::cLargestText)
    {
        lMany += "<a/>";
    }
    EXPECT_EQ(ProblemOf(lNested(XmlDocument::cDeepest)), "");
    EXPECT_EQ(ProblemOf(lNested(XmlDocument::cDeepest + 1)), "it has too many elements");
    EXPECT_EQ(ProblemOf(lNested(1'000'000)), "it has too many elements");
    EXPECT_EQ(ProblemOf(lMany + "</r>"), "it has too many elements");
    EXPECT_EQ(ProblemOf("<a>" + std::string(XmlDocument::cLargestText, 'x') + "</a>"), "it is too long");
    std::string lAttributes = "<r ";
    for (size_t lCount = 0; lCount <= XmlDocument::cMostAttributes; ++lCount)
    {
        lAttributes += "a='' ";
    }
    EXPECT_NE(ProblemOf(lAttributes + "/>"), "");
}

} // namespace
