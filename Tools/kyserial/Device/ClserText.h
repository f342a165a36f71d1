#pragma once

#include <clserzmo/clser.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// A code of the client library as a user reads it: "CL_ERR_TIMEOUT (-10004): The operation has timed out."
std::string ClserText(CLINT32 aCode);

/// Throws an OperationError "aWhat: text" unless the code is that of success.
void CheckClser(CLINT32 aCode, const std::string& aWhat);

/// All bit rates of Camera Link, in bits per second.
const std::vector<uint32_t>& ClserRates();

/// The client library's bit for one of them.
CLUINT32 ClserRateBit(uint32_t aRate);

/// "9600, 19200" for the rates whose bits are set.
std::string ClserRatesText(CLUINT32 aBits);

} // namespace KySerialTool
