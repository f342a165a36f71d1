#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace KySerialTool
{

/// The one way in which the program writes JSON: an object in one line. Names of devices and files may have any
/// bytes; those that are no text are replaced.
inline std::string JsonLine(const nlohmann::ordered_json& aValue)
{
    return aValue.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

} // namespace KySerialTool
