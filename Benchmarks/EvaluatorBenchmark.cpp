// What a description of 1 MiB and features made of registers cost, without a network: the evaluator's own
// part. Aravis does the same where it is installed.
//   EvaluatorBenchmark [--quick]   "figure <name> <value>" lines

#include "Adapters/GigE/Evaluator/NodeMap.h"
#include "Benchmarks/Figures.h"
#ifdef KYSERIAL_HAS_ARAVIS
#include "GenApi/AravisJudge.h"
#endif

#include <cstdlib>
#include <functional>
#include <string>

namespace
{

using KyBench::Figures;

/// Registers that answer at once.
struct Space final : KyGigE::IRegisterSpace
{
    KyResult ReadMemory(uint64_t /*aAddress*/, uint8_t* aBuffer, uint64_t aSize) override
    {
        std::fill_n(aBuffer, aSize, static_cast<uint8_t>(0));
        return {};
    }
    KyResult WriteMemory(uint64_t /*aAddress*/, const uint8_t* /*aBuffer*/, uint64_t /*aSize*/) override
    {
        return {};
    }
    KyResult ReadRegister(uint64_t /*aAddress*/, uint32_t& aValue) override
    {
        aValue = 0;
        return {};
    }
    KyResult WriteRegister(uint64_t /*aAddress*/, uint32_t /*aValue*/) override { return {}; }
};

void Require(bool aGood, const char* aWhat)
{
    if (!aGood)
    {
        std::fprintf(stderr, "%s failed\n", aWhat);
        std::abort(); // figures of half a run are worth nothing
    }
}

/// Runs aDo many times and notes the median, in microseconds.
void Measure(Figures& aFigures, const std::string& aName, int aRounds, const std::function<void()>& aDo)
{
    std::vector<double> lTimes;
    for (int lRound = 0; lRound < aRounds; ++lRound)
    {
        const auto lBegin = KyBench::Clock::now();
        aDo();
        lTimes.push_back(KyBench::GetSeconds(lBegin) * 1e6);
    }
    aFigures.Add(aName, KyBench::GetQuantile(lTimes, 0.5));
}

/// A feature as cameras have them: an enumeration with conditions on a register, and what they are made of.
std::string Feature(const std::string& aNumber)
{
    const std::string lName = "Feature" + aNumber;
    std::string lEntries;
    for (int lEntry = 0; lEntry < 6; ++lEntry)
    {
        const std::string lText = std::to_string(lEntry);
        lEntries += "<EnumEntry Name=\"Entry" + lText +
                    "\" NameSpace=\"Custom\"><ToolTip>One of several</ToolTip><Value>" + lText +
                    "</Value></EnumEntry>";
    }
    const auto lRegister =
        [&](const std::string& aKind, const std::string& aRegister, const std::string& aMore)
    {
        return "<" + aKind + " Name=\"" + aRegister + "\"><Address>0x" + aNumber +
               "0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</"
               "pPort><Cachable>NoCache"
               "</Cachable>" +
               aMore + "<Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></" + aKind + ">\n";
    };
    return "<Enumeration Name=\"" + lName +
           "\" NameSpace=\"Custom\">\n<ToolTip>A feature of the device</ToolTip>"
           "<Visibility>Expert</Visibility><pIsAvailable>" +
           lName + "Available</pIsAvailable>" + lEntries + "<pValue>" + lName +
           "Register</pValue></Enumeration>\n" + lRegister("IntReg", lName + "Register", "") +
           "<IntSwissKnife Name=\"" + lName + "Available\"><pVariable Name=\"BIT\">" + lName +
           "Bit</pVariable><Formula>(BIT = 0) ? 1 : 0</Formula></IntSwissKnife>\n" +
           lRegister("MaskedIntReg", lName + "Bit", "<Bit>3</Bit>");
}

std::string MakeDescription(size_t aSize)
{
    std::string lXml = "<RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
                       "xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n<Port Name=\"Device\"/>\n";
    for (int lNumber = 1000; lXml.size() < aSize; ++lNumber)
    {
        lXml += Feature(std::to_string(lNumber));
    }
    return lXml + "</RegisterDescription>\n";
}

void MeasureOurs(Figures& aFigures, const std::string& aXml, int aRounds)
{
    Space lSpace;
    std::unique_ptr<KyGigE::DeviceDescription> lDescription;
    Measure(aFigures, "genapi.parse_mib_us", aRounds / 100 + 3,
            [&] { Require(KyGigE::DeviceDescription::Parse(aXml, lDescription).IsOK(), "description"); });
    KyGigE::NodeMap lMap(*lDescription, lSpace);
    std::string lText;
    Measure(aFigures, "genapi.text_us", aRounds,
            [&]
            {
                Require(lMap.IsAvailable("Feature1200") && lMap.GetText("Feature1200", lText).IsOK() &&
                            lText == "Entry0",
                        "feature");
            });
    Measure(aFigures, "genapi.set_us", aRounds,
            [&] { Require(lMap.SetText("Feature1200", "Entry1").IsOK(), "feature"); });
}

#ifdef KYSERIAL_HAS_ARAVIS
void MeasureAravis(Figures& aFigures, const std::string& aXml, int aRounds)
{
    Space lSpace;
    Measure(aFigures, "genapi.aravis_parse_mib_us", 3,
            [&] { const KyTest::AravisJudge lJudge(aXml, lSpace); });
    KyTest::AravisJudge lJudge(aXml, lSpace);
    Measure(aFigures, "genapi.aravis_text_us", aRounds,
            [&] {
                Require(lJudge.IsAvailable("Feature1200") && lJudge.GetText("Feature1200") == "Entry0",
                        "Aravis");
            });
}
#endif

} // namespace

int main(int aCount, char** /*aArguments*/)
{
    const bool lQuick = aCount > 1;
    const std::string lXml = MakeDescription(size_t{1} << 20U);
    Figures lFigures;
    for (int lRepeat = 0; lRepeat < (lQuick ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        MeasureOurs(lFigures, lXml, lQuick ? 500 : 5000);
#ifdef KYSERIAL_HAS_ARAVIS
        MeasureAravis(lFigures, lXml, lQuick ? 500 : 5000);
#endif
    }
    lFigures.Print();
    return 0;
}
