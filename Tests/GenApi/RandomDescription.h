#pragma once

#include "GenApi/MapFixture.h"

#include <random>
#include <string>
#include <vector>

namespace KyTest
{

/// A sound description of nodes N0 to Nn, each made of later ones, so that none depends on itself. It keeps
/// to what the two evaluators are known to agree on; the comparison says what that leaves out.
class RandomDescription
{
public:
    explicit RandomDescription(unsigned aSeed) : mRandom(aSeed) { Make(); }

    const std::string& GetXml() const { return mXml; }
    const std::vector<std::string>& GetNames() const { return mNames; }

private:
    static constexpr int cCount = 40;

    unsigned Take(unsigned aCount) { return static_cast<unsigned>(mRandom() % aCount); }
    bool Chance(unsigned aPercent) { return Take(100) < aPercent; }
    static std::string Name(int aIndex) { return "N" + std::to_string(aIndex); }

    /// One of the later nodes that have a whole number as their value.
    std::string TakeInteger() { return mIntegers[Take(static_cast<unsigned>(mIntegers.size()))]; }
    std::string TakeNumber()
    {
        return mFloats.empty() || Chance(70) ? TakeInteger()
                                             : mFloats[Take(static_cast<unsigned>(mFloats.size()))];
    }

    std::string TakeSmall() { return std::to_string(static_cast<int>(Take(2001)) - 1000); }
    std::string TakeAddress()
    {
        std::string lText = Element("Address", std::to_string(4 * Take(60)));
        if (Chance(20))
        {
            lText += Element("Address", "0x10");
        }
        return lText;
    }
    std::string TakeRegisterEnd(bool aBit)
    {
        std::string lText = Element("AccessMode", Chance(70) ? "RW" : "RO") + Element("pPort", "Device") +
                            Element("Cachable", "NoCache");
        const bool lBig = Chance(50);
        if (aBit)
        {
            const unsigned lFirst = Take(32);
            const unsigned lLast = Take(32);
            const std::string lLow = std::to_string(std::min(lFirst, lLast));
            const std::string lHigh = std::to_string(std::max(lFirst, lLast));
            lText += Chance(40) ? Element("Bit", lLow)
                                : Element("LSB", lBig ? lHigh : lLow) + Element("MSB", lBig ? lLow : lHigh);
        }
        return lText + Element("Sign", Chance(50) ? "Signed" : "Unsigned") +
               Element("Endianess", lBig ? "BigEndian" : "LittleEndian");
    }

    /// Small whole numbers, few operators that make large ones, no division by what may be zero.
    std::string TakeFormula(int aDepth, bool aFloat)
    {
        constexpr const char* cOperators[] = {"*",  "+", "-", "&",  "|",  "^",  "=",
                                              "<>", "<", ">", "<=", ">=", "&&", "||"};
        constexpr const char* cFunctions[] = {"SGN", "NEG"};
        constexpr const char* cFloatFunctions[] = {"ABS", "TRUNC", "FLOOR", "CEIL", "SGN", "NEG"};
        switch (aDepth > 3 ? Take(3) : Take(10))
        {
        case 0:
        case 1:
            return Chance(50) ? "A" : "B";
        case 2:
            return std::to_string(Take(100));
        case 3:
            // Aravis takes a fraction as a condition for false.
            return "(" + TakeFormula(aDepth + 1, aFloat) + (aFloat ? ">0?" : "?") +
                   TakeFormula(aDepth + 1, aFloat) + ":" + TakeFormula(aDepth + 1, aFloat) + ")";
        case 4:
            return std::string(aFloat ? cFloatFunctions[Take(6)] : cFunctions[Take(2)]) + "(" +
                   TakeFormula(aDepth + 1, aFloat) + ")";
        case 5:
            return "(" + TakeFormula(aDepth + 1, aFloat) + (aFloat || Chance(50) ? "/" : "%") +
                   std::to_string(1 + Take(20)) + ")";
        case 6:
            return "(" + TakeFormula(aDepth + 1, aFloat) + (Chance(50) ? "<<" : ">>") +
                   std::to_string(Take(3)) + ")";
        case 7:
            return std::string(Chance(50) ? "-" : "~") + "(" + TakeFormula(aDepth + 1, aFloat) + ")";
        default:
        {
            // Aravis's converters lose digits above 2^53, and its products wrap in floating-point formulas
            // too. Without parentheses where the binding is to be compared.
            const std::string lLeft = TakeFormula(aDepth + 1, aFloat);
            const std::string lRight = TakeFormula(aDepth + 1, aFloat);
            const std::string lOperator = aFloat ? cOperators[1 + Take(11)] : cOperators[Take(14)];
            if (lOperator == "*")
            {
                return "((" + lLeft + ")*(" + lRight + ")&0xFFFF)";
            }
            return Chance(50) ? lLeft + lOperator + lRight : "(" + lLeft + lOperator + lRight + ")";
        }
        }
    }

