#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

// The parser must not see characters beyond ASCII outside of quotes and comments: it takes them for impossible there. So a text is
// parsed with letters in their place first. When it is TOML then, its quotes are where they seem to be.

/// The text with a letter in the place of each byte beyond ASCII.
std::string WithoutForeignLetters(std::string aToml);

/// Looks for a character beyond ASCII outside of quotes and comments. \param aToml  TOML, but for that.
/// \return The line of the first one, from 1.
std::optional<uint32_t> FindStrayCharacter(const std::string& aToml);

/// What is said about such a line.
constexpr char cStrayCharacter[] = "letters beyond a to z stand in quotes or comments only";

} // namespace KySerialTool
