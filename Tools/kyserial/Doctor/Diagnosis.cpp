#include "kyserial/Doctor/Diagnosis.h"

#include "kyserial/Text/Json.h"

#include <algorithm>

namespace KySerialTool
{

const char* VerdictText(Verdict aVerdict)
{
    switch (aVerdict)
    {
    case Verdict::Ok:
        return "ok";
    case Verdict::Warning:
        return "warning";
    default:
        return "failed";
    }
}

std::string FindingLine(const CheckFinding& aFinding)
{
    constexpr size_t cCheckWidth = 13;
    constexpr size_t cVerdictWidth = 9;
    std::string lLine = aFinding.mCheck;
    lLine.resize(std::max(cCheckWidth, lLine.size() + 1), ' ');
    std::string lVerdict = VerdictText(aFinding.mVerdict);
    lVerdict.resize(cVerdictWidth, ' ');
    return lLine + lVerdict + aFinding.mReason +
           (aFinding.mAdvice.empty() ? std::string() : "; " + aFinding.mAdvice) + '\n';
}

void Diagnosis::Add(CheckFinding aFinding)
{
    mFindings.push_back(std::move(aFinding));
    // At once: the next check may take seconds.
    mReport(mFindings.back());
}

void Diagnosis::Skip(const std::vector<std::string>& aChecks, const std::string& aReason)
{
    for (const std::string& lCheck : aChecks)
    {
        // No failure of their own: the check that stands in their way says what is wrong.
        Add({lCheck, Verdict::Warning, "not checked: " + aReason});
    }
}

Verdict Diagnosis::GetVerdict() const
{
    Verdict lWorst = Verdict::Ok;
    for (const CheckFinding& lFinding : mFindings)
    {
        // The verdicts are declared in the order of their weight.
        lWorst = std::max(lWorst, lFinding.mVerdict);
    }
    return lWorst;
}

std::string DiagnosisJson(const std::string& aDevice, const Diagnosis& aDiagnosis)
{
    nlohmann::ordered_json lChecks = nlohmann::ordered_json::array();
    for (const CheckFinding& lFinding : aDiagnosis.GetFindings())
    {
        lChecks.push_back({{"check", lFinding.mCheck},
                           {"result", VerdictText(lFinding.mVerdict)},
                           {"reason", lFinding.mReason},
                           {"advice", lFinding.mAdvice}});
    }
    return JsonLine(
        {{"device", aDevice}, {"result", VerdictText(aDiagnosis.GetVerdict())}, {"checks", lChecks}});
}

} // namespace KySerialTool
