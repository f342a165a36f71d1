#pragma once

#include "kyserial/Options/Options.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Why a call on a file has just failed, as what follows its name: ": it is a directory", or ": " and the system's
/// words. Empty when the system has none. The call is the last one that has set errno.
std::string FileFault(const std::string& aPath);

/// The bytes of a file, "-" being the standard input. Throws OperationError, and UsageError when there are more than
/// aLimit, without reading on: a file may have no end.
std::vector<uint8_t> LoadFile(Context& aContext, const std::string& aPath, size_t aLimit);

/// Writes a file, "-" being the standard output. Throws OperationError.
void SaveFile(Context& aContext, const std::string& aPath, const std::vector<uint8_t>& aBytes);

/// Compares what was read back with what was written. Throws OperationError that names the first difference.
/// \param aOffset  Where the first byte lies in the memory.
void Verify(const std::vector<uint8_t>& aWritten, const std::vector<uint8_t>& aRead, size_t aOffset);

} // namespace KySerialTool
