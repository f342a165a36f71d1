// The configuration of "kyserial serve": what it says, and all that is wrong with one at once.

#include "kyserial/Serve/ServeConfiguration.h"
#include "Support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KySerialTool;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::vector<std::string> FaultsOf(const std::string& aText)
{
    std::vector<ConfigurationFault> lFaults;
    static_cast<void>(ParseServeConfiguration(aText, lFaults));
    std::vector<std::string> lTexts;
    lTexts.reserve(lFaults.size());
    for (const ConfigurationFault& lFault : lFaults)
    {
        lTexts.push_back(FaultText("f", lFault));
    }
    return lTexts;
}

TEST(ServeConfigurationTest, ReadsDevicesAndPorts)
{
    std::vector<ConfigurationFault> lFaults;
    const ServeConfiguration lRead = ParseServeConfiguration("name = 'line-3'\n"
                                                             "[[device]]\n"
                                                             "name = 'lens'\n"
                                                             "device = 'gev://192.168.1.20'\n"
                                                             "[[device.port]]\n"
                                                             "port = 'uart0'\n"
                                                             "host = 'rfc2217://:4001'\n"
                                                             "clients = 'shared'\n"
                                                             "idle = 60\n"
                                                             "[[device.port]]\n"
                                                             "port = 'bulk2'\n"
                                                             "host = 'tcp://[::1]:4002'\n"
                                                             "baud = 115200\n"
                                                             "parity = 'even'\n"
                                                             "stop = 2\n"
                                                             "log = 'traffic.log'\n"
                                                             "[[device]]\n"
                                                             "device = 'sim'\n"
                                                             "sim_fast = true\n"
                                                             "[[device.port]]\n"
                                                             "port = 'bulk1'\n"
                                                             "host = 'clser:Lens'\n",
                                                             lFaults);
    ASSERT_TRUE(lFaults.empty()) << FaultText("f", lFaults.front());
    EXPECT_EQ(lRead.mName, "line-3");
    ASSERT_EQ(lRead.mDevices.size(), 2U);
    ASSERT_EQ(lRead.mDevices[0].mPorts.size(), 2U);
    const BridgeSelection& lFirst = lRead.mDevices[0].mPorts[0].mBridge;
    EXPECT_EQ(lFirst.mPort, KyDeviceSerialUart0);
    EXPECT_EQ(lFirst.mHost.mKind, HostKind::Rfc2217);
    EXPECT_EQ(lFirst.mHost.mTcp.mAddress, "127.0.0.1"); // unless one is given
    EXPECT_EQ(lFirst.mHost.mTcp.mPort, 4001);
    EXPECT_EQ(lFirst.mHost.mTcp.mClients, TcpClients::Shared);
    EXPECT_EQ(lFirst.mHost.mTcp.mIdle, 60U);
    EXPECT_TRUE(lFirst.mReconnect);
    EXPECT_FALSE(lFirst.mLine.mBaudRate.has_value());
    const BridgeSelection& lSecond = lRead.mDevices[0].mPorts[1].mBridge;
    EXPECT_EQ(lSecond.mHost.mTcp.mAddress, "::1");
    EXPECT_EQ(lSecond.mHost.mTcp.mClients, TcpClients::One);
    EXPECT_EQ(lSecond.mLine.mBaudRate, 115200U);
    EXPECT_EQ(lSecond.mLine.mParity, KyParityEven);
    EXPECT_EQ(lSecond.mLine.mStopBits, 2U);
    EXPECT_EQ(lSecond.mLogFile, "traffic.log");
    EXPECT_EQ(lRead.mDevices[1].mName, "sim"); // unless one is given
    EXPECT_TRUE(lRead.mDevices[1].mSimulator.mFast);
    EXPECT_EQ(lRead.mDevices[1].mPorts[0].mBridge.mHost.mKind, HostKind::Clser);
}

