// What a description of 1 MiB and features made of registers cost, without a network: the evaluator's own
// part. Aravis does the same where it is installed.
//   EvaluatorBenchmark [--quick]   "figure <name> <value>" lines

#include "Adapters/GigE/Evaluator/NodeMap.h"
#include "Benchmarks/Figures.h"
#include "Benchmarks/MakeDescription.h"
#ifdef KYSERIAL_HAS_ARAVIS
#include "GenApi/AravisJudge.h"
#endif

#include <string>

namespace
{

using KyBench::Figures;
using KyBench::Measure;
using KyBench::Require;

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

/// The longest that one use of a feature takes, whatever the description: all of its budget, here in the steps of a formula that
/// doubles sixty times.
void MeasureBudget(Figures& aFigures)
{
    std::string lExpressions;
    for (int lIndex = 0; lIndex < 60; ++lIndex)
    {
        const std::string lNext = "E" + std::to_string(lIndex + 1);
        lExpressions.append("<Expression Name=\"E").append(std::to_string(lIndex)).append("\">");
        lExpressions.append(lNext).append("+").append(lNext).append("</Expression>");
    }
    std::unique_ptr<KyGigE::DeviceDescription> lDescription;
    Require(KyGigE::DeviceDescription::Parse(
                KyBench::Described(
                    "<Integer Name=\"One\"><Value>1</Value></Integer><IntConverter Name=\"Endless\">" +
                    lExpressions +
                    "<Expression Name=\"E60\">TO</Expression><FormulaTo>E0</FormulaTo><FormulaFrom>E0"
                    "</FormulaFrom><pValue>One</pValue></IntConverter>"),
                lDescription)
                .IsOK(),
            "description");
    Space lSpace;
    KyGigE::NodeMap lMap(*lDescription, lSpace);
    std::string lText;
    Measure(aFigures, "genapi.budget_us", 9,
            [&]
            {
                Require(!lMap.GetText("Endless", lText).IsOK() &&
                            lMap.GetVisits() > KyGigE::Evaluator::cMostVisits,
                        "budget");
            });
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
    const std::string lXml = KyBench::MakeDescription(size_t{1} << 20U);
    Figures lFigures;
    for (int lRepeat = 0; lRepeat < (lQuick ? KyBench::cQuickRepeats : KyBench::cRepeats); ++lRepeat)
    {
        MeasureOurs(lFigures, lXml, lQuick ? 500 : 5000);
        MeasureBudget(lFigures);
#ifdef KYSERIAL_HAS_ARAVIS
        MeasureAravis(lFigures, lXml, lQuick ? 500 : 5000);
#endif
    }
    lFigures.Print();
    return 0;
}
