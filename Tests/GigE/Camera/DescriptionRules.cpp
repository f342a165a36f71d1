#include "GigE/Camera/DescriptionRules.h"

#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <map>
#include <regex>
#include <set>

namespace KyTest
{

using KyGigE::XmlDocument;
using XmlElement = XmlDocument::Element;

namespace
{

// Names of elements as they follow each other, each with a semicolon.
const char* const cBase = "(Extension;)*(ToolTip;)?(Description;)?(DisplayName;)?(Visibility;)?(DocuURL;)?("
                          "IsDeprecated;)?(EventID;)?"
                          "(pIsImplemented;)?(pIsAvailable;)?(pIsLocked;)?(pBlockPolling;)?("
                          "ImposedAccessMode;)?(pError;)*(pAlias;)?"
                          "(pCastAlias;)?";
const char* const cRegister = "(Streamable;)?(Address;|IntSwissKnife;|pAddress;|pIndex;)+(Length;|pLength;)"
                              "(AccessMode;)?pPort;(Cachable;)?(PollingTime;)?(pInvalidator;)*";
const char* const cNumber = "(Sign;)?(Endianess;)?(Unit;)?(Representation;)?(pSelected;)*";
const char* const cValue = "(pInvalidator;)*(Streamable;)?(Value;|pValue;(pValueCopy;)*)";

/// The elements that each kind of node has.
const std::map<std::string, std::regex>& Models()
{
    const auto lMake = [](const std::string& aOwn) { return std::regex(cBase + aOwn); };
    const std::string lRegister = cRegister;
    static const std::map<std::string, std::regex> cModels = {
        {"Category", lMake("(pFeature;)*")},
        {"Integer",
         lMake(cValue + std::string("(Min;|pMin;)?(Max;|pMax;)?(Inc;|pInc;)?(Unit;)?(Representation;)?"
                                    "(pSelected;)*"))},
        {"IntReg", lMake(lRegister + cNumber)},
        {"MaskedIntReg", lMake(lRegister + "(Bit;|LSB;MSB;)" + cNumber)},
        {"Register", lMake(lRegister)},
        {"StringReg", lMake(lRegister)},
        {"Enumeration", lMake("(pInvalidator;)*(Streamable;)?(EnumEntry;)+(Value;|pValue;(pValueCopy;)*)"
                              "(pSelected;)*(PollingTime;)?")},
        {"EnumEntry", lMake("Value;(NumericValue;)?(Symbolic;)?(IsSelfClearing;)?")},
        {"IntSwissKnife",
         lMake("(pInvalidator;)*(Streamable;)?(pVariable;)*(Constant;)*(Expression;)*Formula;"
               "(Unit;)?(Representation;)?")},
        {"Port", lMake("(ChunkID;|pChunkID;)?(SwapEndianess;)?(CacheChunkData;)?")}};
    return cModels;
}

/// What the text of an element looks like; those that are not listed may have any.
const std::map<std::string, std::regex>& Texts()
{
    static const std::regex cInteger("-?[0-9]+|0x[0-9A-Fa-f]+");
    static const std::map<std::string, std::regex> cTexts = {
        {"Address", cInteger},
        {"Length", cInteger},
        {"Value", cInteger},
        {"Bit", std::regex("[0-9]|[1-5][0-9]|6[0-3]")},
        {"AccessMode", std::regex("RO|WO|RW")},
        {"Cachable", std::regex("NoCache|WriteThrough|WriteAround")},
        {"Sign", std::regex("Signed|Unsigned")},
        {"Endianess", std::regex("BigEndian|LittleEndian")},
        {"Visibility", std::regex("Beginner|Expert|Guru|Invisible")},
        {"EventID", std::regex("([0-9A-Fa-f]{2})+")}};
    return cTexts;
}

class Checker
{
public:
    std::vector<std::string> Check(const std::string& aXml)
    {
        if (!mDocument.Parse(aXml).empty() || mDocument.Get(0).mName != "RegisterDescription")
        {
            return {"no device description"};
        }
        const XmlElement& lRoot = mDocument.Get(0);
        CheckHead(lRoot);
        ForEachChild(lRoot, [this](const XmlElement& aNode) { CheckNode(aNode, mKinds); });
        ForEachChild(lRoot,
                     [this](const XmlElement& aNode) { CheckPointers(aNode, AttributeOf(aNode, "Name")); });
        Expect(mKinds["Root"] == "Category", "there is no category Root");
        return mViolations;
    }

private:
    using Kinds = std::map<std::string, std::string>; // of nodes, by name

