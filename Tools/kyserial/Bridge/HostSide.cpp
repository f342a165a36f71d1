#include "kyserial/Bridge/HostSide.h"

#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>
#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

namespace KySerialTool
{

namespace
{

const char* OptionName(HostKind aKind)
{
    switch (aKind)
    {
    case HostKind::Tty:
        return "--tty";
    case HostKind::Pty:
        return "--pty";
    case HostKind::Com:
        return "--com";
    case HostKind::Tcp:
        return "--tcp";
    case HostKind::Rfc2217:
        return "--rfc2217";
    default:
        return "--clser";
    }
}

/// Whether this system has such host sides. The help leaves the others out. A command that names one of them gets a hint what to use.
bool IsHere(HostKind aKind)
{
    return aKind == HostKind::Tty   ? KyPlatform::HostSerialPort::IsPath("/")
           : aKind == HostKind::Pty ? KyToolPlatform::PseudoTerminal::IsSupported()
                                    : true;
}

void AddHostOption(CLI::App& aCommand, HostKind aKind, const std::string& aType,
                   const std::string& aDescription, HostSelection& aSelection)
{
    const auto lTake = [aKind, &aSelection](const std::string& aName)
    {
        // The options name the kind, so two of them are two host sides, even two of one kind.
        const std::string lComplaint = aSelection.mKind == HostKind::None
                                           ? TakeHostName(aKind, aName, aSelection)
                                           : std::string("a bridge has one host side, and there is ") +
                                                 OptionName(aSelection.mKind) + " already";
        if (!lComplaint.empty())
        {
            throw CLI::ValidationError(OptionName(aKind), lComplaint);
        }
    };
    aCommand.add_option_function<std::string>(OptionName(aKind), lTake, aDescription)
        ->type_name(aType)
        ->group(IsHere(aKind) ? "Host side, one of" : "");
}

} // namespace

void AddHostOptions(CLI::App& aCommand, HostSelection& aSelection)
{
    AddHostOption(aCommand, HostKind::Tty, "PATH", "Terminal device of the host", aSelection);
    AddHostOption(aCommand, HostKind::Pty, "LINK",
                  "New pseudo terminal for any terminal program, found under this link", aSelection);
    // Where ports have paths none is called COM1, so the help says which device is meant.
    AddHostOption(aCommand, HostKind::Com, "COMn",
                  IsHere(HostKind::Tty) ? "COM port of the host; COM1 is /dev/ttyS0" : "COM port of the host",
                  aSelection);
    AddHostOption(aCommand, HostKind::Clser, "NAME", "Camera Link serial clients, which find it by this name",
                  aSelection);
    AddHostOption(aCommand, HostKind::Tcp, "PLACE", "TCP clients, which connect to [ADDRESS:]PORT",
                  aSelection);
    AddHostOption(aCommand, HostKind::Rfc2217, "PLACE", "The same with RFC 2217: the client sets the line",
                  aSelection);
}

void CheckHostSelection(const HostSelection& aSelection)
{
    if (aSelection.mKind == HostKind::None)
    {
        throw UsageError(std::string("a bridge needs a host side; use ") +
                         (IsHere(HostKind::Tty) ? "--tty, " : "") + (IsHere(HostKind::Pty) ? "--pty, " : "") +
                         "--com, --clser, --tcp or --rfc2217");
    }
}

} // namespace KySerialTool
