#pragma once

#include <string>

namespace KyGigE
{

/// The content of a description's file: the file itself, or, when it is a ZIP archive, the first file in it
/// whose name ends in ".xml", or else its first file. Files may be stored or deflated, not encrypted. Bytes
/// after the archive count for nothing: devices store files in blocks.
///
/// \param aLargest  Most bytes of the content, whatever the archive says.
/// \param aText  Empty on a failure.
/// \return Empty, or why the archive cannot be read.
std::string Unzip(std::string aFile, size_t aLargest, std::string& aText);

} // namespace KyGigE
