#pragma once

#include <string>
#include <vector>

namespace KyTest
{

/// What is wrong with a GenICam description by the rules of GenApi 1.1, as far as they concern the kinds of
/// nodes that the simulated camera has: which elements a node has, in which order, which of them it needs,
/// what their texts look like, that names are unique, and that every pointer leads to a node of a kind that
/// fits.
/// \return One line for each violation; a kind of node that is not known here is one.
std::vector<std::string> FindViolations(const std::string& aXml);

} // namespace KyTest
