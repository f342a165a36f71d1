#pragma once

#include <string>

namespace KySimulator
{

/// A ZIP archive with one file. \param aName  Of the file. \return Empty: there is no memory.
std::string MakeZip(const std::string& aName, const std::string& aContent);

} // namespace KySimulator
