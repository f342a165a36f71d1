#include "kyserial/Serve/Web/WebRequest.h"

#include <cstddef>

namespace KySerialTool
{

namespace
{

constexpr size_t cMostNames = 8;

std::optional<unsigned> HexDigit(char aDigit)
{
    static const std::string cDigits = "0123456789abcdef";
    const char lLower = aDigit >= 'A' && aDigit <= 'F' ? static_cast<char>(aDigit + ('a' - 'A')) : aDigit;
    const size_t lPlace = cDigits.find(lLower);
    return lPlace != std::string::npos ? std::optional<unsigned>(static_cast<unsigned>(lPlace))
                                       : std::nullopt;
}

std::optional<std::string> WithoutPercent(const std::string& aText)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aText.size(); ++lIndex)
    {
        if (aText[lIndex] != '%')
        {
            lText += aText[lIndex];
            continue;
        }
        const auto lHigh = lIndex + 2 < aText.size() ? HexDigit(aText[lIndex + 1]) : std::nullopt;
        const auto lLow = lIndex + 2 < aText.size() ? HexDigit(aText[lIndex + 2]) : std::nullopt;
        if (!lHigh.has_value() || !lLow.has_value())
        {
            return std::nullopt;
        }
        lText += static_cast<char>(*lHigh << 4 | *lLow);
        lIndex += 2;
    }
    return lText;
}

} // namespace

std::optional<WebTarget> ParseWebTarget(const std::string& aText)
{
    WebTarget lTarget;
    const size_t lQuestion = aText.find('?');
    lTarget.mPath = aText.substr(0, lQuestion);
    if (lTarget.mPath.empty() || lTarget.mPath.front() != '/')
    {
        return std::nullopt;
    }
    for (size_t lPlace = lQuestion; lPlace != std::string::npos;)
    {
        const size_t lEnd = aText.find('&', lPlace + 1);
        const std::string lPair =
            aText.substr(lPlace + 1, lEnd == std::string::npos ? lEnd : lEnd - lPlace - 1);
        const size_t lEqual = lPair.find('=');
        const auto lName = WithoutPercent(lPair.substr(0, lEqual));
        const auto lValue =
            WithoutPercent(lEqual == std::string::npos ? std::string() : lPair.substr(lEqual + 1));
        // A name that comes twice is refused, since either value could be meant. So are more names than any
        // page uses.
        const bool lIsGood = lName.has_value() && lValue.has_value() && lTarget.mQuery.size() < cMostNames;
        if (!lIsGood || !lTarget.mQuery.emplace(*lName, *lValue).second)
        {
            return std::nullopt;
        }
        lPlace = lEnd;
    }
    return lTarget;
}

bool IsOwnHost(const std::string& aHost, const std::string& aAddress)
{
    std::string lHost = aHost;
    // The last colon parts host and port, unless it belongs to an IPv6 address in brackets.
    const size_t lColon = lHost.rfind(':');
    if (lColon != std::string::npos && lHost.find(']', lColon) == std::string::npos)
    {
        lHost.erase(lColon);
    }
    return lHost == "localhost" || lHost == "127.0.0.1" || lHost == "[::1]" || lHost == aAddress ||
           lHost == '[' + aAddress + ']';
}

bool IsSameSecret(const std::string& aGiven, const std::string& aSecret)
{
    if (aSecret.empty())
    {
        return false; // nobody knows one that is not there
    }
    // Every character counts, so that the time does not say how many of a guess are right.
    unsigned lDiffers = aGiven.size() != aSecret.size() ? 1 : 0;
    for (size_t lIndex = 0; lIndex < aGiven.size(); ++lIndex)
    {
        lDiffers |= static_cast<unsigned>(static_cast<unsigned char>(aGiven[lIndex]) ^
                                          static_cast<unsigned char>(aSecret[lIndex % aSecret.size()]));
    }
    return lDiffers == 0;
}

} // namespace KySerialTool
