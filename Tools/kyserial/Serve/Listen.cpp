#include "kyserial/Serve/Listen.h"

#include "kyserial/Text/Failure.h"

#include <KyPlatform/HostSerialPort.h>

namespace KySerialTool
{

using boost::asio::ip::tcp;

uint16_t Listen(tcp::acceptor& aAcceptor, const std::string& aAddress, uint16_t aPort)
{
    boost::system::error_code lError;
    const tcp::endpoint lEndpoint(boost::asio::ip::make_address(aAddress, lError), aPort);
    const auto lTry = [&](auto&& aStep)
    {
        if (!lError)
        {
            aStep();
        }
    };
    lTry([&] { aAcceptor.open(lEndpoint.protocol(), lError); });
    // Where ports have paths this takes a port of connections that have ended; elsewhere it lets two programs listen.
    const bool lReuses = KyPlatform::HostSerialPort::IsPath("/");
    lTry([&] { aAcceptor.set_option(tcp::acceptor::reuse_address(lReuses), lError); });
    lTry([&] { aAcceptor.bind(lEndpoint, lError); });
    lTry([&] { aAcceptor.listen(boost::asio::socket_base::max_listen_connections, lError); });
    if (lError)
    {
        throw OperationError("cannot listen at " + aAddress + ':' + std::to_string(aPort) + ": " +
                             lError.message());
    }
    return aAcceptor.local_endpoint(lError).port();
}

} // namespace KySerialTool
