#pragma once

#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds "features": the device's GenICam features by name.
void AddFeaturesCommand(CLI::App& aProgram, Context& aContext);

/// A feature with its value of now.
struct FeatureFinding
{
    DeviceFeature mFeature;
    std::string mAccess;                 ///< "RW", "RO", "WO"; "-" when it cannot be used now.
    std::string mValue;                  ///< Empty when there is none to show.
    std::vector<std::string> mEntries{}; ///< An enumeration's.
};

/// Asks the device for all of its features.
std::vector<FeatureFinding> SurveyFeatures(Device& aDevice);

/// The findings as a table.
std::string FeaturesTable(const std::vector<FeatureFinding>& aFindings);

/// The findings as one JSON object.
std::string FeaturesJson(const std::string& aDevice, const std::vector<FeatureFinding>& aFindings);

} // namespace KySerialTool
