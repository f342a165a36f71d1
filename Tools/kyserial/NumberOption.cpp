#include "kyserial/NumberOption.h"

#include "kyserial/Number.h"

#include <optional>

namespace KySerialTool
{

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

} // namespace KySerialTool
