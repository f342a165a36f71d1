#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace KyGvcp
{

/// The longest that a name server is waited for.
constexpr std::chrono::milliseconds cLongestLookUp{5000};

/// Whether a text may be the name of a host: letters, digits, "-" and ".", and at least one letter. Asks nobody.
bool IsHostName(const std::string& aText);

/// Asks the system for the IPv4 address of a host. Blocks until that answers.
std::optional<uint32_t> LookUpHost(const std::string& aName) noexcept;

/// An IPv4 address, or the name of a host, as a number.
///
/// The system may take longer for a name than anybody wants to wait, and nothing ends that: its thread is left alone then, and goes
/// on until it has an answer that nobody needs.
/// \param aLongest  The wait ends then. \param aIsOver  Looked at every 50 ms; true ends the wait. May be empty.
/// \param aError  Why there is no address, in words for a user; untouched otherwise.
/// \param aLookUp  What a name is asked with.
std::optional<uint32_t>
FindAddress(const std::string& aText, std::chrono::milliseconds aLongest,
            const std::function<bool()>& aIsOver, std::string& aError,
            std::function<std::optional<uint32_t>(const std::string&)> aLookUp = LookUpHost);

} // namespace KyGvcp
