#pragma once

#include "kyserial/Serve/Status/News.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// Takes the connections to a place, on the network's thread.
///
/// A process may have so many descriptors, and a system so many sockets. While there are no more, connections wait in the
/// system's queue, and a new try is made ten times a second.
class Acceptor final : public std::enable_shared_from_this<Acceptor>
{
public:
    using Take = std::function<void(boost::asio::ip::tcp::socket)>;

    /// \param aContext  The network's; must outlive the object.
    /// \param aTake     Gets each connection until Close().
    Acceptor(boost::asio::io_context& aContext, Take aTake);

    /// Listens, and takes connections. Throws OperationError when that is no address of this computer, or another program
    /// has the port.
    /// \return The port; the one that the system has chosen in place of 0.
    uint16_t Open(const std::string& aAddress, uint16_t aPort);

    /// Ends it. On the network's thread, outside of what takes connections.
    void Close();

    /// How many tries to take a connection have failed. Any thread.
    uint64_t GetFailures() const { return mFailures; }

    /// Why connections cannot be taken, once for each time that this begins; else empty. Any thread.
    std::string TakeNews() { return mNews.Take(); }

private:
    using Error = boost::system::error_code;
    class Wait;

    void Accept();
    void Pause(const std::string& aWhy);

    boost::asio::ip::tcp::acceptor mAcceptor;
    boost::asio::steady_timer mPause;
    Take mTake;
    bool mIsWaiting = false; // for a connection; the network's thread only
    std::atomic<uint64_t> mFailures{0};
    News mNews{};
};

} // namespace KySerialTool
