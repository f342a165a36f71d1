#include "kyserial/Options/NumberOption.h"

#include "kyserial/Text/Number.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

/// "7 or 8".
std::string Choices(const std::vector<uint32_t>& aValues)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aValues.size(); ++lIndex)
    {
        const bool lLast = lIndex + 1 == aValues.size();
        lText += (lIndex == 0 ? "" : lLast ? " or " : ", ") + std::to_string(aValues[lIndex]);
    }
    return lText;
}

} // namespace

CLI::Option* AddNumberOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                             const std::string& aUnit, const std::string& aDescription, uint32_t& aValue)
{
    const auto lParse = [=, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, aMaximum);
        if (!lNumber.has_value())
        {
            throw CLI::ValidationError(aName.substr(aName.find("--")),
                                       '"' + aText + "\" does not fit; use 0 to " + std::to_string(aMaximum) +
                                           ' ' + aUnit);
        }
        aValue = static_cast<uint32_t>(*lNumber);
    };
    return aCommand.add_option_function<std::string>(aName, lParse, aDescription)->type_name("N");
}

CLI::Option* AddNumberChoice(CLI::App& aCommand, const std::string& aName,
                             const std::vector<uint32_t>& aValues, const std::string& aDescription,
                             std::optional<uint32_t>& aValue)
{
    const std::string lChoices = Choices(aValues);
    const auto lParse = [=, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, UINT32_MAX);
        if (!lNumber.has_value() || std::find(aValues.begin(), aValues.end(), *lNumber) == aValues.end())
        {
            throw CLI::ValidationError(aName, '"' + aText + "\" does not fit; use " + lChoices);
        }
        aValue = static_cast<uint32_t>(*lNumber);
    };
    return aCommand.add_option_function<std::string>(aName, lParse, aDescription + ": " + lChoices)
        ->type_name("N");
}

} // namespace KySerialTool
