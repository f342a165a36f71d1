// Whatever a device's description says: it is refused, or every feature in it can be asked for everything,
// and what is read from the device meanwhile is of a size that a device can have.

#include "Adapters/GigE/Evaluator/NodeMap.h"
#include "Fuzz/FuzzInput.h"

#include <cstring>
#include <set>
#include <string>

using namespace KyTest;
using namespace KyGigE;

namespace
{

constexpr uint64_t cMostBytes = 1U << 20U; // of one access

// A device whose registers hold what they may.
struct Space final : IRegisterSpace
{
    KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) override
    {
        KY_REQUIRE(aSize <= cMostBytes);
        std::memset(aBuffer, static_cast<int>(aAddress & 0xFFU), static_cast<size_t>(aSize));
        return KyResult(mRefuses ? 0x8003U : 0U);
    }
    KyResult WriteMemory(uint64_t /*aAddress*/, const uint8_t* /*aBuffer*/, uint64_t aSize) override
    {
        KY_REQUIRE(aSize <= cMostBytes);
        return KyResult(mRefuses ? 0x8004U : 0U);
    }
    KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) override
    {
        aValue = static_cast<uint32_t>(aAddress);
        return KyResult(mRefuses ? 0x8003U : 0U);
    }
    KyResult WriteRegister(uint64_t /*aAddress*/, uint32_t /*aValue*/) override
    {
        return KyResult(mRefuses ? 0x8004U : 0U);
    }

    bool mRefuses = false;
};

std::string TakeName(FuzzInput& aInput)
{
    return "N" + std::to_string(aInput.TakeByte() % 8U);
}

std::string TakeNumber(FuzzInput& aInput)
{
    constexpr const char* cNumbers[] = {
        "0", "1", "4", "8", "16", "0x1000", "-1", "4294967295", "9223372036854775807", ""};
    return cNumbers[aInput.TakeByte() % 10U];
}

// One node of a description, which refers to others of the few names that there are.
std::string TakeNode(FuzzInput& aInput)
{
    constexpr const char* cKinds[] = {"Integer",      "IntReg",  "MaskedIntReg", "Register",  "StringReg",
                                      "Enumeration",  "Boolean", "Float",        "Converter", "IntSwissKnife",
                                      "SwissKnife",   "Command", "Category",     "Port",      "FloatReg",
                                      "IntConverter", "String"};
    constexpr const char* cReferences[] = {"pValue",     "pFeature",       "pIsAvailable",  "pIsLocked",
                                           "pMin",       "pMax",           "pAddress",      "pLength",
                                           "pSelected",  "pInvalidator",   "pInc",          "pIndex",
                                           "pValueCopy", "pIsImplemented", "pCommandValue", "pValueDefault"};
    constexpr const char* cFormulas[] = {"A+1",
                                         "A/0",
                                         "1<<A",
                                         "A**9999",
                                         "(A",
                                         "FROM*2",
                                         "A%0",
                                         "-9223372036854775807-A",
                                         "A.Min+A.Max",
                                         "X?A:X",
                                         "(0-9223372036854775807-1)/(0-A)",
                                         "A.Entry.E1"};
    const std::string lKind = cKinds[aInput.TakeByte() % 17U];
    std::string lText = "<" + lKind + " Name=\"" + TakeName(aInput) + "\">";
    for (unsigned lCount = aInput.TakeByte() % 4U; lCount > 0; --lCount)
    {
        const std::string lReference = cReferences[aInput.TakeByte() % 16U];
        lText += "<" + lReference + ">" + TakeName(aInput) + "</" + lReference + ">";
    }
    lText += "<pVariable Name=\"A\">" + TakeName(aInput) + "</pVariable>";
    const std::string lFormula = cFormulas[aInput.TakeByte() % 12U];
    lText += "<Expression Name=\"X\">" + lFormula + "+X</Expression>";
    lText += "<Formula>" + lFormula + "</Formula><FormulaTo>" + lFormula + "</FormulaTo><FormulaFrom>" +
             lFormula + "</FormulaFrom>";
    lText += "<Address>" + TakeNumber(aInput) + "</Address>";
    lText += "<Length>" + TakeNumber(aInput) + "</Length>";
    lText += "<Value>" + TakeNumber(aInput) + "</Value>";
    if (lKind == "Enumeration")
    {
        lText += "<EnumEntry Name=\"E1\"><Value>" + TakeNumber(aInput) + "</Value></EnumEntry>";
    }
    if (aInput.TakeFlag())
    {
        lText += "<PollingTime>5</PollingTime><Cachable>NoCache</Cachable><ValueIndexed "
                 "Index=\"1\">4</ValueIndexed>";
    }
    if (lKind == "Port")
    {
        lText += "<EventID>9000</EventID>";
    }
    return lText + "<AccessMode>RW</AccessMode><pPort>" + (aInput.TakeFlag() ? "Device" : TakeName(aInput)) +
           "</pPort><LSB>" + TakeNumber(aInput) + "</LSB><MSB>" + TakeNumber(aInput) + "</MSB></" + lKind +
           ">";
}

