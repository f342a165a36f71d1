#include "Adapters/GigE/Client/DescriptionFile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

namespace KyGigE
{

namespace
{

constexpr uint32_t cLargest = 16U << 20U;

/// A hexadecimal number that ends at aEnd.
bool ParseHex(const std::string& aText, uint32_t& aNumber)
{
    char* lEnd = nullptr;
    const unsigned long long lNumber = std::strtoull(aText.c_str(), &lEnd, 16);
    aNumber = static_cast<uint32_t>(lNumber);
    return !aText.empty() && *lEnd == '\0' && lNumber <= UINT32_MAX;
}

} // namespace

bool ParseDescriptionUrl(const std::string& aUrl, DescriptionPlace& aPlace)
{
    const std::string lScheme = "local:";
    const bool lLocal = aUrl.size() > lScheme.size() &&
                        std::equal(lScheme.begin(), lScheme.end(), aUrl.begin(),
                                   [](char aExpected, char aFound)
                                   { return aExpected == std::tolower(static_cast<unsigned char>(aFound)); });
    const size_t lFirst = aUrl.find(';');
    const size_t lSecond = lFirst != std::string::npos ? aUrl.find(';', lFirst + 1) : lFirst;
    if (!lLocal || lSecond == std::string::npos)
    {
        return false;
    }
    const size_t lEnd = aUrl.find('?', lSecond); // "?SchemaVersion=1.1.0"
    DescriptionPlace lPlace;
    if (!ParseHex(aUrl.substr(lFirst + 1, lSecond - lFirst - 1), lPlace.mAddress) ||
        !ParseHex(aUrl.substr(lSecond + 1, lEnd == std::string::npos ? lEnd : lEnd - lSecond - 1),
                  lPlace.mSize) ||
        lPlace.mSize == 0 || lPlace.mSize > cLargest)
    {
        return false;
    }
    aPlace = lPlace;
    return true;
}

KyResult ReadDescription(ControlChannel& aControl, std::string& aFile)
{
    aFile.clear();
    for (const uint32_t lRegister : {KyGvcp::cFirstUrlRegister, KyGvcp::cSecondUrlRegister})
    {
        std::array<uint8_t, KyGvcp::cUrlSize + 1> lUrl{};
        KyResult lResult = aControl.ReadMemory(lRegister, lUrl.data(), KyGvcp::cUrlSize);
        DescriptionPlace lPlace;
        if (!lResult.IsOK() || !ParseDescriptionUrl(reinterpret_cast<const char*>(lUrl.data()), lPlace))
        {
            if (lResult.GetCode() == KyResult::NO_CONNECTION)
            {
                return lResult;
            }
            continue;
        }
        aFile.resize(lPlace.mSize);
        lResult =
            aControl.ReadMemory(lPlace.mAddress, reinterpret_cast<uint8_t*>(aFile.data()), aFile.size());
        if (!lResult.IsOK())
        {
            aFile.clear();
        }
        return lResult;
    }
    return {KyResult::FAILURE, "The device has no description of its features in its own memory."};
}

} // namespace KyGigE
