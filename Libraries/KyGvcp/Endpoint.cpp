#include "KyGvcp/Endpoint.h"

#include <charconv>

namespace KyGvcp
{

namespace
{

/// Takes one number of an address. \return Null when the text has no number there.
const char* TakeNumber(const char* aBegin, const char* aEnd, uint32_t& aNumber)
{
    constexpr uint32_t cLargest = 255;
    const auto [lNext, lError] = std::from_chars(aBegin, aEnd, aNumber);
    // Some programs read a leading zero as octal, so that nobody can know which address is meant.
    const bool lLeadingZero = lNext - aBegin > 1 && *aBegin == '0';
    return lError == std::errc() && !lLeadingZero && aNumber <= cLargest ? lNext : nullptr;
}

} // namespace

std::optional<uint32_t> ParseAddress(const std::string& aText)
{
    const char* lNext = aText.data();
    const char* const lEnd = lNext + aText.size();
    uint32_t lAddress = 0;
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        uint32_t lNumber = 0;
        if (lIndex > 0 && (lNext == lEnd || *lNext++ != '.'))
        {
            return {};
        }
        lNext = TakeNumber(lNext, lEnd, lNumber);
        if (lNext == nullptr)
        {
            return {};
        }
        lAddress = lAddress << 8U | lNumber;
    }
    return lNext == lEnd ? std::optional(lAddress) : std::nullopt;
}

std::string AddressText(uint32_t aAddress)
{
    std::string lText = std::to_string(aAddress >> 24U);
    for (const uint32_t lShift : {16U, 8U, 0U})
    {
        lText += '.' + std::to_string((aAddress >> lShift) & 0xFFU);
    }
    return lText;
}

std::string EndpointText(const Endpoint& aEndpoint)
{
    return AddressText(aEndpoint.mAddress) + ':' + std::to_string(aEndpoint.mPort);
}

} // namespace KyGvcp
