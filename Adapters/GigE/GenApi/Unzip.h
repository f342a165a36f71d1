#pragma once

#include <string>

namespace KyGigE
{

/// The content of a description's file: the file itself, or the first file in it when it is a ZIP archive.
/// Empty when the archive cannot be read.
std::string Unzipped(const std::string& aFile);

} // namespace KyGigE
