#include "GigE/CameraClient.h"

#include <Support/Process.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using KyTest::Process;
using testing::HasSubstr;
using testing::StartsWith;

class CameraProcessTest : public testing::Test
{
protected:
    void Start(std::vector<std::string> aArguments)
    {
        aArguments.insert(aArguments.end(), {"--port", "0"});
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        ASSERT_TRUE(mCamera.Start("kyserial-camera", aArguments, lFiles));
        ASSERT_TRUE(mCamera.WaitForOutput("\n")) << mCamera.Error();
    }
    /// Where the ready line says that it is.
    KyGvcp::Endpoint Place() const
    {
        const std::string lStart = "kyserial-camera: ready at 127.0.0.1:";
        const std::string lLine = mCamera.Output();
        EXPECT_THAT(lLine, StartsWith(lStart));
        return {0x7F000001, static_cast<uint16_t>(std::stoul("0" + lLine.substr(lStart.size())))};
    }
    void ExpectRefused(const std::vector<std::string>& aArguments, int aStatus, const std::string& aText)
    {
        Process lProcess;
        ASSERT_TRUE(lProcess.Start("kyserial-camera", aArguments, {}));
        EXPECT_EQ(aStatus, lProcess.Wait());
        EXPECT_THAT(lProcess.Error(), HasSubstr(aText));
        EXPECT_EQ("", lProcess.Output());
    }

    Process mCamera;
};

TEST_F(CameraProcessTest, SaysWhereItIsAndServes)
{
    Start({});
    CameraClient lClient(Place());
    EXPECT_EQ(0x00020000U, lClient.Read(0));
}

// The high half's upper bytes are 0, the next the first of the address.
TEST_F(CameraProcessTest, OneAtAnyFreePortIsNoOtherOne)
{
    constexpr uint32_t cMacAddressHigh = 8;
    constexpr uint32_t cMacAddressLow = 12;
    std::set<uint32_t> lLow;
    for (int lTime = 0; lTime < 3; ++lTime)
    {
        Start({});
        CameraClient lClient(Place());
        EXPECT_EQ(0x0200U, lClient.Read(cMacAddressHigh) & 0xFF00U); // local, of one device
        lLow.insert(lClient.Read(cMacAddressLow));
        ASSERT_TRUE(mCamera.AskToEnd());
        EXPECT_EQ(0, mCamera.Wait());
    }
    EXPECT_EQ(3U, lLow.size());
}

TEST_F(CameraProcessTest, StopsWhenAskedToWithItsStatistics)
{
    Start({});
    CameraClient lClient(Place());
    lClient.Read(0);
    ASSERT_TRUE(mCamera.AskToEnd());
    EXPECT_EQ(0, mCamera.Wait());
    EXPECT_THAT(mCamera.Output(), HasSubstr("\nstatistics: commands=1 "));
    EXPECT_EQ("", mCamera.Error());
}

TEST_F(CameraProcessTest, GoesOnWithoutInputUntilAsked)
{
    Start({});
    // The answer to a line without an end says that the end of the input has been seen.
    ASSERT_TRUE(mCamera.Feed("clear"));
    mCamera.CloseInput();
    ASSERT_TRUE(mCamera.WaitForOutput("\nok\n"));
    CameraClient lClient(Place());
    for (int lTime = 0; lTime < 100; ++lTime)
    {
        ASSERT_EQ(0x00020000U, lClient.Read(0));
    }
    EXPECT_THAT(mCamera.Output(), testing::Not(HasSubstr("statistics")));
    ASSERT_TRUE(mCamera.AskToEnd());
    EXPECT_EQ(0, mCamera.Wait());
}

