// "kyserial serve" as a process, with clients over TCP.

#include "Support/Process.h"
#include "Support/WaitFor.h"
#include "Tools/ToolRun.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace KyTest;
using boost::asio::ip::tcp;
using testing::HasSubstr;

namespace
{

std::string PortEntry(const std::string& aPort, const std::string& aHost)
{
    return "[[device.port]]\nport = '" + aPort + "'\nhost = '" + aHost + "'\n";
}

class ServeProcessTest : public testing::Test
{
protected:
    ServeProcessTest() : mName("test" + std::to_string(std::hash<std::string>()(mFile) % 1000000007)) {}
    ~ServeProcessTest() override { std::remove(mFile.c_str()); }

    void Configure(const std::string& aDevices)
    {
        ASSERT_TRUE(WriteFile(mFile, "name = '" + mName + "'\n" + aDevices));
    }
    void Start(const std::string& aDevices)
    {
        Configure(aDevices);
        ASSERT_TRUE(mService.Start("kyserial", {"serve", mFile}, {}));
    }
    void Reload() const
    {
        const ToolResult lResult = RunTool({"serve", "--reload", "--name", mName});
        EXPECT_EQ(lResult.mStatus, 0) << lResult.mError;
    }
    /// The TCP port that the service names for a port of a device.
    uint16_t PortOf(const std::string& aWho)
    {
        const std::string lStart = aWho + " is tcp://127.0.0.1:";
        EXPECT_TRUE(mService.WaitForError(lStart)) << mService.Error();
        EXPECT_TRUE(WaitFor(
            [&]
            { return mService.Error().find('\n', mService.Error().rfind(lStart)) != std::string::npos; }));
        const std::string lText = mService.Error();
        return static_cast<uint16_t>(std::stoi(lText.substr(lText.rfind(lStart) + lStart.size())));
    }
    tcp::socket Connect(uint16_t aPort)
    {
        tcp::socket lSocket(mContext);
        lSocket.connect({boost::asio::ip::address_v4::loopback(), aPort});
        return lSocket;
    }
    static std::string Ask(tcp::socket& aSocket)
    {
        boost::system::error_code lError;
        std::string lAnswer(std::string(cLensStatus).size(), '\0');
        boost::asio::write(aSocket, boost::asio::buffer(std::string("STATUS?\r\n")), lError);
        lAnswer.resize(boost::asio::read(aSocket, boost::asio::buffer(lAnswer), lError));
        return lAnswer;
    }
    void End()
    {
        EXPECT_TRUE(mService.AskToEnd());
        EXPECT_EQ(mService.Wait(), 0) << mService.Error();
        EXPECT_THAT(mService.Error(), HasSubstr("Z ended\n"));
    }

    const std::string mFile = Process::TemporaryFile(".toml");
    const std::string mName;
    boost::asio::io_context mContext;
    Process mService;
};

TEST_F(ServeProcessTest, SeveralPortsOfSeveralDevices)
{
    Start("[[device]]\nname = 'one'\ndevice = 'sim'\n" + PortEntry("uart0", "tcp://:0") +
          PortEntry("bulk1", "tcp://:0") + "[[device]]\nname = 'two'\ndevice = 'sim'\n" +
          PortEntry("bulk1", "tcp://:0"));
    for (const char* const lWho : {"one uart0", "one bulk1", "two bulk1"})
    {
        tcp::socket lClient = Connect(PortOf(lWho));
        EXPECT_EQ(Ask(lClient), cLensStatus) << lWho;
    }
    End();
}

TEST_F(ServeProcessTest, AReloadTouchesOnlyWhatHasChanged)
{
    const std::string lKept = "[[device]]\nname = 'kept'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0");
    Start(lKept + PortEntry("bulk4", "tcp://:0") + "[[device]]\nname = 'leaves'\ndevice = 'sim'\n" +
          PortEntry("uart0", "tcp://:0"));
    tcp::socket lKeptClient = Connect(PortOf("kept bulk1"));
    EXPECT_EQ(Ask(lKeptClient), cLensStatus);
    tcp::socket lLeavingClient = Connect(PortOf("leaves uart0"));
    EXPECT_EQ(Ask(lLeavingClient), cLensStatus);
    static_cast<void>(PortOf("kept bulk4"));
    Configure(lKept + PortEntry("uart0", "tcp://:0"));
    Reload();
    tcp::socket lNewClient = Connect(PortOf("kept uart0"));
    EXPECT_EQ(Ask(lNewClient), cLensStatus);
    EXPECT_EQ(Ask(lKeptClient), cLensStatus); // through the connection that it had
    EXPECT_THAT(mService.Error(), HasSubstr("kept bulk4: ended"));
    char lByte = 0;
    boost::system::error_code lError;
    EXPECT_EQ(boost::asio::read(lLeavingClient, boost::asio::buffer(&lByte, 1), lError),
              0U); // its device is gone
    End();
}

