#pragma once

#include "kyserial/Options/Options.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KySerialTool
{

/// The bytes of a file, "-" being the standard input. Throws OperationError, and UsageError when there are more than
/// aLimit, without reading on: a file may have no end.
std::vector<uint8_t> LoadFile(Context& aContext, const std::string& aPath, size_t aLimit);

/// Writes a file, "-" being the standard output. Throws OperationError.
void SaveFile(Context& aContext, const std::string& aPath, const std::vector<uint8_t>& aBytes);

/// Compares what was read back with what was written. Throws OperationError that names the first difference.
/// \param aOffset  Where the first byte lies in the memory.
void Verify(const std::vector<uint8_t>& aWritten, const std::vector<uint8_t>& aRead, size_t aOffset);

} // namespace KySerialTool
