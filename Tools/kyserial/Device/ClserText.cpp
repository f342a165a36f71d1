#include "kyserial/Device/ClserText.h"

#include "kyserial/Text/Failure.h"

#include <algorithm>
#include <array>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr std::array<std::pair<CLINT32, const char*>, 15> cNames = {
    {{CL_ERR_BUFFER_TOO_SMALL, "CL_ERR_BUFFER_TOO_SMALL"},
     {CL_ERR_MANU_DOES_NOT_EXIST, "CL_ERR_MANU_DOES_NOT_EXIST"},
     {CL_ERR_PORT_IN_USE, "CL_ERR_PORT_IN_USE"},
     {CL_ERR_TIMEOUT, "CL_ERR_TIMEOUT"},
     {CL_ERR_INVALID_INDEX, "CL_ERR_INVALID_INDEX"},
     {CL_ERR_INVALID_REFERENCE, "CL_ERR_INVALID_REFERENCE"},
     {CL_ERR_ERROR_NOT_FOUND, "CL_ERR_ERROR_NOT_FOUND"},
     {CL_ERR_BAUD_RATE_NOT_SUPPORTED, "CL_ERR_BAUD_RATE_NOT_SUPPORTED"},
     {CL_ERR_OUT_OF_MEMORY, "CL_ERR_OUT_OF_MEMORY"},
     {CL_ERR_REGISTRY_KEY_NOT_FOUND, "CL_ERR_REGISTRY_KEY_NOT_FOUND"},
     {CL_ERR_INVALID_PTR, "CL_ERR_INVALID_PTR"},
     {CL_ERR_IN_USE, "CL_ERR_IN_USE"},
     {CL_ERR_INVALID_ARG, "CL_ERR_INVALID_ARG"},
     {CL_ERR_UNABLE_TO_LOAD_DLL, "CL_ERR_UNABLE_TO_LOAD_DLL"},
     {CL_ERR_FUNCTION_NOT_FOUND, "CL_ERR_FUNCTION_NOT_FOUND"}}};

} // namespace

std::string ClserText(CLINT32 aCode)
{
    const auto* const lName =
        std::find_if(cNames.begin(), cNames.end(), [&](const auto& aName) { return aName.first == aCode; });
    std::array<CLINT8, 256> lText{};
    auto lSize = static_cast<CLUINT32>(lText.size());
    std::string lResult = lName != cNames.end() ? lName->second + std::string(" (") : "error (";
    lResult += std::to_string(aCode) + ')';
    if (clGetErrorText(aCode, lText.data(), &lSize) == CL_ERR_NO_ERR)
    {
        lResult += std::string(": ") + lText.data();
    }
    return lResult;
}

void CheckClser(CLINT32 aCode, const std::string& aWhat)
{
    if (aCode != CL_ERR_NO_ERR)
    {
        throw OperationError(aWhat + ": " + ClserText(aCode));
    }
}

const std::vector<uint32_t>& ClserRates()
{
    // In the order of the bits.
    static const std::vector<uint32_t> sRates = {9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600};
    return sRates;
}

CLUINT32 ClserRateBit(uint32_t aRate)
{
    const auto lRate = std::find(ClserRates().begin(), ClserRates().end(), aRate);
    return lRate != ClserRates().end() ? CLUINT32{1} << (lRate - ClserRates().begin()) : 0;
}

std::string ClserRatesText(CLUINT32 aBits)
{
    std::string lText;
    for (const uint32_t lRate : ClserRates())
    {
        if ((aBits & ClserRateBit(lRate)) != 0)
        {
            lText += (lText.empty() ? "" : ", ") + std::to_string(lRate);
        }
    }
    return lText;
}

} // namespace KySerialTool
