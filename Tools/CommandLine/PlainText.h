#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace KyCommandLine
{

/// A text with its control characters written out, "\n" or "\x1b" for example: a terminal that shows it does
/// nothing else. Texts of users, files and devices may have any.
std::string Escaped(const std::string& aText);

/// The word of a list that is meant by a misspelled one: the nearest by letters that are wrong, missing, too many
/// or exchanged. \return Nothing when none is near.
std::optional<std::string> Nearest(const std::string& aWord, const std::vector<std::string>& aWords);

/// A text in lines of at most aWidth characters, broken between words; line ends of its own are kept, and so are
/// lines that begin with a space. Each line but the first begins with aIndent spaces, which count; the first one is
/// meant to follow as many characters.
std::string Wrapped(const std::string& aText, size_t aWidth, size_t aIndent = 0);

} // namespace KyCommandLine