    static std::string NameOf(const XmlElement& aElement) { return std::string(aElement.mName); }
    static std::string ContentOf(const XmlElement& aElement) { return std::string(aElement.mText); }
    std::string AttributeOf(const XmlElement& aElement, const char* aName) const
    {
        return std::string(mDocument.GetAttribute(aElement, aName));
    }
    template<class Do>
    void ForEachChild(const XmlElement& aElement, const Do& aDo)
    {
        for (XmlDocument::Index lChild = aElement.mFirstChild; lChild != XmlDocument::cNone;
             lChild = mDocument.Get(lChild).mNext)
        {
            aDo(mDocument.Get(lChild));
        }
    }

    void Expect(bool aGood, const std::string& aText)
    {
        if (!aGood)
        {
            mViolations.push_back(aText);
        }
    }

    void CheckHead(const XmlElement& aRoot)
    {
        static const std::regex cGuid("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
        static const std::regex cName("[A-Za-z_][A-Za-z0-9_]*");
        for (const char* const lName : {"SchemaMajorVersion", "SchemaMinorVersion", "SchemaSubMinorVersion",
                                        "MajorVersion", "MinorVersion", "SubMinorVersion"})
        {
            Expect(std::regex_match(AttributeOf(aRoot, lName), std::regex("[0-9]+")), lName);
        }
        for (const char* const lName : {"ProductGuid", "VersionGuid"})
        {
            Expect(std::regex_match(AttributeOf(aRoot, lName), cGuid), lName);
        }
        for (const char* const lName : {"ModelName", "VendorName"})
        {
            Expect(std::regex_match(AttributeOf(aRoot, lName), cName), lName);
        }
        Expect(std::regex_match(AttributeOf(aRoot, "StandardNameSpace"), std::regex("None|IIDC|GEV|CL|USB")),
               "StandardNameSpace");
        const std::string lSpace = AttributeOf(aRoot, "xmlns");
        Expect(lSpace == "http://www.genicam.org/GenApi/Version_1_1", "XML namespace " + lSpace);
    }

    // \param aKinds  The names that have to differ from this one.
    void CheckNode(const XmlElement& aNode, Kinds& aKinds)
    {
        static const std::regex cName("[A-Za-z_][A-Za-z0-9_]*");
        const std::string lKind = NameOf(aNode);
        const std::string lName = AttributeOf(aNode, "Name");
        const std::string lNode = lKind + " " + lName + ": ";
        Expect(std::regex_match(lName, cName), lNode + "name");
        Expect(aKinds.emplace(lName, lKind).second, lNode + "another node has the name");
        const std::string lSpace = AttributeOf(aNode, "NameSpace");
        Expect(lSpace.empty() || lSpace == "Standard" || lSpace == "Custom", lNode + "NameSpace");
        std::string lElements;
        Kinds lEntries;
        std::set<std::string> lValues;
        ForEachChild(aNode,
                     [&](const XmlElement& aChild)
                     {
                         const std::string lChild = NameOf(aChild);
                         lElements += lChild + ";";
                         const auto lText = Texts().find(lChild);
                         Expect(lText == Texts().end() || std::regex_match(ContentOf(aChild), lText->second),
                                lNode + lChild + " " + ContentOf(aChild));
                         if (lChild == "EnumEntry")
                         {
                             CheckNode(aChild, lEntries);
                             const std::string lValue(mDocument.GetChildText(aChild, "Value"));
                             Expect(!lValue.empty() && lValues.insert(lValue).second,
                                    lNode + "two entries have the same value");
                         }
                     });
        const auto lModel = Models().find(lKind);
        Expect(lModel != Models().end(), lNode + "unknown kind of node");
        Expect(lModel == Models().end() || std::regex_match(lElements, lModel->second),
               lNode + "elements " + lElements);
    }

    void CheckPointers(const XmlElement& aNode, const std::string& aOwner)
    {
        ForEachChild(aNode,
                     [&](const XmlElement& aChild)
                     {
                         const std::string lPointer = NameOf(aChild);
                         if (lPointer == "EnumEntry")
                         {
                             CheckPointers(aChild, aOwner);
                         }
                         if (lPointer[0] != 'p')
                         {
                             return;
                         }
                         const auto lTarget = mKinds.find(ContentOf(aChild));
                         const std::string lText = aOwner + ": " + lPointer + " " + ContentOf(aChild);
                         Expect(lTarget != mKinds.end(), lText + " leads nowhere");
                         const bool lPort = lTarget != mKinds.end() && lTarget->second == "Port";
                         const bool lCategory = lTarget != mKinds.end() && lTarget->second == "Category";
                         Expect(lPort == (lPointer == "pPort") && (!lCategory || lPointer == "pFeature"),
                                lText + " leads to a node that does not fit");
                     });
    }

    XmlDocument mDocument;
    Kinds mKinds;
    std::vector<std::string> mViolations;
};

} // namespace

std::vector<std::string> FindViolations(const std::string& aXml)
{
    return Checker().Check(aXml);
}

} // namespace KyTest
