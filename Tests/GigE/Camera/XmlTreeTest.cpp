#include "Simulator/Network/XmlTree.h"

#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using KyGigE::XmlDocument;
using KySimulator::XmlTree;

TEST(XmlTreeTest, ADocumentBeginsWithItsDeclaration)
{
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Root/>\n\n", XmlTree("Root").Print());
}

// Names of cameras come from users, and may have any character.
TEST(XmlTreeTest, TextsAndAttributesKeepTheirCharacters)
{
    const std::string lStrange = "a<b>&\"'c\xC3\xA4";
    XmlTree lTree("Root");
    {
        const std::string lName = "Child"; // the tree has copies, so these may go
        XmlTree::Node& lChild = lTree.Append(lTree.GetRoot(), lName, std::string(lStrange));
        lTree.SetAttribute(lChild, std::string("Name"), std::string(lStrange));
    }
    XmlDocument lDocument;
    ASSERT_EQ("", lDocument.Parse(lTree.Print()));
    ASSERT_EQ(2U, lDocument.GetCount());
    EXPECT_EQ("Child", lDocument.Get(1).mName);
    EXPECT_EQ(lStrange, lDocument.Get(1).mText);
    EXPECT_EQ(lStrange, lDocument.GetAttribute(lDocument.Get(1), "Name"));
}

TEST(XmlTreeTest, ElementsAndAttributesStayInTheirOrder)
{
    XmlTree lTree("Root");
    XmlTree::Node& lFirst = lTree.Append(lTree.GetRoot(), "First", {});
    lTree.Append(lTree.GetRoot(), "Second", "2");
    lTree.Append(lFirst, "Inner", {});
    lTree.SetAttribute(lFirst, "B", "1");
    lTree.SetAttribute(lFirst, "A", "2");
    EXPECT_NE(std::string::npos,
              lTree.Print().find("<Root>\n\t<First B=\"1\" A=\"2\">\n\t\t<Inner/>\n\t</First>\n\t"
                                 "<Second>2</Second>\n</Root>"));
}

} // namespace