std::string TakeDescription(FuzzInput& aInput)
{
    if (aInput.TakeFlag())
    {
        const std::vector<uint8_t> lText = aInput.TakeRest();
        return {lText.begin(), lText.end()};
    }
    std::string lText =
        "<RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\"><Port Name=\"Device\"/>"
        "<Category Name=\"Root\"><pFeature>N0</pFeature><pFeature>N1</pFeature></Category>";
    while (aInput.HasStep())
    {
        lText += TakeNode(aInput);
    }
    return lText + "</RegisterDescription>";
}

void Ask(NodeMap& aMap, const std::string& aName)
{
    int64_t lNumber = 0;
    std::string lText;
    std::vector<std::string> lEntries;
    RegisterPlace lPlace;
    const NodeKind lKind = aMap.GetKind(aName);
    KY_REQUIRE(lKind != NodeKind::None || !aMap.IsAvailable(aName));
    static_cast<void>(aMap.IsReadable(aName) && aMap.IsWritable(aName)); // any answer
    KY_REQUIRE(aMap.GetInteger(aName, lNumber).IsOK() || lNumber == 0);
    KY_REQUIRE(aMap.GetText(aName, lText).IsOK() || lText.empty());
    KY_REQUIRE(aMap.GetEntries(aName, lEntries).IsOK() || lEntries.empty());
    for (const RegisterUse lUse : {RegisterUse::Look, RegisterUse::Read, RegisterUse::Write})
    {
        KY_REQUIRE(aMap.GetRegister(aName, lUse, lPlace).IsOK() || lPlace.mLength == 0);
    }
    Range lRange;
    bool lDone = false;
    KY_REQUIRE(aMap.GetRange(aName, lRange).IsOK() || (!lRange.mMin && !lRange.mMax));
    static_cast<void>(aMap.IsDone(aName, lDone)); // any answer
    for (const char* const lValue : {"1", "E1", "true", "99999999999999999999", ""})
    {
        static_cast<void>(aMap.SetText(aName, lValue)); // any result
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    FuzzInput lInput(aData, aSize);
    Space lSpace;
    lSpace.mRefuses = lInput.TakeFlag();
    std::unique_ptr<DeviceDescription> lDescription;
    const KyResult lParsed = DeviceDescription::Parse(TakeDescription(lInput), lDescription);
    KY_REQUIRE(lParsed.IsOK() == (lDescription != nullptr));
    KY_REQUIRE(lParsed.IsOK() || lParsed.GetCode() == KyResult::FAILURE);
    if (!lParsed.IsOK())
    {
        return 0;
    }
    const Dependencies& lGraph = lDescription->GetGraph();
    uint64_t lNow = 0;
    NodeMap lMap(*lDescription, lSpace, [&lNow] { return lNow += 7; });
    std::set<std::string> lNames{"Nobody"}; // one for all names that the description lacks
    for (const char* const lName : {"N0", "N1", "N2", "N3", "N4", "N5", "N6", "N7"})
    {
        if (lMap.GetKind(lName) != NodeKind::None)
        {
            lNames.insert(lName);
        }
    }
    for (const ListedFeature& lFeature : lGraph.GetFeatures())
    {
        lNames.insert(lFeature.mName);
    }
    for (const std::string& lName : lNames)
    {
        static_cast<void>(lGraph.AffectedBy(lName)); // ends
        static_cast<void>(lGraph.PollingTimeOf(lName));
        Ask(lMap, lName);
    }
    return 0;
}
