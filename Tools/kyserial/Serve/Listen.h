#pragma once

#include <boost/asio/ip/tcp.hpp>

#include <cstdint>
#include <string>

namespace KySerialTool
{

/// Opens aAcceptor for the clients of a place. Throws OperationError when that is no address of this computer, or another
/// program has the port.
/// \return The port; the one that the system has chosen in place of 0.
uint16_t Listen(boost::asio::ip::tcp::acceptor& aAcceptor, const std::string& aAddress, uint16_t aPort);

} // namespace KySerialTool
