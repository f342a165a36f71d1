#include "Simulator/CameraFixture.h"

#include <Simulator/Peers/LensController.h>

using namespace KySimulator;
using namespace std::chrono_literals;

namespace
{

std::string Ask(LensController& aLens, const char* aCommand, Time aNow = Time(0))
{
    return aLens.Execute(aCommand, aNow);
}

} // namespace

TEST(LensControllerTest, SaysWhatItIs)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "ID?"), "ID KYLENS 1.0");
    LensController lOther({"ACME 7", 0, Time(0)});
    EXPECT_EQ(Ask(lOther, "ID?"), "ID ACME 7");
}

TEST(LensControllerTest, StartsAtHome)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "STATUS?"), "STATUS READY ZOOM 0 FOCUS 1000 IRIS 100");
}

TEST(LensControllerTest, EveryMotorCanBeSetAndAsked)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "ZOOM 1200"), "OK");
    EXPECT_EQ(Ask(lLens, "FOCUS 0"), "OK");
    EXPECT_EQ(Ask(lLens, "IRIS 55"), "OK");
    EXPECT_EQ(Ask(lLens, "ZOOM?"), "ZOOM 1200");
    EXPECT_EQ(Ask(lLens, "FOCUS?"), "FOCUS 0");
    EXPECT_EQ(Ask(lLens, "IRIS?"), "IRIS 55");
    EXPECT_EQ(Ask(lLens, "HOME"), "OK");
    EXPECT_EQ(Ask(lLens, "STATUS?"), "STATUS READY ZOOM 0 FOCUS 1000 IRIS 100");
}

TEST(LensControllerTest, RangesAreInclusive)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "ZOOM 3000"), "OK");
    EXPECT_EQ(Ask(lLens, "FOCUS 2000"), "OK");
    EXPECT_EQ(Ask(lLens, "IRIS 100"), "OK");
    EXPECT_EQ(Ask(lLens, "ZOOM 3001"), "ERR 3 OUT OF RANGE 0..3000");
    EXPECT_EQ(Ask(lLens, "FOCUS 2001"), "ERR 3 OUT OF RANGE 0..2000");
    EXPECT_EQ(Ask(lLens, "IRIS 101"), "ERR 3 OUT OF RANGE 0..100");
    EXPECT_EQ(Ask(lLens, "IRIS -1"), "ERR 3 OUT OF RANGE 0..100");
    EXPECT_EQ(Ask(lLens, "IRIS -0"), "OK");
    EXPECT_EQ(Ask(lLens, "IRIS 00000000099"), "ERR 3 OUT OF RANGE 0..100"); // more than nine digits
    EXPECT_EQ(Ask(lLens, "IRIS 99999999999999999999999999"), "ERR 3 OUT OF RANGE 0..100");
    EXPECT_EQ(Ask(lLens, "IRIS?"), "IRIS 0");
}

TEST(LensControllerTest, HelpListsTheCommands)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "HELP?"),
              "HELP ID? STATUS? ZOOM? ZOOM n FOCUS? FOCUS n IRIS? IRIS n HOME STOP HELP?");
}

TEST(LensControllerTest, CaseAndBlanksDoNotMatter)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "  zoom \t 12  "), "OK");
    EXPECT_EQ(Ask(lLens, "Zoom?"), "ZOOM 12");
    EXPECT_EQ(Ask(lLens, ""), "");
    EXPECT_EQ(Ask(lLens, "   "), "");
}

