#include "kyserial/Bridge/HostSelection.h"

#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace KySerialTool;

struct Place
{
    const char* mText;
    HostKind mKind;
    const char* mAddress;
    uint16_t mPort;
};

TEST(HostSelectionTest, PlacesOfTcpHaveAnAddressAndAPort)
{
    const std::vector<Place> lPlaces = {{"tcp://:4000", HostKind::Tcp, "127.0.0.1", 4000},
                                        {"tcp://4000", HostKind::Tcp, "127.0.0.1", 4000},
                                        {"tcp://10.0.0.5:0", HostKind::Tcp, "10.0.0.5", 0},
                                        {"tcp://[::1]:65535", HostKind::Tcp, "::1", 65535},
                                        {"rfc2217://[::]:23", HostKind::Rfc2217, "::", 23}};
    for (const Place& lPlace : lPlaces)
    {
        HostSelection lSelection;
        EXPECT_EQ("", ParseHost(lPlace.mText, lSelection)) << lPlace.mText;
        EXPECT_EQ(lPlace.mKind, lSelection.mKind) << lPlace.mText;
        EXPECT_EQ(lPlace.mAddress, lSelection.mTcp.mAddress) << lPlace.mText;
        EXPECT_EQ(lPlace.mPort, lSelection.mTcp.mPort) << lPlace.mText;
        EXPECT_EQ(lPlace.mKind == HostKind::Rfc2217, lSelection.mTcp.mTelnet) << lPlace.mText;
        EXPECT_EQ(lPlace.mText, lSelection.mName);
    }
}

TEST(HostSelectionTest, WrongPlacesAreNamed)
{
    const std::vector<std::pair<std::string, std::string>> lCases = {
        {"tcp://:70000", "\"70000\" is no TCP port; use 0 to 65535"},
        {"tcp://:0x10", "\"0x10\" is no TCP port; use 0 to 65535"},
        {"tcp://camera:1", "\"camera\" is no address; use one such as 127.0.0.1 or [::1]"},
        {"tcp://", "an empty name does not do"},
        {"com:COM0", "\"COM0\" is no COM port; use COM1 to COM99"},
        {"com:COM100", "\"COM100\" is no COM port; use COM1 to COM99"},
        {"com:LPT1", "\"LPT1\" is no COM port; use COM1 to COM99"},
        {"clser:" + std::string(256, 'x'), "the name is too long; use 255 bytes at most"},
        {"clser:Uninitialized",
         "\"Uninitialized\" is what the registry of servers calls an empty place; use another name"},
        {"usb:1", "\"usb:1\" is no host side; use tcp://[ADDRESS]:PORT, rfc2217://[ADDRESS]:PORT, pty:LINK, "
                  "tty:PATH, com:COMn or clser:NAME"}};
    for (const auto& [lText, lComplaint] : lCases)
    {
        HostSelection lSelection;
        EXPECT_EQ(lComplaint, ParseHost(lText, lSelection));
        EXPECT_EQ(HostKind::None, lSelection.mKind) << lText;
    }
}

TEST(HostSelectionTest, NamesMayBeAsLongAsTheRegistryTakesThem)
{
    HostSelection lSelection;
    EXPECT_EQ("", TakeHostName(HostKind::Clser, std::string(255, 'x'), lSelection));
    EXPECT_EQ("", TakeHostName(HostKind::Com, "com99", lSelection));
    EXPECT_EQ(HostKind::Com, lSelection.mKind);
}

TEST(HostSelectionTest, TerminalsAreWhereTheSystemHasThem)
{
    HostSelection lSelection;
    EXPECT_EQ(KyPlatform::HostSerialPort::IsPath("/"), ParseHost("tty:/dev/ttyS0", lSelection).empty());
    EXPECT_EQ(KyToolPlatform::PseudoTerminal::IsSupported(), ParseHost("pty:/tmp/lens", lSelection).empty());
}

} // namespace
