// Whatever stands on a command line: a transfer is refused as wrong usage, or it is one that can be written
// down and read back as the same.

#include "Fuzz/FuzzInput.h"
#include "kyserial/Bus/I2CText.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <string>

using namespace KyTest;
using namespace KySerialTool;

namespace
{

// Words as a shell hands them over: a blank ends one.
std::vector<std::string> TakeWords(FuzzInput& aInput)
{
    std::vector<std::string> lWords(1);
    for (const uint8_t lByte : aInput.TakeRest())
    {
        if (lByte == ' ')
        {
            lWords.emplace_back();
        }
        else
        {
            lWords.back() += static_cast<char>(lByte);
        }
    }
    return lWords;
}

// The plain form of a transfer: every address and every byte written out.
std::vector<std::string> WriteDown(const std::vector<I2CMessage>& aMessages)
{
    std::vector<std::string> lWords;
    for (const I2CMessage& lMessage : aMessages)
    {
        lWords.push_back((lMessage.mRead ? "r" : "w") + std::to_string(lMessage.mCount) + '@' +
                         std::to_string(lMessage.mAddress));
        for (const uint8_t lByte : lMessage.mBytes)
        {
            lWords.push_back(std::to_string(lByte));
        }
    }
    return lWords;
}

bool IsSame(const I2CMessage& aFirst, const I2CMessage& aSecond)
{
    return aFirst.mRead == aSecond.mRead && aFirst.mAddress == aSecond.mAddress &&
           aFirst.mCount == aSecond.mCount && aFirst.mBytes == aSecond.mBytes;
}

void CheckMessages(const std::vector<std::string>& aWords, bool aAll)
{
    std::vector<I2CMessage> lMessages;
    try
    {
        lMessages = ParseI2CMessages(aWords, aAll);
    }
    catch (const UsageError& lError)
    {
        KY_REQUIRE(lError.what()[0] != '\0');
        return;
    }
    size_t lBytes = 0;
    for (const I2CMessage& lMessage : lMessages)
    {
        KY_REQUIRE(lMessage.mCount <= 65535);
        KY_REQUIRE(lMessage.mBytes.size() == (lMessage.mRead ? 0 : lMessage.mCount));
        KY_REQUIRE(aAll ? lMessage.mAddress <= 0x7F : lMessage.mAddress >= 0x08 && lMessage.mAddress <= 0x77);
        lBytes += lMessage.mBytes.size();
    }
    if (lBytes > 1000)
    {
        return; // the rest would only take long
    }
    const std::vector<I2CMessage> lAgain = ParseI2CMessages(WriteDown(lMessages), aAll);
    KY_REQUIRE(std::equal(lMessages.begin(), lMessages.end(), lAgain.begin(), lAgain.end(), &IsSame));
}

void CheckBytes(const std::vector<std::string>& aWords)
{
    const std::optional<std::vector<uint8_t>> lBytes = ParseHexBytes(aWords);
    if (lBytes.has_value())
    {
        std::string lText;
        for (const uint8_t lByte : *lBytes)
        {
            char lDigits[4];
            static_cast<void>(std::snprintf(lDigits, sizeof lDigits, "%02X", lByte));
            lText += lDigits;
        }
        KY_REQUIRE(ParseHexBytes({lText}) == lBytes);
    }
}

void CheckNumbers(const std::string& aText)
{
    const std::optional<uint64_t> lNumber = ParseNumber(aText, UINT64_MAX);
    if (lNumber.has_value())
    {
        KY_REQUIRE(ParseNumber(std::to_string(*lNumber), *lNumber) == lNumber);
        KY_REQUIRE(*lNumber == 0 || !ParseNumber(aText, *lNumber - 1).has_value());
    }
    try
    {
        const auto [lFirst, lLast] = ParseI2CRange(aText);
        KY_REQUIRE(lFirst <= lLast);
    }
    catch (const UsageError&) // NOLINT(bugprone-empty-catch): the other result that is right
    {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    FuzzInput lInput(aData, aSize);
    StepCounter::Count();
    const bool lAll = lInput.TakeFlag();
    const std::vector<std::string> lWords = TakeWords(lInput);
    CheckMessages(lWords, lAll);
    CheckBytes(lWords);
    CheckNumbers(lWords.front());
    return 0;
}
