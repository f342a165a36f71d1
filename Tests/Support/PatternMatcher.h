#pragma once

#include <gmock/gmock.h>

#include <regex>
#include <string>

namespace KyTest
{

/// The whole text matches an ECMAScript pattern. The test framework's own expressions know next to nothing on
/// systems without POSIX ones.
MATCHER_P(MatchesPattern, aPattern, std::string("matches ") + aPattern)
{
    return std::regex_match(std::string(arg), std::regex(aPattern));
}

} // namespace KyTest