TEST(ServeConfigurationTest, FindsAllFaultsAtOnceWithTheirLines)
{
    EXPECT_THAT(
        FaultsOf("nme = 'x'\n"
                 "[[device]]\n"
                 "device = 'gev://non sense'\n"
                 "[[device.port]]\n"
                 "port = 'uart9'\n"
                 "host = 'tcp://:99999'\n"
                 "baud = 4800\n"
                 "idle = 'long'\n"
                 "[[device.port]]\n"
                 "port = 'uart0'\n"
                 "host = 'udp://:5'\n"
                 "[[device.port]]\n"
                 "port = 'uart0'\n"
                 "host = 'clser:A'\n"
                 "parity = 'even'\n"
                 "clients = 1\n"
                 "[[device]]\n"
                 "device = 'sim'\n"
                 "color = 3\n"),
        ElementsAre(
            "f:1: nme: there is no such key of the service; use name, web, web_token, log, "
            "log_size, log_files, level or device",
            "f:3: device: \"non sense\" is no IPv4 address and no name of a host; use "
            "gev://ADDRESS-OR-HOST[:PORT][?interface=ADDRESS]",
            "f:5: port: \"uart9\" is no port; use uart0, uart1 or bulk0 to bulk7",
            "f:6: host: \"99999\" is no TCP port; use 0 to 65535",
            "f:7: baud: use 9600, 14400, 19200, 28800, 38400, 57600 or 115200",
            "f:8: idle: use a number from 0 to 86400",
            "f:11: host: \"udp://:5\" is no host side; use tcp://[ADDRESS]:PORT, rfc2217://[ADDRESS]:PORT, "
            "pty:LINK, tty:PATH, com:COMn or clser:NAME",
            "f:12: clients: belongs to tcp:// and rfc2217:// only; leave it out",
            "f:12: host: Camera Link is 8N1 with 9600, 19200, 38400, 57600 or 115200 bit/s; leave out what "
            "differs",
            "f:12: port: uart0 of this device is in line 9 already; use another, or leave one out",
            "f:17: port: a device needs one port at least; use [[device.port]]",
            "f:19: color: there is no such key of a device; use name, device, level, sim_fast, "
            "sim_cut, sim_back or port"));
}

TEST(ServeConfigurationTest, ATerminalNeedsATokenAndAPortOverTcp)
{
    const std::string lDevice = "[[device]]\ndevice='sim'\n";
    const std::string lTcp = "[[device.port]]\nport='uart0'\nhost='tcp://:0'\nterminal=true\n";
    const std::string lClser = "[[device.port]]\nport='uart1'\nhost='clser:A'\nterminal=true\n";
    EXPECT_THAT(FaultsOf("web_token='0123456789abcdef'\n" + lDevice + lTcp), IsEmpty());
    EXPECT_THAT(
        FaultsOf(lDevice + lTcp),
        ElementsAre(
            "f:3: terminal: the service needs a web_token, which whoever sends bytes has to know; give it "
            "one of 16 characters or more"));
    EXPECT_THAT(FaultsOf("web_token='0123456789abcdef'\n" + lDevice + lClser),
                ElementsAre("f:4: terminal: belongs to tcp:// and rfc2217:// only; leave it out"));
    for (const std::string lToken : {"'short'", "'with a space 1234'", "'no-ASCII-123456-\xC3\xA9'"})
    {
        EXPECT_THAT(FaultsOf("web_token=" + lToken + '\n' + lDevice + lTcp),
                    ElementsAre("f:1: web_token: use 16 to 256 printable ASCII characters without spaces"));
    }
}

TEST(ServeConfigurationTest, ARecordHasASizeAndOnePortOnly)
{
    const std::string lDevice = "[[device]]\ndevice='sim'\n";
    const std::string lPort = "[[device.port]]\nport='uart0'\nhost='tcp://:0'\n";
    const std::string lOther = "[[device.port]]\nport='uart1'\nhost='tcp://:0'\n";
    EXPECT_THAT(FaultsOf(lDevice + lPort + "log='a.pcapng'\nlog_size='1MiB'\nlog_files=0\n"), IsEmpty());
    EXPECT_THAT(FaultsOf(lDevice + lPort + "log_size='1MiB'\n"),
                ElementsAre("f:3: log_size: belongs to log; name a file"));
    EXPECT_THAT(FaultsOf(lDevice + lPort + "log='a'\nlog_files=3\n"),
                ElementsAre("f:3: log_files: belongs to log_size; give it a size"));
    for (const std::string lSize : {"'1'", "'2000MiB'", "'much'", "'63KiB'"})
    {
        EXPECT_THAT(FaultsOf(lDevice + lPort + "log='a'\nlog_size=" + lSize + '\n'),
                    ElementsAre("f:7: log_size: use \"64KiB\" to \"1024MiB\""));
    }
    EXPECT_THAT(FaultsOf(lDevice + lPort + "log='a'\n" + lOther + "log='a'\n"),
                ElementsAre("f:7: log: \"a\" is in line 3 already; use another, or leave one out"));
}

