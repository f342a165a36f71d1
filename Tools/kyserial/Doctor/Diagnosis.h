#pragma once

#include "kyserial/Text/Failure.h"

#include <functional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// What a check says. Scripts read the words.
enum class Verdict
{
    Ok,
    Warning, ///< It works now, or was not checked.
    Failed
};

/// "ok", "warning" or "failed".
const char* VerdictText(Verdict aVerdict);

/// One check of "kyserial doctor".
struct CheckFinding
{
    std::string mCheck; ///< "route", for example.
    Verdict mVerdict = Verdict::Ok;
    std::string mReason;
    std::string mAdvice{}; ///< What to do next; empty: nothing.
};

/// A finding as a line: check, verdict, reason, and the advice after a semicolon.
std::string FindingLine(const CheckFinding& aFinding);

/// The findings of one device, in the order of the checks. Each is reported at once: some checks take seconds.
class Diagnosis
{
public:
    explicit Diagnosis(std::function<void(const CheckFinding&)> aReport) : mReport(std::move(aReport)) {}

    void Add(CheckFinding aFinding);
    /// Says about checks that they were not made. \param aReason  Why.
    void Skip(const std::vector<std::string>& aChecks, const std::string& aReason);

    const std::vector<CheckFinding>& GetFindings() const { return mFindings; }
    /// The worst of the verdicts.
    Verdict GetVerdict() const;

private:
    const std::function<void(const CheckFinding&)> mReport;
    std::vector<CheckFinding> mFindings{};
};

/// The findings as one JSON object.
std::string DiagnosisJson(const std::string& aDevice, const Diagnosis& aDiagnosis);

} // namespace KySerialTool