TEST_F(CameraProcessTest, TakesCommandsWhileItRuns)
{
    Start({"--busy", "1"});
    CameraClient lClient(Place());
    lClient.Send(KyGvcp::MakeReadRegister(1, 0));
    const auto lBusy = lClient.Receive();
    ASSERT_TRUE(lBusy.has_value());
    EXPECT_EQ(KyGvcp::cBusy, lBusy->mStatus);
    ASSERT_TRUE(mCamera.Feed("clear\n"));
    ASSERT_TRUE(mCamera.WaitForOutput("\nok\n"));
    EXPECT_EQ(0x00020000U, lClient.Read(0));
    ASSERT_TRUE(mCamera.Feed("quit\n"));
    EXPECT_EQ(0, mCamera.Wait());
}

TEST_F(CameraProcessTest, IsWhatTheOptionsSay)
{
    Start({"--mac", "0A0B0C0D0E0F", "--serial", "S1", "--user-id", "eye", "--no-uart-registers"});
    CameraClient lClient(Place());
    EXPECT_EQ(0x0A0BU, lClient.Read(KyGvcp::cMacHighRegister));
    EXPECT_EQ(0x53310000U, lClient.Read(KyGvcp::cSerialNumberRegister));
    EXPECT_EQ(0x65796500U, lClient.Read(KyGvcp::cUserNameRegister));
    EXPECT_EQ(0x80000000U, lClient.Read(0xB8FC)); // no UARTs
}

TEST_F(CameraProcessTest, SendsInTheFormsThatTheOptionsSay)
{
    Start({"--events-per-packet", "4", "--long-event-ids", "--zip", "--second-url"});
    CameraClient lClient(Place());
    EXPECT_EQ(0x46696C65U, lClient.Read(KyGvcp::cFirstUrlRegister));       // "File"
    EXPECT_EQ(0x4C6F6361U, lClient.Read(KyGvcp::cSecondUrlRegister));      // "Loca"
    EXPECT_EQ(0x612E7A69U, lClient.Read(KyGvcp::cSecondUrlRegister + 20)); // "a.zi"
    lClient.Take();
    lClient.Write(0xB838, 0xC); // both interrupts of UART 1
    lClient.Write(0xB850, 0x55);
    const auto lPacket = lClient.ReceiveEvent();
    ASSERT_TRUE(KyGvcp::ParseCommand(lPacket).has_value());
    EXPECT_EQ(KyGvcp::cExtendedID | KyGvcp::cAcknowledgeWanted, KyGvcp::ParseCommand(lPacket)->mFlags);
}

TEST_F(CameraProcessTest, KeepsItsMemories)
{
    const std::string lState = Process::TemporaryFile(".state");
    Start({"--state", lState});
    ASSERT_TRUE(mCamera.Feed("quit\n"));
    EXPECT_EQ(0, mCamera.Wait());
    EXPECT_EQ(2U * 256 + 65536, KyTest::ReadFile(lState).size());
    static_cast<void>(std::remove(lState.c_str())); // ignored: it lies in the temporary folder
}

TEST_F(CameraProcessTest, RefusesACommandLineThatMakesNoSense)
{
    ExpectRefused({"--address", "localhost"}, 2, "--address: \"localhost\" is no address");
}

TEST_F(CameraProcessTest, ItsHelpFitsOnAPageAndHasAnExample)
{
    Process lProcess;
    ASSERT_TRUE(lProcess.Start("kyserial-camera", {"--help"}, {}));
    EXPECT_EQ(0, lProcess.Wait());
    const std::string lOutput = lProcess.Output();
    std::istringstream lHelp(lOutput);
    size_t lLines = 0;
    for (std::string lLine; std::getline(lHelp, lLine); ++lLines)
    {
        EXPECT_LE(lLine.size(), 80U) << lLine;
    }
    EXPECT_GT(lLines, 5U);
    EXPECT_LE(lLines, 40U);
    EXPECT_THAT(lOutput, HasSubstr("Example"));
}

TEST_F(CameraProcessTest, SaysWhyItCannotBeThere)
{
    KyGvcp::UdpSocket lOther;
    ASSERT_TRUE(lOther.Open({0x7F000001, 0}));
    const std::string lPort = std::to_string(lOther.GetLocal().mPort);
    ExpectRefused({"--port", lPort}, 1, "cannot be at 127.0.0.1:" + lPort + ": ");
}

} // namespace