TEST(LensControllerTest, UnknownCommandsAndBadValuesAreReported)
{
    LensController lLens;
    EXPECT_EQ(Ask(lLens, "ZOOMX 1"), "ERR 1 UNKNOWN COMMAND");
    EXPECT_EQ(Ask(lLens, "?"), "ERR 1 UNKNOWN COMMAND");
    EXPECT_EQ(Ask(lLens, "ZOOM"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ZOOM x"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ZOOM 1 2"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ZOOM -"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ZOOM 1.5"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ID? 1"), "ERR 2 BAD VALUE");
    EXPECT_EQ(Ask(lLens, "ZO\x01OM"), "ERR 5 BAD CHARACTER");
    EXPECT_EQ(Ask(lLens, "ZOOM \xC3\xA4"), "ERR 5 BAD CHARACTER");
    EXPECT_EQ(Ask(lLens, "STATUS?"), "STATUS READY ZOOM 0 FOCUS 1000 IRIS 100");
}

TEST(LensControllerTest, LinesHaveALimit)
{
    LensController lLens;
    EXPECT_EQ(lLens.Execute(std::string(LensController::cMaxLine, 'X'), Time(0)), "ERR 1 UNKNOWN COMMAND");
    EXPECT_EQ(lLens.Execute(std::string(LensController::cMaxLine + 1, 'X'), Time(0)), "ERR 4 LINE TOO LONG");
}

TEST(LensControllerTest, MotorsTakeTheirTime)
{
    LensController lLens({"SLOW", 1000, Time(0)});
    EXPECT_EQ(Ask(lLens, "ZOOM 500", 1s), "OK");
    EXPECT_EQ(Ask(lLens, "STATUS?", 1s + 100ms), "STATUS MOVING ZOOM 100 FOCUS 1000 IRIS 100");
    EXPECT_EQ(Ask(lLens, "ZOOM?", 1s + 499ms), "ZOOM 499");
    EXPECT_EQ(Ask(lLens, "STATUS?", 1s + 500ms), "STATUS READY ZOOM 500 FOCUS 1000 IRIS 100");
    EXPECT_EQ(Ask(lLens, "ZOOM 400", 2s), "OK");
    EXPECT_EQ(Ask(lLens, "ZOOM?", 2s + 30ms), "ZOOM 470");
}

TEST(LensControllerTest, StopLeavesTheMotorsWhereTheyAre)
{
    LensController lLens({"SLOW", 1000, Time(0)});
    EXPECT_EQ(Ask(lLens, "ZOOM 500"), "OK");
    EXPECT_EQ(Ask(lLens, "STOP", 200ms), "OK");
    EXPECT_EQ(Ask(lLens, "STATUS?", 1s), "STATUS READY ZOOM 200 FOCUS 1000 IRIS 100");
    EXPECT_EQ(Ask(lLens, "ZOOM 0", 2s), "OK");
    EXPECT_EQ(Ask(lLens, "ZOOM?", 2s + 50ms), "ZOOM 150");
}

class LensLineTest : public CameraFixture
{
protected:
    void MakeLens(const LensOptions& aOptions = {})
    {
        mConfiguration.mUnlimitedLineRate = true;
        Make();
        Notify(1);
        mCamera->Plug(Port::Bulk1, std::make_shared<LensController>(aOptions));
    }

    std::string Talk(const std::string& aText)
    {
        EXPECT_EQ(Send(1, Message(Bytes(aText.begin(), aText.end()))), Status::Ok);
        const Bytes lAnswer = TakeData(cUpstreamEvent + 1);
        return {lAnswer.begin(), lAnswer.end()};
    }
};

TEST_F(LensLineTest, AnswersWithCarriageReturnAndLineFeed)
{
    MakeLens();
    EXPECT_EQ(Talk("ID?\r\n"), "ID KYLENS 1.0\r\n");
}

TEST_F(LensLineTest, TakesEitherEndOfLineAlone)
{
    MakeLens();
    EXPECT_EQ(Talk("ZOOM 1\r"), "OK\r\n");
    EXPECT_EQ(Talk("ZOOM?\n"), "ZOOM 1\r\n");
    EXPECT_EQ(Talk("\r\n\r\n\n"), "");
}

TEST_F(LensLineTest, TakesCommandsInPiecesAndSeveralAtOnce)
{
    MakeLens();
    EXPECT_EQ(Talk("ZO"), "");
    EXPECT_EQ(Talk("OM 7\rZOOM?\rFO"), "OK\r\nZOOM 7\r\n");
    EXPECT_EQ(Talk("CUS?\r"), "FOCUS 1000\r\n");
}

TEST_F(LensLineTest, AnOverlongLineIsOneError)
{
    MakeLens();
    EXPECT_EQ(Talk(std::string(400, 'A')), "");
    EXPECT_EQ(Talk(std::string(400, 'A') + "\r\nID?\r\n"), "ERR 4 LINE TOO LONG\r\nID KYLENS 1.0\r\n");
}

TEST_F(LensLineTest, AnyByteIsAnsweredAtTheEndOfItsLine)
{
    MakeLens();
    EXPECT_EQ(Talk(std::string("\0\xFF\x80", 3) + "\r"), "ERR 5 BAD CHARACTER\r\n");
}

TEST_F(LensLineTest, AnswersMayTakeTheirTime)
{
    MakeLens({"SLOW", 0, 10ms});
    EXPECT_EQ(Talk("ID?\r"), "");
    mClock->Advance(10ms);
    const Bytes lAnswer = TakeData(cUpstreamEvent + 1);
    EXPECT_EQ(std::string(lAnswer.begin(), lAnswer.end()), "ID SLOW\r\n");
}

TEST_F(LensLineTest, ForgetsHalfACommandWhenItIsPluggedAnew)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Notify(1);
    const auto lLens = std::make_shared<LensController>();
    mCamera->Plug(Port::Bulk1, lLens);
    EXPECT_EQ(Talk("ZOOM 12"), "");
    mCamera->Plug(Port::Bulk1, nullptr);
    mCamera->Plug(Port::Bulk1, lLens);
    EXPECT_EQ(Talk("ID?\r"), "ID KYLENS 1.0\r\n");
}
