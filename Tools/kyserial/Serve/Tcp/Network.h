#pragma once

#include <memory>

namespace boost::asio
{
class io_context;
} // namespace boost::asio

namespace KySerialTool
{

/// The thread that all sockets of the program use; it starts with the first one.
class Network
{
public:
    Network();
    /// Ends the thread. The sockets must be gone.
    ~Network();
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    /// Throws std::system_error when there is no thread. Any thread.
    boost::asio::io_context& Use();

private:
    struct Parts;
    const std::unique_ptr<Parts> mThis;
};

} // namespace KySerialTool