TEST_F(ServeProcessTest, AReloadOfAFileWithFaultsChangesNothing)
{
    Start("[[device]]\nname = 'lens'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0"));
    tcp::socket lClient = Connect(PortOf("lens bulk1"));
    Configure("[[device]]\ncolor = 'red'\n");
    Reload();
    EXPECT_TRUE(mService.WaitForError("nothing is changed: "));
    EXPECT_THAT(mService.Error(), HasSubstr(mFile + ":3: color: there is no such key"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    End();
}

TEST_F(ServeProcessTest, ADeviceThatWasAwayIsServedAgainToTheSameClient)
{
    Start("[[device]]\nname = 'lens'\ndevice = 'sim'\nsim_cut = 300\nsim_back = 200\n" +
          PortEntry("bulk1", "tcp://:0"));
    tcp::socket lClient = Connect(PortOf("lens bulk1"));
    EXPECT_TRUE(mService.WaitForError("lens bulk1: the device is gone"));
    EXPECT_TRUE(mService.WaitForError("lens bulk1: the device is back; 0 bytes to it are lost"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    End();
}

TEST_F(ServeProcessTest, ASecondServiceOfTheNameIsRefused)
{
    Start("[[device]]\nname = 'lens'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0"));
    static_cast<void>(PortOf("lens bulk1"));
    ToolResult lResult = RunTool({"serve", mFile});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_THAT(lResult.mError, HasSubstr("a service with the name " + mName + " runs already"));
    End();
    lResult = RunTool({"serve", "--reload", "--name", mName});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_EQ(lResult.mError, "kyserial: no service with the name " + mName + " runs in this session\n");
}

TEST_F(ServeProcessTest, APlaceThatIsTakenIsTriedAgain)
{
    Process lOther; // of another program
    ASSERT_TRUE(lOther.Start("kyserial", {"bridge", "--port", "bulk1", "--tcp", "0", "--stats-json"}, {}));
    ASSERT_TRUE(lOther.WaitForOutput("\"final\":false")) << lOther.Error();
    const std::string lText = lOther.Output();
    const std::string lStart = "\"host\":\"tcp://127.0.0.1:";
    const std::string lPort = std::to_string(std::stoi(lText.substr(lText.find(lStart) + lStart.size())));
    Start("[[device]]\nname = 'lens'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:" + lPort));
    EXPECT_TRUE(mService.WaitForError("lens bulk1: cannot listen at 127.0.0.1:" + lPort)) << mService.Error();
    EXPECT_TRUE(lOther.AskToEnd());
    EXPECT_EQ(lOther.Wait(), 0);
    tcp::socket lClient = Connect(PortOf("lens bulk1"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    End();
}

TEST_F(ServeProcessTest, StatusAndMetricsSayWhatGoesOn)
{
    Start("web = ':0'\n[[device]]\nname = 'lens'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0"));
    tcp::socket lClient = Connect(PortOf("lens bulk1"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    const std::string lText = mService.Error();
    const std::string lStart = "web page is http://127.0.0.1:";
    const auto lWeb = static_cast<uint16_t>(std::stoi(lText.substr(lText.find(lStart) + lStart.size())));
    const ToolResult lJson = RunTool({"status", std::to_string(lWeb), "--json"});
    EXPECT_EQ(lJson.mStatus, 0) << lJson.mError;
    const nlohmann::json lStatus = nlohmann::json::parse(lJson.mOutput);
    EXPECT_EQ(lStatus["name"], mName);
    const nlohmann::json& lDevice = lStatus["devices"][0];
    EXPECT_EQ(lDevice["name"], "lens");
    EXPECT_EQ(lDevice["connected"], true);
    EXPECT_EQ(lDevice["ports"][0]["port"], "bulk1");
    EXPECT_EQ(lDevice["ports"][0]["runs"], true);
    EXPECT_EQ(lDevice["ports"][0]["to_device"]["delivered"], 9);
    EXPECT_EQ(lDevice["ports"][0]["from_device"]["delivered"], 41);
    EXPECT_EQ(lDevice["ports"][0]["clients"]["now"], 1);
    const ToolResult lTable = RunTool({"status", std::to_string(lWeb)});
    EXPECT_EQ(lTable.mStatus, 0) << lTable.mError;
    EXPECT_THAT(lTable.mOutput, HasSubstr("bulk1  tcp://127.0.0.1:"));
    const auto lAsk = [&](const std::string& aRequest)
    {
        tcp::socket lSocket = Connect(lWeb);
        boost::system::error_code lError;
        boost::asio::write(lSocket, boost::asio::buffer(aRequest), lError);
        std::string lAnswer;
        boost::asio::read(lSocket, boost::asio::dynamic_buffer(lAnswer), lError);
        return lAnswer;
    };
    const std::string lMetrics = lAsk("GET /metrics HTTP/1.1\r\nHost: localhost\r\n"
                                      "Accept: application/openmetrics-text;version=1.0.0\r\n\r\n");
    EXPECT_THAT(lMetrics, HasSubstr("HTTP/1.1 200 "));
    EXPECT_THAT(lMetrics, HasSubstr("kyserial_port_delivered_bytes_total{device=\"lens\",port=\"bulk1\","
                                    "way=\"from_device\"} 41\n"));
    EXPECT_TRUE(lMetrics.ends_with("# EOF\n"));
    // A page of another host, a foreign origin, what would change something, and what is no request.
    EXPECT_THAT(lAsk("GET /status HTTP/1.1\r\nHost: evil.example\r\n\r\n"), HasSubstr("HTTP/1.1 403 "));
    EXPECT_THAT(lAsk("GET /status HTTP/1.1\r\nHost: localhost\r\nOrigin: http://evil.example\r\n\r\n"),
                HasSubstr("HTTP/1.1 403 "));
    EXPECT_THAT(lAsk("POST /status HTTP/1.1\r\nHost: localhost\r\nContent-Length: 0\r\n\r\n"),
                HasSubstr("HTTP/1.1 405 "));
    EXPECT_THAT(lAsk("GET /other HTTP/1.1\r\nHost: localhost\r\n\r\n"), HasSubstr("HTTP/1.1 404 "));
    EXPECT_EQ(lAsk("GET /" + std::string(100000, 'x') + " HTTP/1.1\r\n\r\n"), "");
    tcp::socket lHalf = Connect(lWeb); // half a request does not hold up the end
    boost::asio::write(lHalf, boost::asio::buffer(std::string("GET /st")));
    End();
}

TEST_F(ServeProcessTest, ARecordForAnalysersIsSetAsideWhenItIsLarge)
{
    const std::string lRecord = Process::TemporaryFile("");
    Start("[[device]]\nname = 'echo'\ndevice = 'sim'\nsim_fast = true\n" + PortEntry("bulk4", "tcp://:0") +
          "log = '" + lRecord + ".pcapng'\nlog_size = '64KiB'\nlog_files = 1\n");
    tcp::socket lClient = Connect(PortOf("echo bulk4"));
    std::string lBack(1000, '\0');
    for (int lBlock = 0; lBlock < 60; ++lBlock) // 120,000 bytes both ways together
    {
        boost::asio::write(lClient, boost::asio::buffer(std::string(1000, 'x')));
        boost::asio::read(lClient, boost::asio::buffer(lBack));
    }
    End();
    for (const std::string& lFile : {lRecord + ".1.pcapng", lRecord + ".pcapng"})
    {
        EXPECT_EQ(ReadFile(lFile).substr(0, 4), "\x0A\x0D\x0D\x0A") << lFile;
        EXPECT_EQ(std::remove(lFile.c_str()), 0);
    }
}

TEST_F(ServeProcessTest, TheLogIsAFileWithTheLinesOfEachDevicesLevelFromAReloadOn)
{
    const std::string lLog = Process::TemporaryFile(".log");
    const std::string lDevice =
        "[[device]]\nname = 'lens'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0");
    Start("log = '" + lLog + "'\nlog_size = '64KiB'\n" + lDevice);
    const auto lHas = [&](const std::string& aText)
    { return WaitFor([&] { return ReadFile(lLog).find(aText) != std::string::npos; }); };
    EXPECT_TRUE(lHas("Z lens bulk1 is tcp://127.0.0.1:")) << ReadFile(lLog);
    Configure("log = '" + lLog + "'\nlog_size = '64KiB'\n[[device]]\nname = 'lens'\ndevice = 'sim'\n" +
              "level = 'error'\n" + PortEntry("bulk2", "tcp://:0"));
    Reload();
    EXPECT_TRUE(lHas("Z reloaded " + mFile));
    Configure("[[device]]\nlevel = 'loud'\n");
    Reload();
    EXPECT_TRUE(lHas("Z error: nothing is changed: ")) << ReadFile(lLog);
    EXPECT_TRUE(mService.AskToEnd());
    EXPECT_EQ(mService.Wait(), 0) << mService.Error();
    const std::string lText = ReadFile(lLog);
    EXPECT_THAT(lText, HasSubstr("Z ended\n"));
    EXPECT_THAT(lText, HasSubstr(mFile + ":3: level: use \"error\", \"warning\" or \"information\"\n"));
    EXPECT_THAT(lText, testing::Not(HasSubstr("bulk2"))); // the device's information is left out
    EXPECT_EQ(mService.Error(), "");
    EXPECT_EQ(std::remove(lLog.c_str()), 0);
}

TEST_F(ServeProcessTest, ALogThatCannotBeWrittenIsRefused)
{
    Configure("log = '" + Process::ProgramFolder() + "'\n[[device]]\ndevice = 'sim'\n" +
              PortEntry("uart0", "tcp://:0"));
    const ToolResult lResult = RunTool({"serve", mFile});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_THAT(lResult.mError, HasSubstr("kyserial: log: cannot write " + Process::ProgramFolder()));
}

// The same as --reload, from the system.
TEST_F(ServeProcessTest, AHangUpReloadsAndTouchesOnlyWhatHasChanged)
{
    const std::string lKept = "[[device]]\nname = 'kept'\ndevice = 'sim'\n" + PortEntry("bulk1", "tcp://:0");
    Start(lKept);
    tcp::socket lClient = Connect(PortOf("kept bulk1"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    Configure(lKept + PortEntry("uart0", "tcp://:0"));
    if (!mService.HangUp())
    {
        End();
        GTEST_SKIP() << "this system has no such signal";
    }
    tcp::socket lNewClient = Connect(PortOf("kept uart0"));
    EXPECT_EQ(Ask(lNewClient), cLensStatus);
    EXPECT_EQ(Ask(lClient), cLensStatus); // through the connection that it had
    EXPECT_THAT(mService.Error(), HasSubstr("Z reloaded " + mFile));
    Configure("[[device]]\ncolor = 'red'\n");
    EXPECT_TRUE(mService.HangUp());
    EXPECT_TRUE(mService.WaitForError("nothing is changed: "));
    EXPECT_THAT(mService.Error(), HasSubstr(mFile + ":3: color: there is no such key"));
    EXPECT_EQ(Ask(lClient), cLensStatus);
    EXPECT_EQ(Ask(lNewClient), cLensStatus);
    EXPECT_THAT(mService.Error(), testing::Not(HasSubstr(": ended"))); // of a port
    End();
}

TEST_F(ServeProcessTest, ACheckListsAllFaultsAndOpensNothing)
{
    Configure("[[device]]\ndevice = 'sim'\ncolor = 1\n" + PortEntry("uart9", "tcp://:0"));
    ToolResult lResult = RunTool({"serve", "--check", mFile});
    EXPECT_EQ(lResult.mStatus, 2);
    EXPECT_EQ(lResult.mError, "kyserial: " + mFile +
                                  ":4: color: there is no such key of a device; use name, device, level, "
                                  "sim_fast, sim_cut, sim_back or port\nkyserial: " +
                                  mFile +
                                  ":6: port: \"uart9\" is no port; use uart0, uart1 or bulk0 to bulk7\n");
    EXPECT_EQ(RunTool({"serve", mFile}).mStatus, 2);
    Configure("[[device]]\ndevice = 'sim'\n" + PortEntry("uart0", "tcp://:0"));
    lResult = RunTool({"serve", "--check", mFile});
    EXPECT_EQ(lResult.mStatus, 0);
    EXPECT_EQ(lResult.mError, "");
    lResult = RunTool({"serve"});
    EXPECT_EQ(lResult.mStatus, 2);
    EXPECT_EQ(lResult.mError, "kyserial: no configuration is given; use 'kyserial serve CONFIG'\n");
}

} // namespace
