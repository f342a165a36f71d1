#pragma once

#include <map>
#include <optional>
#include <string>

namespace KySerialTool
{

/// What a request over HTTP asks for.
struct WebTarget
{
    std::string mPath{}; ///< "/traffic"; as it was sent.
    std::map<std::string, std::string> mQuery{};
};

/// Takes "PATH" or "PATH?NAME=VALUE&NAME=VALUE", names and values with %XX for what they cannot have themselves.
/// \return Nothing when a % is followed by something else than two hexadecimal digits, when a name comes twice, when there are
/// more than eight, or when the text does not begin with '/'.
std::optional<WebTarget> ParseWebTarget(const std::string& aText);

/// Whether a request's host is this computer: by number, by "localhost", or as aAddress, where it listens. A page
/// elsewhere may have given this computer a name of its own; that name is refused.
bool IsOwnHost(const std::string& aHost, const std::string& aAddress);

/// Whether both texts are the same, in a time that depends on the length of aGiven only.
bool IsSameSecret(const std::string& aGiven, const std::string& aSecret);

} // namespace KySerialTool