    std::string TakeConditions()
    {
        std::string lText;
        lText += Chance(15) ? Element("pIsImplemented", TakeInteger()) : "";
        lText += Chance(15) ? Element("pIsAvailable", TakeInteger()) : "";
        lText += Chance(15) ? Element("pIsLocked", TakeInteger()) : "";
        return lText;
    }

    std::string TakeVariables()
    {
        return "<pVariable Name=\"A\">" + TakeInteger() + "</pVariable><pVariable Name=\"B\">" +
               TakeInteger() + "</pVariable>";
    }

    std::string TakeIntegerNode(const std::string& aName)
    {
        switch (Take(8))
        {
        case 0:
            return NodeXml("Integer", aName, TakeConditions() + Element("pValue", TakeInteger()));
        case 1:
            return NodeXml("Integer", aName,
                           TakeConditions() + Element("Value", TakeSmall()) + Element("Min", "-2000") +
                               Element("Max", "2000"));
        case 2:
            return NodeXml("IntReg", aName,
                           TakeConditions() + TakeAddress() +
                               Element("Length", std::to_string(1U << Take(3))) + TakeRegisterEnd(false));
        case 3:
            return NodeXml("MaskedIntReg", aName,
                           TakeConditions() + TakeAddress() + Element("Length", "4") + TakeRegisterEnd(true));
        case 4:
            return NodeXml("IntReg", aName,
                           TakeAddress() + "<pIndex Offset=\"4\">Index</pIndex>" + Element("Length", "4") +
                               TakeRegisterEnd(false));
        case 5:
            return NodeXml("IntConverter", aName,
                           Element("FormulaTo", "FROM-3") + Element("FormulaFrom", "TO+3") +
                               Element("pValue", TakeInteger()));
        default:
            return NodeXml("IntSwissKnife", aName,
                           TakeConditions() + TakeVariables() +
                               Element("Formula", Escaped(TakeFormula(0, false))));
        }
    }

    std::string TakeFloatNode(const std::string& aName)
    {
        switch (Take(4))
        {
        case 0:
            return NodeXml("Float", aName, TakeConditions() + Element("pValue", TakeNumber()));
        case 1:
            return NodeXml("FloatReg", aName,
                           TakeAddress() + Element("Length", "4") + Element("AccessMode", "RW") +
                               Element("pPort", "Device") + Element("Cachable", "NoCache") +
                               Element("Endianess", "BigEndian"));
        case 2:
            return NodeXml("Converter", aName,
                           Element("FormulaTo", "FROM*8") + Element("FormulaFrom", "TO/8") +
                               Element("pValue", TakeInteger()));
        default:
            return NodeXml("SwissKnife", aName,
                           TakeVariables() + Element("Formula", Escaped(TakeFormula(0, true))));
        }
    }

    std::string TakeOtherNode(const std::string& aName)
    {
        if (Chance(40))
        {
            std::string lEntries;
            for (int lEntry = 0; lEntry < 5; ++lEntry)
            {
                lEntries += NodeXml("EnumEntry", "E" + std::to_string(lEntry),
                                    (Chance(30) ? Element("pIsAvailable", TakeInteger()) : "") +
                                        Element("Value", std::to_string(lEntry)));
            }
            return NodeXml("Enumeration", aName, lEntries + Element("pValue", TakeInteger()));
        }
        if (Chance(50))
        {
            return NodeXml("Boolean", aName,
                           TakeConditions() + Element("pValue", TakeInteger()) + Element("OnValue", "1") +
                               Element("OffValue", "0"));
        }
        return NodeXml("StringReg", aName,
                       TakeAddress() + Element("Length", "16") + Element("AccessMode", "RO") +
                           Element("pPort", "Device") + Element("Cachable", "NoCache"));
    }

    void Make()
    {
        mIntegers = {"Index", "One"};
        std::string lNodes = "<Integer Name=\"Index\"><Value>3</Value></Integer>"
                             "<Integer Name=\"One\"><Value>1</Value></Integer>";
        for (int lIndex = cCount - 1; lIndex >= 0; --lIndex)
        {
            const std::string lName = Name(lIndex);
            const unsigned lKind = Take(10);
            if (lKind < 6)
            {
                lNodes += TakeIntegerNode(lName);
                mIntegers.push_back(lName);
            }
            else if (lKind < 8)
            {
                lNodes += TakeFloatNode(lName);
                mFloats.push_back(lName);
            }
            else
            {
                lNodes += TakeOtherNode(lName);
            }
            mNames.push_back(lName);
        }
        mXml = Description(lNodes);
    }

    std::mt19937 mRandom;
    std::string mXml;
    std::vector<std::string> mNames;
    std::vector<std::string> mIntegers;
    std::vector<std::string> mFloats;
};

} // namespace KyTest
