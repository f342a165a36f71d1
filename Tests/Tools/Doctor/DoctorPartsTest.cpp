#include "kyserial/Doctor/Diagnosis.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KySerialTool;

namespace
{

TEST(DiagnosisTest, TheWorstFindingIsTheVerdict)
{
    Diagnosis lDiagnosis([](const CheckFinding&) {});
    EXPECT_EQ(Verdict::Ok, lDiagnosis.GetVerdict());
    lDiagnosis.Add({"route", Verdict::Failed, "no way"});
    lDiagnosis.Add({"mtu", Verdict::Ok, "1500 bytes"});
    lDiagnosis.Skip({"ports"}, "no route");
    EXPECT_EQ(Verdict::Failed, lDiagnosis.GetVerdict());
}

TEST(DiagnosisTest, AFindingIsALineWithItsAdvice)
{
    EXPECT_EQ("route        failed   no way; plug the cable in\n",
              FindingLine({"route", Verdict::Failed, "no way", "plug the cable in"}));
    EXPECT_EQ("description  ok       5 features\n", FindingLine({"description", Verdict::Ok, "5 features"}));
    EXPECT_EQ("mtu          warning  not checked\n", FindingLine({"mtu", Verdict::Warning, "not checked"}));
}

TEST(DiagnosisTest, EachFindingIsReportedAtOnceAndListedInJson)
{
    std::string lLines;
    Diagnosis lDiagnosis([&](const CheckFinding& aFinding) { lLines += aFinding.mCheck + '\n'; });
    lDiagnosis.Add({"route", Verdict::Ok, "found"});
    EXPECT_EQ("route\n", lLines);
    lDiagnosis.Skip({"ports", "events"}, "no answer");
    EXPECT_EQ("route\nports\nevents\n", lLines);
    const nlohmann::json lJson = nlohmann::json::parse(DiagnosisJson("gev://10.0.0.2", lDiagnosis));
    EXPECT_EQ("gev://10.0.0.2", lJson["device"]);
    EXPECT_EQ("warning", lJson["result"]);
    ASSERT_EQ(3U, lJson["checks"].size());
    EXPECT_EQ((nlohmann::json{{"check", "events"},
                              {"result", "warning"},
                              {"reason", "not checked: no answer"},
                              {"advice", ""}}),
              lJson["checks"][2]);
}

} // namespace
