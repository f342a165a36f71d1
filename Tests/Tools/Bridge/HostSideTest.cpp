#include "kyserial/Bridge/HostSide.h"
#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>
#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace KySerialTool;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

class HostSideTest : public testing::Test
{
protected:
    HostSideTest() { AddHostOptions(mCommand, mSelection); }

    /// Parses a command line, given from its end.
    void ParseReversed(std::vector<std::string> aWords) { mCommand.parse(aWords); }

    CLI::App mCommand;
    HostSelection mSelection;
};

TEST_F(HostSideTest, EachOptionIsAKindOfHostSide)
{
    const std::vector<std::tuple<const char*, const char*, HostKind>> lCases = {
        {"--com", "COM7", HostKind::Com},
        {"--clser", "Lens", HostKind::Clser},
        {"--tcp", "4000", HostKind::Tcp},
        {"--rfc2217", "[::1]:4000", HostKind::Rfc2217}};
    for (const auto& [lOption, lValue, lKind] : lCases)
    {
        mSelection = {};
        ParseReversed({lValue, lOption});
        EXPECT_EQ(lKind, mSelection.mKind) << lOption;
        EXPECT_NO_THROW(CheckHostSelection(mSelection));
    }
}

TEST_F(HostSideTest, ABridgeHasOneHostSide)
{
    EXPECT_THAT(
        [&] {
            ParseReversed({"4000", "--tcp", "COM7", "--com"});
        },
        ThrowsMessage<CLI::ValidationError>(
            HasSubstr("a bridge has one host side, and there is --com already")));
    mSelection = {};
    EXPECT_THAT(
        [&] {
            ParseReversed({"5000", "--rfc2217", "4000", "--tcp"});
        },
        ThrowsMessage<CLI::ValidationError>(
            AllOf(HasSubstr("--rfc2217"), HasSubstr("there is --tcp already"))));
}

TEST_F(HostSideTest, AValueThatDoesNotFitIsRefusedUnderTheOptionsName)
{
    EXPECT_THAT(
        [&] {
            ParseReversed({"LPT1", "--com"});
        },
        ThrowsMessage<CLI::ValidationError>(
            AllOf(HasSubstr("--com"), HasSubstr("\"LPT1\" is no COM port; use COM1 to COM99"))));
    EXPECT_EQ(HostKind::None, mSelection.mKind);
}

TEST_F(HostSideTest, ABridgeWithoutAHostSideSaysWhatThisSystemHas)
{
    const std::string lTty = KyPlatform::HostSerialPort::IsPath("/") ? "--tty, " : "";
    const std::string lPty = KyToolPlatform::PseudoTerminal::IsSupported() ? "--pty, " : "";
    EXPECT_THAT([&] { CheckHostSelection(mSelection); },
                ThrowsMessage<UsageError>("a bridge needs a host side; use " + lTty + lPty +
                                          "--com, --clser, --tcp or --rfc2217"));
}

TEST_F(HostSideTest, TheHelpHasNoHostSideThatTheSystemLacks)
{
    const std::string lHelp = mCommand.help();
    EXPECT_EQ(KyPlatform::HostSerialPort::IsPath("/"), lHelp.find("--tty") != std::string::npos);
    EXPECT_EQ(KyToolPlatform::PseudoTerminal::IsSupported(), lHelp.find("--pty") != std::string::npos);
    EXPECT_THAT(lHelp,
                AllOf(HasSubstr("--com"), HasSubstr("--clser"), HasSubstr("--tcp"), HasSubstr("--rfc2217")));
}

} // namespace
