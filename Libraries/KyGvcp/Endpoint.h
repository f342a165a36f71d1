#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace KyGvcp
{

/// An IPv4 address and a UDP port, both as numbers: 127.0.0.1 is 0x7F000001.
struct Endpoint
{
    uint32_t mAddress = 0;
    uint16_t mPort = 0;

    bool operator==(const Endpoint&) const = default;
};

constexpr uint32_t cBroadcastAddress = 0xFFFFFFFF;

/// "127.0.0.1" as a number; nothing when the text is not four decimal numbers up to 255, without leading zeros,
/// separated by points. Asks no name server.
std::optional<uint32_t> ParseAddress(const std::string& aText);
std::string AddressText(uint32_t aAddress);
/// "127.0.0.1:3956"
std::string EndpointText(const Endpoint& aEndpoint);

} // namespace KyGvcp
