#include "kyserial/Text/Number.h"

#include <charconv>
#include <system_error>

namespace KySerialTool
{

std::optional<uint64_t> ParseNumber(const std::string& aText, uint64_t aMaximum)
{
    const bool lHexadecimal = aText.starts_with("0x") || aText.starts_with("0X");
    const char* const lBegin = aText.data() + (lHexadecimal ? 2 : 0);
    const char* const lEnd = aText.data() + aText.size();
    uint64_t lNumber = 0;
    const auto lResult = std::from_chars(lBegin, lEnd, lNumber, lHexadecimal ? 16 : 10);
    if (lResult.ec != std::errc() || lResult.ptr != lEnd || lNumber > aMaximum)
    {
        return std::nullopt;
    }
    return lNumber;
}

} // namespace KySerialTool
