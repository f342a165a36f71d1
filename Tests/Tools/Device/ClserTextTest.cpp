#include "kyserial/Commands/Commands.h"
#include "kyserial/Device/ClserPort.h"
#include "kyserial/Text/Failure.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <set>
#include <string>

using namespace KySerialTool;

namespace
{

TEST(ClserTextTest, EveryCodeHasItsNameItsNumberAndAText)
{
    constexpr std::array<CLINT32, 15> cCodes = {-10001, -10002, -10003, -10004, -10005,
                                                -10006, -10007, -10008, -10009, -10010,
                                                -10011, -10012, -10097, -10098, -10099};
    std::set<std::string> lTexts;
    for (const CLINT32 lCode : cCodes)
    {
        const std::string lText = ClserText(lCode);
        EXPECT_EQ(lText.find("CL_ERR_"), 0U) << lText;
        EXPECT_NE(lText.find(" (" + std::to_string(lCode) + "): "), std::string::npos) << lText;
        EXPECT_GT(lText.size(), lText.find("): ") + 10) << lText;
        EXPECT_TRUE(lTexts.insert(lText).second);
    }
    EXPECT_EQ(ClserText(-10004), "CL_ERR_TIMEOUT (-10004): The operation has timed out.");
}

TEST(ClserTextTest, ACodeThatNobodyKnowsIsANumber)
{
    EXPECT_EQ(ClserText(-1), "error (-1)");
}

TEST(ClserTextTest, FailuresThrowAndSuccessDoesNot)
{
    EXPECT_NO_THROW(CheckClser(CL_ERR_NO_ERR, "x"));
    EXPECT_THROW(CheckClser(CL_ERR_TIMEOUT, "x"), OperationError);
}

TEST(ClserTextTest, RatesHaveTheBitsOfTheStandard)
{
    EXPECT_EQ(ClserRateBit(9600), CL_BAUDRATE_9600);
    EXPECT_EQ(ClserRateBit(115200), CL_BAUDRATE_115200);
    EXPECT_EQ(ClserRateBit(921600), CL_BAUDRATE_921600);
    EXPECT_EQ(ClserRateBit(4800), 0U);
    EXPECT_EQ(ClserRatesText(CL_BAUDRATE_9600 | CL_BAUDRATE_38400), "9600, 38400");
    EXPECT_EQ(ClserRatesText(0), "");
}

TEST(ClserTextTest, TableHasServersThatAreThereAndShowsNoControlCharacters)
{
    EXPECT_EQ(ClserTable({"Lens", "", "a\x1B[2Jb\n"}), "INDEX  NAME\n"
                                                       "0      Lens\n"
                                                       "2      a.[2Jb.\n");
    EXPECT_EQ(ClserTable({}), "INDEX  NAME\n");
}

TEST(ClserTextTest, JsonHasTheServersAndTheLibrary)
{
    const nlohmann::json lJson = nlohmann::json::parse(ClserJson({"Lens", "", "Z\xFF"}));
    EXPECT_EQ(lJson["manufacturer"], "Korvo");
    EXPECT_EQ(lJson["version"], CL_DLL_VERSION_1_1);
    ASSERT_EQ(lJson["servers"].size(), 2U);
    EXPECT_EQ(lJson["servers"][0]["index"], 0);
    EXPECT_EQ(lJson["servers"][0]["name"], "Lens");
    EXPECT_EQ(lJson["servers"][1]["index"], 2);
}

} // namespace
