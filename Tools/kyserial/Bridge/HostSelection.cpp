#include "kyserial/Bridge/HostSelection.h"

#include "kyserial/Text/Hex.h"

#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

#include <boost/asio/ip/address.hpp>

#include <array>
#include <optional>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr size_t cLongestName = 255; // of a Camera Link server

bool IsComName(const std::string& aText)
{
    // "COM" and one or two digits, as the library takes them. "COM01" and "COM0x5" are no ports.
    const bool lPrefix = aText.size() > 3 && (aText[0] == 'C' || aText[0] == 'c') &&
                         (aText[1] == 'O' || aText[1] == 'o') && (aText[2] == 'M' || aText[2] == 'm');
    return lPrefix && aText.size() <= 5 && aText[3] != '0' && aText.find('x') == std::string::npos &&
           ParseNumber(aText.substr(3), 99).has_value();
}

/// "[ADDRESS:]PORT". \return What is wrong with it.
std::string TakeEndpoint(const std::string& aName, TcpSettings& aTcp)
{
    // The last colon parts address and port: an IPv6 address has colons of its own, and brackets around it.
    const size_t lColon = aName.rfind(':');
    const std::string lPortText = lColon == std::string::npos ? aName : aName.substr(lColon + 1);
    std::string lAddress = lColon == std::string::npos ? std::string() : aName.substr(0, lColon);
    if (lAddress.size() > 2 && lAddress.front() == '[' && lAddress.back() == ']')
    {
        lAddress = lAddress.substr(1, lAddress.size() - 2);
    }
    const std::optional<uint64_t> lPort = ParseNumber(lPortText, UINT16_MAX);
    // TCP ports are written in decimal, and the parser of numbers takes hexadecimal ones too.
    if (!lPort.has_value() || lPortText.find('x') != std::string::npos)
    {
        return '"' + lPortText + "\" is no TCP port; use 0 to 65535";
    }
    if (!lAddress.empty())
    {
        boost::system::error_code lError;
        boost::asio::ip::make_address(lAddress, lError);
        if (lError)
        {
            return '"' + lAddress + "\" is no address; use one such as 127.0.0.1 or [::1]";
        }
        aTcp.mAddress = lAddress;
    }
    aTcp.mPort = static_cast<uint16_t>(*lPort);
    return {};
}

/// Why a kind of host side cannot have this name; empty when it can.
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
    // The registry of servers cuts a longer name and does not find it again. Each try would use up one of its
    // places.
    if (aKind == HostKind::Clser && aName.size() > cLongestName)
    {
        return "the name is too long; use " + std::to_string(cLongestName) + " bytes at most";
    }
    // A server of that name would be invisible to clients.
    if (aKind == HostKind::Clser && aName == "Uninitialized")
    {
        return "\"Uninitialized\" is what the registry of servers calls an empty place; use another name";
    }
    return {};
}

} // namespace

std::string TakeHostName(HostKind aKind, const std::string& aName, HostSelection& aSelection)
{
    std::string lComplaint = Complaint(aKind, aName);
    // Made as a copy: after a complaint the caller's selection is what it was.
    TcpSettings lTcp = aSelection.mTcp;
    lTcp.mTelnet = aKind == HostKind::Rfc2217;
    if (lComplaint.empty() && IsTcp(aKind))
    {
        lComplaint = TakeEndpoint(aName, lTcp);
    }
    if (lComplaint.empty())
    {
        aSelection = {aKind, aName, lTcp};
    }
    return lComplaint;
}

std::string ParseHost(const std::string& aText, HostSelection& aSelection)
{
    static constexpr std::array<std::pair<const char*, HostKind>, 6> cKinds = {
        {{"tcp://", HostKind::Tcp},
         {"rfc2217://", HostKind::Rfc2217},
         {"pty:", HostKind::Pty},
         {"tty:", HostKind::Tty},
         {"com:", HostKind::Com},
         {"clser:", HostKind::Clser}}};
    for (const auto& [lStart, lKind] : cKinds)
    {
        const std::string lPrefix = lStart;
        if (aText.compare(0, lPrefix.size(), lPrefix) == 0)
        {
            std::string lComplaint = TakeHostName(lKind, aText.substr(lPrefix.size()), aSelection);
            aSelection.mName = aText; // as reports and status name it
            return lComplaint;
        }
    }
    return '"' + aText +
           "\" is no host side; use tcp://[ADDRESS]:PORT, rfc2217://[ADDRESS]:PORT, pty:LINK, tty:PATH, "
           "com:COMn or clser:NAME";
}

} // namespace KySerialTool
