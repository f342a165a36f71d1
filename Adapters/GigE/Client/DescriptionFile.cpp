#include "Adapters/GigE/Client/DescriptionFile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <system_error>

namespace KyGigE
{

namespace
{

// Far above any description. The size comes from the device, and memory is taken before the first byte is read.
constexpr uint32_t cLargest = 16U << 20U;

/// Devices pad their texts with blanks and end them with lines' ends.
std::string Trimmed(const std::string& aText)
{
    constexpr const char* cBlanks = " \t\r\n";
    const size_t lFirst = aText.find_first_not_of(cBlanks);
    const size_t lLast = aText.find_last_not_of(cBlanks);
    return lFirst == std::string::npos ? std::string() : aText.substr(lFirst, lLast - lFirst + 1);
}

/// A hexadecimal number, with or without 0x; nothing else.
bool ParseHex(const std::string& aText, uint32_t& aNumber)
{
    std::string lDigits = Trimmed(aText);
    if (lDigits.size() > 2 && lDigits[0] == '0' && (lDigits[1] == 'x' || lDigits[1] == 'X'))
    {
        lDigits.erase(0, 2);
    }
    const char* const lEnd = lDigits.data() + lDigits.size();
    const auto [lStop, lError] = std::from_chars(lDigits.data(), lEnd, aNumber, 16);
    return lError == std::errc() && lStop == lEnd;
}

} // namespace

bool ParseDescriptionUrl(const std::string& aUrl, DescriptionPlace& aPlace)
{
    const std::string lScheme = "local:";
    const std::string lUrl = Trimmed(aUrl);
    // "Local:name.xml;address;size": the scheme in any case, then address and size in hexadecimal.
    const bool lLocal = lUrl.size() > lScheme.size() &&
                        std::equal(lScheme.begin(), lScheme.end(), lUrl.begin(),
                                   [](char aExpected, char aFound)
                                   { return aExpected == std::tolower(static_cast<unsigned char>(aFound)); });
    const size_t lFirst = lUrl.find(';');
    const size_t lSecond = lFirst != std::string::npos ? lUrl.find(';', lFirst + 1) : lFirst;
    if (!lLocal || lSecond == std::string::npos)
    {
        return false;
    }
    const size_t lEnd = lUrl.find('?', lSecond); // "?SchemaVersion=1.1.0"
    DescriptionPlace lPlace;
    if (!ParseHex(lUrl.substr(lFirst + 1, lSecond - lFirst - 1), lPlace.mAddress) ||
        !ParseHex(lUrl.substr(lSecond + 1, lEnd == std::string::npos ? lEnd : lEnd - lSecond - 1),
                  lPlace.mSize) ||
        lPlace.mSize == 0 || lPlace.mSize > cLargest)
    {
        return false;
    }
    // Written only when all is right: the caller's place stays as it was otherwise.
    aPlace = lPlace;
    return true;
}

KyResult ReadDescription(ControlChannel& aControl, std::string& aFile)
{
    KyResult lNone(KyResult::FAILURE, "The device has no description of its features in its own memory.");
    // A device names two places. The second one counts where the first is not in the device's memory but, say, a
    // page of its maker.
    for (const uint32_t lRegister : {KyGvcp::cFirstUrlRegister, KyGvcp::cSecondUrlRegister})
    {
        aFile.clear();
        std::array<uint8_t, KyGvcp::cUrlSize + 1> lUrl{}; // a text may fill its register, without an end mark
        KyResult lResult = aControl.ReadMemory(lRegister, lUrl.data(), KyGvcp::cUrlSize);
        DescriptionPlace lPlace;
        if (lResult.IsOK() && ParseDescriptionUrl(reinterpret_cast<const char*>(lUrl.data()), lPlace))
        {
            aFile.resize(lPlace.mSize);
            lResult =
                aControl.ReadMemory(lPlace.mAddress, reinterpret_cast<uint8_t*>(aFile.data()), aFile.size());
            if (lResult.IsOK())
            {
                return lResult;
            }
            // The failure to read a place says more than "no description", so it is the one that is reported.
            lNone = lResult;
        }
        // The second place would only cost another time-out.
        if (lResult.GetCode() == KyResult::NO_CONNECTION)
        {
            aFile.clear();
            return lResult;
        }
    }
    aFile.clear();
    return lNone;
}

} // namespace KyGigE
