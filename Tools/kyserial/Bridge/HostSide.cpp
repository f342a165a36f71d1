#include "kyserial/Bridge/HostSide.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

#include <optional>

namespace KySerialTool
{

namespace
{

constexpr size_t cLongestName = 255; // of a Camera Link server

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
    default:
        return "--clser";
    }
}

bool IsComName(const std::string& aText)
{
    const bool lPrefix = aText.size() > 3 && (aText[0] == 'C' || aText[0] == 'c') &&
                         (aText[1] == 'O' || aText[1] == 'o') && (aText[2] == 'M' || aText[2] == 'm');
    return lPrefix && aText.size() <= 5 && aText[3] != '0' && aText.find('x') == std::string::npos &&
           ParseNumber(aText.substr(3), 99).has_value();
}

/// Why a name does not do for a kind of host side; empty when it does.
std::string Complaint(HostKind aKind, const std::string& aName)
{
    if (aName.empty())
    {
        return "an empty name does not do";
    }
    if (aKind == HostKind::Tty && !KyPlatform::HostSerialPort::IsPath("/"))
    {
        return "this system has no terminal devices with a path; use --com";
    }
    if (aKind == HostKind::Pty && !KyToolPlatform::PseudoTerminal::IsSupported())
    {
        return "this system has no pseudo terminals; use --com";
    }
    if (aKind == HostKind::Com && !IsComName(aName))
    {
        return '"' + aName + "\" is no COM port; use COM1 to COM99";
    }
    if (aKind == HostKind::Clser && aName.size() > cLongestName)
    {
        return "the name is too long; use " + std::to_string(cLongestName) + " bytes at most";
    }
    if (aKind == HostKind::Clser && aName == "Uninitialized")
    {
        return "\"Uninitialized\" is what the registry of servers calls an empty place; use another name";
    }
    return {};
}

void AddHostOption(CLI::App& aCommand, HostKind aKind, const std::string& aType,
                   const std::string& aDescription, HostSelection& aSelection)
{
    const auto lTake = [aKind, &aSelection](const std::string& aName)
    {
        const std::string lComplaint = aSelection.mKind == HostKind::None
                                           ? Complaint(aKind, aName)
                                           : std::string("a bridge has one host side, and there is ") +
                                                 OptionName(aSelection.mKind) + " already";
        if (!lComplaint.empty())
        {
            throw CLI::ValidationError(OptionName(aKind), lComplaint);
        }
        aSelection = {aKind, aName};
    };
    aCommand.add_option_function<std::string>(OptionName(aKind), lTake, aDescription)
        ->type_name(aType)
        ->group("Host side, one of");
}

} // namespace

void AddHostOptions(CLI::App& aCommand, HostSelection& aSelection)
{
    AddHostOption(aCommand, HostKind::Tty, "PATH", "Terminal device of the host", aSelection);
    AddHostOption(aCommand, HostKind::Pty, "LINK",
                  "New pseudo terminal for any terminal program, found under this link", aSelection);
    AddHostOption(aCommand, HostKind::Com, "COMn", "COM port of the host; on Linux COM1 is /dev/ttyS0",
                  aSelection);
    AddHostOption(aCommand, HostKind::Clser, "NAME", "Camera Link serial clients, which find it by this name",
                  aSelection);
}

void CheckHostSelection(const HostSelection& aSelection)
{
    if (aSelection.mKind == HostKind::None)
    {
        throw UsageError("a bridge needs a host side; use --tty, --pty, --com or --clser");
    }
}

} // namespace KySerialTool