TEST(ServeConfigurationTest, TheServiceHasALogWithLevels)
{
    const std::string lDevice = "[[device]]\ndevice='sim'\nlevel='error'\n";
    const std::string lPort = "[[device.port]]\nport='uart0'\nhost='tcp://:0'\n";
    std::vector<ConfigurationFault> lFaults;
    const ServeConfiguration lRead = ParseServeConfiguration(
        "log='a.log'\nlog_size='64KiB'\nlog_files=7\nlevel='warning'\n" + lDevice + lPort, lFaults);
    EXPECT_TRUE(lFaults.empty());
    EXPECT_EQ(lRead.mLog, (ServiceLogSettings{"a.log", {65536, 7}, LogLevel::Warning}));
    EXPECT_EQ(lRead.mDevices[0].mLevel, LogLevel::Error);
    EXPECT_EQ(ParseServeConfiguration("[[device]]\ndevice='sim'\n" + lPort, lFaults).mLog,
              ServiceLogSettings());
    EXPECT_THAT(FaultsOf("\nlog_size='1MiB'\n" + lDevice + lPort),
                ElementsAre("f:2: log_size: belongs to log; name a file"));
    EXPECT_THAT(FaultsOf("log=''\nlevel='all'\n" + lDevice + lPort),
                ElementsAre("f:1: log: use the name of a file",
                            "f:2: level: use \"error\", \"warning\" or \"information\""));
    EXPECT_THAT(FaultsOf("log='a'\n" + lDevice + lPort + "log='a'\n"),
                ElementsAre("f:5: log: \"a\" is in line 1 already; use another, or leave one out"));
    EXPECT_THAT(FaultsOf("[[device]]\ndevice='sim'\nlevel=3\n" + lPort),
                ElementsAre("f:3: level: use a text in quotes"));
}

TEST(ServeConfigurationTest, NamesAndPlacesAreThereOnce)
{
    const std::string lDevice =
        "[[device]]\nname='a'\ndevice='gev://10.0.0.1'\n[[device.port]]\nport='uart0'\n"
        "host='tcp://:4001'\n";
    EXPECT_THAT(
        FaultsOf(lDevice + lDevice),
        ElementsAre("f:7: name: \"a\" is in line 1 already; use another, or leave one out",
                    "f:7: device: \"gev://10.0.0.1\" is in line 1 already; use another, or leave one out",
                    "f:10: host: \"tcp://:4001\" is in line 4 already; use another, or leave one out"));
}

TEST(ServeConfigurationTest, ValuesOfAnotherKindAreFaults)
{
    EXPECT_THAT(FaultsOf("name = 7\ndevice = 'x'\n"),
                ElementsAre("f:1: name: use a text in quotes", "f:2: device: use [[device]] for each"));
    EXPECT_THAT(FaultsOf("name = 'a b'\n"), ElementsAre("f: there is no device; use [[device]]",
                                                        "f:1: name: use 1 to 64 letters, digits, - and _"));
    EXPECT_THAT(FaultsOf("device = [1]\n"), ElementsAre("f:1: device: use [[device]] for each"));
    EXPECT_EQ(FaultsOf("[[device]\n").size(), 1U);
    EXPECT_EQ(FaultsOf(std::string(100000, '[')).size(), 1U);
    EXPECT_EQ(FaultsOf("name = '\xFF'\n").size(), 1U);
}

TEST(ServeConfigurationTest, AFileThatCannotBeReadIsAFault)
{
    std::vector<ConfigurationFault> lFaults;
    static_cast<void>(LoadServeConfiguration("/missing/file", lFaults));
    ASSERT_EQ(lFaults.size(), 1U);
    EXPECT_EQ(FaultText("f", lFaults[0]), "f: cannot be opened: No such file or directory");
    const std::string lFile = KyTest::Process::TemporaryFile(".toml");
    ASSERT_TRUE(KyTest::WriteFile(lFile, std::string(2000000, '#')));
    static_cast<void>(LoadServeConfiguration(lFile, lFaults));
    ASSERT_EQ(lFaults.size(), 1U);
    EXPECT_EQ(FaultText("f", lFaults[0]), "f: cannot be read, or has more than 1 MiB");
    std::remove(lFile.c_str());
}

/// The text between the lines with "```toml" and "```" of a page.
std::string ExampleOf(const std::string& aPage)
{
    const size_t lBegin = aPage.find("```toml\n");
    const size_t lEnd = aPage.find("\n```", lBegin + 8);
    return lBegin == std::string::npos || lEnd == std::string::npos
               ? std::string()
               : aPage.substr(lBegin + 8, lEnd - lBegin - 7);
}

TEST(ServeConfigurationTest, TheExampleOfTheDocumentationIsGood)
{
    const std::string lExample = ExampleOf(KyTest::ReadFile(KYTEST_SERVICE_PAGE));
    ASSERT_FALSE(lExample.empty()) << KYTEST_SERVICE_PAGE;
    for (const std::string& lFault : FaultsOf(lExample))
    {
        // The page is for both systems; a pseudo terminal is for one of them.
        EXPECT_NE(lFault.find("this system has no pseudo terminals"), std::string::npos) << lFault;
    }
}

} // namespace
